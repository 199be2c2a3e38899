#pragma once

#include <string_view>

/// What gdb's command lines do to a task, as far as their first word tells: what a file of
/// commands, a user's own command or Python does stands in no line.
namespace GdbCommands {

/// Whether the task may run until the prompt, be it for a call of one of its functions.
bool letRun(std::string_view line);
/// Whether the task goes on from where it stands, or ends.
bool leavePlace(std::string_view line);

} // namespace GdbCommands
