#pragma once

#include "mpitrace/mpistate.h"

#include <sys/types.h>

/// Reads what libvexmpi.so keeps in a process of this host and of the same user, whether that runs
/// or stands still.
namespace MpiReader {

MpiState stateOf(pid_t process);

} // namespace MpiReader
