#pragma once

#include "backend/drivers/driver.h"

#include <string_view>

/// How gdb is asked for the value of an expression, in the selected frame or, where that does not
/// know its names, in the innermost frame of the program's own: by a command of this name, which is
/// written in Python. A gdb without Python knows the selected frame only.
namespace GdbValues {

constexpr const char* command = "vex-values";
/// What makes the command: for every gdb, then for those with Python.
extern const char* const plain;
extern const char* const hook;
/// Reads its answer.
Driver::Value parse(std::string_view answer);

} // namespace GdbValues
