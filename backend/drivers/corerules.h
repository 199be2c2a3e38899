#pragma once

#include <string>
#include <string_view>

/// Which commands of a debugger are of no use for a core file, because they need a process or start
/// one. What stands in an argument of another command ("thread apply all step") is left to the
/// debugger, which refuses it as well.
namespace CoreRules {

/// Why a command line is refused, as a sentence; empty: it is not.
std::string gdbRefuses(std::string_view line);
std::string lldbRefuses(std::string_view line);

} // namespace CoreRules
