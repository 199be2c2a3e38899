#pragma once

#include <string>

/// A key that a person presses on the terminal, before there is a console.
namespace Key {

/// Asks on the standard error and reads one key from the standard input, both terminals: true for
/// "y". Control-C and the like are keys as well. The terminal is given back as it was, also when a
/// signal ends this process.
bool confirms(const std::string& question);

} // namespace Key
