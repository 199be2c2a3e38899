#include "common/argument.h"

#include "common/catalog.h"
#include "common/error.h"
#include "common/wholenumber.h"

#include <cstdlib>
#include <optional>
#include <string_view>

namespace {

// Digits only; the empty word is 0. Nothing for another word and for a number that is no int.
std::optional<int> parseInteger(std::string_view word) {
    if (word.empty()) return 0;
    if (word.find_first_not_of("0123456789") != word.npos) return std::nullopt;
    return wholeNumber<int>(word);
}

} // namespace

Argument::Argument(int argc, char** argv, ArgDescription* table)
    : executable(argc > 0 ? argv[0] : ""), args(table) {
    Preprocess();
    for (int i = 1; i < argc; ++i) {
        if (argv[i][0] != '-')
            ProcessArgument(argv[i]);
        else if (processLetters(argv[i] + 1, i + 1 < argc ? argv[i + 1] : nullptr))
            ++i;
    }
    if ((argc == 1 && numRequired > 0) || options.contains('h')) {
        Usage();
        std::exit(0);
    }
    if (arguments.size() < static_cast<std::size_t>(numRequired))
        Error(ERR_ARGUMENT_MISSING, numRequired, executable);
}

void Argument::Preprocess() {
    const ArgDescription* row = args;
    for (; row->type != ARG_NULL && row->option == 0; ++row)
        ++numRequired;
    for (; row->type != ARG_NULL; ++row)
        ++numOptional;
}

int Argument::SearchOption(char option) const {
    for (int row = numRequired; row < numRequired + numOptional; ++row)
        if (args[row].option == option) return row;
    return -1;
}

bool Argument::processLetters(char* letters, char* next) {
    if (*letters == '\0') Error(ERR_OPTION_INVALID, executable, ' ');
    for (; letters[1] != '\0'; ++letters)
        if (ProcessOption(letters[0], letters + 1)) return false;
    return ProcessOption(letters[0], next);
}

bool Argument::ProcessOption(char option, char* value) {
    const int row = SearchOption(option);
    if (row == -1) Error(ERR_OPTION_INVALID, executable, option);
    const char* name = args[row].name;
    if (args[row].type == ARG_BOOLEAN) {
        options.emplace(option, true);
        return false;
    }
    if (!value) Error(ERR_OPTION_MISSING, executable, name, option);
    if (args[row].type == ARG_STRING) {
        options.emplace(option, value);
        return true;
    }
    const std::optional<int> number = parseInteger(value);
    if (!number) Error(ERR_OPTION_MISSING, executable, name, option);
    options.emplace(option, *number);
    return true;
}

void Argument::ProcessArgument(char* word) {
    if (arguments.size() >= static_cast<std::size_t>(numRequired))
        Error(ERR_ARGUMENT_EXTRA, word, executable);
    const ArgDescription& row = args[arguments.size()];
    if (row.type == ARG_STRING) {
        arguments.emplace_back(word);
        return;
    }
    const std::optional<int> number = parseInteger(word);
    if (!number) Error(ERR_ARGUMENT_INTEGER, row.name, executable);
    arguments.emplace_back(*number);
}

void Argument::Usage() const {
    std::printf("Usage: %s", executable);
    for (int row = 0; row < numRequired; ++row)
        std::printf(" <%s>", args[row].name);
    std::printf("\n");
    if (numRequired > 0) std::printf("Required:\n");
    for (int row = 0; row < numRequired; ++row)
        std::printf("     <%s>\t-- %s\n", args[row].name, args[row].detail);
    if (numOptional > 0) std::printf("Optional:\n");
    for (int row = numRequired; row < numRequired + numOptional; ++row) {
        if (args[row].type == ARG_BOOLEAN)
            std::printf("  -%c\t\t\t-- %s\n", args[row].option, args[row].detail);
        else
            std::printf("  -%c <%s>\t-- %s\n", args[row].option, args[row].name, args[row].detail);
    }
}
