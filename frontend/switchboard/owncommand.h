#pragma once

#include "common/command.h"

#include <string>

/// Commands that begin with the word "vex" are the session's, though consoles take them for the
/// debuggers': "vex", a name, and what that one takes.
namespace OwnCommand {

enum Name {
    NONE, // it is the debuggers'
    WHO,
    STAT,
    VALUES,
    INTERRUPT,
    WAITS,
    UNKNOWN,
};

Name of(const Command& command);

/// A sentence that names them all.
std::string all();

} // namespace OwnCommand
