#pragma once

#include <string>

/// Whether an executable is worth a debugger: it has a table of symbols, which the system's own
/// tools come without, or is a Python, which runs what the user has written. A shell is none.
bool canBeDebugged(const std::string& executable);
