#pragma once

#include "backend/drivers/driver.h"

#include <string>

/// How gdb starts a program whose input is another terminal than gdb's own: what it puts in front
/// of the program's command line (set exec-wrapper), a text that a shell reads.
namespace GdbWrapper {

std::string of(const Driver::Launch& launch);

} // namespace GdbWrapper
