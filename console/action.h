#pragma once

#include "common/command.h"
#include "common/token.h"

#include <string>
#include <variant>

struct Topic;

/// What a typed line asks the console to do, as CommandLine::parse finds it. Values; only tokens
/// borrow the line.
namespace Actions {

/// Nothing at all: a blank line, or a command that does not apply in this state.
struct None {};

/// A command for the front end: a line for the clients, an answer to a secondary prompt, an
/// interrupt (without a text), the name of the group to switch to.
struct Send {
    Command::Type type;
    std::string text;
};

/// A query or a change of a group.
struct Group {
    GroupCommand command;
};

/// The state INTERRUPTED is left; nothing is sent.
struct Leave {};

/// The end of the whole session, once the user has confirmed it.
struct Quit {};

/// The end of this console, once the user has confirmed it.
struct Exit {};

/// An option, by its index in optionList, is shown.
struct ShowOption {
    int option;
};

/// An option gets a value, which may turn out to be none of its words.
struct SetOption {
    int option;
    Token value;
};

/// The usage of the option command is shown: its word is no option.
struct OptionUsage {};

/// One topic is explained, or all are listed: null.
struct Help {
    const Topic* topic;
};

/// The last lines of the history file are shown; their number as it was typed.
struct History {
    std::string count;
};

/// The kept output is shown through a cascade of filters; an empty one filters nothing.
struct Match {
    std::string cascade;
};

/// A client command that is refused because the clients are interrupted; the line from its first
/// word on.
struct Refuse {
    std::string line;
};

/// A client command that begins with a quotation which is not closed: the user is told, and it is
/// sent all the same.
struct Undefined {
    Token word;
};

} // namespace Actions

using Action = std::variant<Actions::None, Actions::Send, Actions::Group, Actions::Leave,
                            Actions::Quit, Actions::Exit, Actions::ShowOption, Actions::SetOption,
                            Actions::OptionUsage, Actions::Help, Actions::History, Actions::Match,
                            Actions::Refuse, Actions::Undefined>;
