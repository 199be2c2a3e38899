#include "frontend/switchboard/request.h"

#include "backend/os/text.h"
#include "frontend/switchboard/pipeline.h"

Work Request::work() const {
    if (stat)
        return {.number = number,
                .output = Work::STACKS,
                .withPlaces = stat->options().withPlaces,
                .allCalls = stat->options().allCalls};
    return {.number = number,
            .output = filter.empty() ? Work::LINES : Work::WHOLE,
            .instant = instant()};
}

std::optional<std::string> Request::prepare(const Driver& driver, ProgramLookup& programs) {
    if (kind == Command::SCRIPTCLIENT) return prepareScript(programs);
    if (kind == Command::STATCLIENT) return prepareStat(driver, programs);
    line = kind == Command::CLIENT ? text : Text::afterWord(text);
    if (line.starts_with(':')) {
        line.erase(0, 1);
    } else if (!driver.keepsBars(line)) {
        if (auto pipeline = Pipeline::parse(line, programs)) {
            line = std::move(pipeline->command);
            filter = std::move(pipeline->filter);
        }
    }
    if (std::string refusal = driver.refusal(line); !refusal.empty()) return refusal;
    return std::nullopt;
}

std::optional<std::string> Request::prepareScript(ProgramLookup& programs) {
    line = Text::afterWord(text);
    const std::string file = Text::firstWord(line);
    // What the shell reads in its own way is left to the shell.
    constexpr const char* shells = "'\"\\$`*?[~;&|<>(){}";
    if (file.find_first_of(shells) == std::string::npos && !programs.isProgram(file))
        return "cannot run '" + file + "': " +
               (programs.isProgram("./" + file)
                    ? "a program of this directory needs its path, ./" + file
                    : "there is no such program, or it may not be executed (chmod +x)");
    // A single command takes the place of its shell.
    if (line.find_first_of(";&|") == std::string::npos) line = "exec " + line;
    return std::nullopt;
}

std::optional<std::string> Request::prepareStat(const Driver& driver, ProgramLookup& programs) {
    const std::size_t bar = text.find('|');
    // "stat OPTIONS" is the console's, "vex stat OPTIONS" ours.
    std::string words = Text::afterWord(text.substr(0, bar));
    const bool ours = Text::firstWord(words) == "stat";
    if (ours) words = Text::afterWord(words);
    StatReport::Options options;
    for (; !words.empty(); words = Text::afterWord(words)) {
        const std::string option = Text::firstWord(words);
        if (option == "-s")
            options.withPlaces = true;
        else if (option == "-i")
            options.innermostOnly = true;
        else if (option == "-a" && ours)
            options.allCalls = true;
        else if (ours)
            return "vex stat takes -a (all calls of all threads), -s and -i, not '" + option + "'";
    }
    stat.emplace(options);
    if (bar != std::string::npos) {
        const std::size_t begin = text.find_first_not_of(" \t", bar + 1);
        filter = begin == std::string::npos ? "" : text.substr(begin);
        const std::string program = Text::firstWord(filter);
        if (!programs.isProgram(program)) return "cannot find the program '" + program + "'";
    }
    line = driver.backtraceCommand(StackTree::maxCalls);
    return std::nullopt;
}
