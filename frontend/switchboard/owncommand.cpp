#include "frontend/switchboard/owncommand.h"

#include "backend/os/text.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace {

constexpr std::array<std::pair<std::string_view, OwnCommand::Name>, 5> names = {{
    {"who", OwnCommand::WHO},
    {"stat", OwnCommand::STAT},
    {"values", OwnCommand::VALUES},
    {"interrupt", OwnCommand::INTERRUPT},
    {"waits", OwnCommand::WAITS},
}};

} // namespace

OwnCommand::Name OwnCommand::of(const Command& command) {
    if (command.getType() != Command::CLIENT) return NONE;
    const std::string text = Text::of(command);
    if (Text::firstWord(text) != "vex") return NONE;
    std::string word = Text::firstWord(Text::afterWord(text));
    word.resize(std::min(word.size(), word.find('|'))); // a filter
    for (const auto& [name, meaning] : names) {
        if (word == name) return meaning;
    }
    return UNKNOWN;
}

std::string OwnCommand::all() {
    std::string list;
    for (const auto& [name, meaning] : names)
        list += (list.empty() ? "vex " : ", vex ") + std::string(name);
    return "the commands that begin with 'vex' are: " + list;
}
