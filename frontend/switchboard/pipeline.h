#pragma once

#include "frontend/switchboard/programlookup.h"

#include <optional>
#include <string>
#include <string_view>

/// A debugger's command whose output goes through a command of the shell: "where | grep main".
struct Pipeline {
    /// The debugger's command.
    std::string command;
    /// The command of the shell.
    std::string filter;

    /// Cuts a line at its first pipe; nothing when it has none. A bar is a pipe outside quotes and
    /// brackets, single, between blanks, and before the name of a program, so that the bars of
    /// expressions stay the debugger's. Each name is looked up once, and there is no pipe behind
    /// the sixteenth that is no program's: no line keeps the session from its other consoles.
    static std::optional<Pipeline> parse(std::string_view line, ProgramLookup& programs);
};
