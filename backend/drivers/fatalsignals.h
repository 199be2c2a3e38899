#pragma once

#include <string_view>

/// The signal by which a program has crashed, when a debugger says by this line, gdb's or lldb's,
/// that it has stopped the task: "SIGSEGV"; else empty.
std::string_view fatalSignalIn(std::string_view line);
