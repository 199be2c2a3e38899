#include "frontend/switchboard/request.h"

#include "backend/os/text.h"
#include "common/groupnames.h"
#include "common/wholenumber.h"
#include "frontend/switchboard/pipeline.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <string_view>
#include <utility>

namespace {

constexpr const char* takes =
    "vex stat takes -a (all calls of all threads), -s, -i and -t SAMPLES with -w SECONDS, not '";

// "2", "0.5"; nothing for what is no such time.
std::optional<std::chrono::milliseconds> pauseOf(const std::string& text) {
    double seconds = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, fault] = std::from_chars(text.data(), end, seconds);
    const std::chrono::duration<double> pause(seconds);
    // The comparison fails for what is no number.
    if (fault != std::errc() || stop != end ||
        !(pause >= Sampling::minPause && pause <= Sampling::maxPause))
        return std::nullopt;
    return std::chrono::round<std::chrono::milliseconds>(pause);
}

// Whether it can be the beginning of a group's name.
bool beginsGroupName(const std::string& text) {
    return !text.empty() && std::isdigit(static_cast<unsigned char>(text[0])) == 0 &&
           std::ranges::all_of(text,
                               [](unsigned char c) { return std::isalnum(c) != 0 || c == '_'; });
}

} // namespace

bool Request::takesValue(int client, const std::string& answer, const Driver& driver) {
    if (!values) return false;
    if (waiting.contains(client)) values->add(client, driver.parseValue(answer));
    return true;
}

std::vector<ClientSet> Request::conclude() {
    if (!values) return stat->places();
    ValueTable::Report report = values->report();
    for (const StackTree::Row& row : report.rows)
        stat->addRow(row.text, row.clients);
    return std::move(report.groups);
}

Work Request::work() const {
    if (values) return {.number = number, .output = Work::WHOLE};
    if (stat) {
        const Work once{.number = number,
                        .output = Work::STACKS,
                        .withPlaces = stat->options().withPlaces,
                        .allCalls = stat->options().allCalls};
        return sampling ? sampling->of(once) : once;
    }
    return {.number = number,
            .output = filter.empty() ? Work::LINES : Work::WHOLE,
            .instant = instant()};
}

std::optional<std::string> Request::prepare(const Driver& driver, ProgramLookup& programs) {
    if (kind == Command::SCRIPTCLIENT) return prepareScript(programs);
    const bool isOurs = Text::firstWord(text) == "vex";
    if (kind == Command::STATCLIENT && isOurs && Text::firstWord(Text::afterWord(text)) == "values")
        return prepareValues(driver, programs);
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

// "vex values EXPR [-g NAME]"
std::optional<std::string> Request::prepareValues(const Driver& driver, ProgramLookup& programs) {
    std::string words = Text::afterWord(Text::afterWord(text));
    if (auto pipeline = Pipeline::parse(words, programs)) {
        words = std::move(pipeline->command);
        filter = std::move(pipeline->filter);
    }
    words.erase(words.find_last_not_of(" \t") + 1);
    constexpr std::string_view option = "-g";
    const std::size_t last = words.find_last_of(" \t");
    const std::size_t before = words.find_last_not_of(" \t", last);
    if (last != std::string::npos && before != std::string::npos && before >= option.size() &&
        words.substr(before - 1, option.size()) == option &&
        std::string_view(" \t").find(words[before - 2]) != std::string_view::npos) {
        groupNames = words.substr(last + 1);
        words.erase(words.find_last_not_of(" \t", before - 2) + 1);
        if (!beginsGroupName(groupNames))
            return "'" + groupNames +
                   "' is no name for groups: letters, digits and _, a letter first";
    }
    if (words.empty()) return "what is to be evaluated? vex values EXPR [-g NAME]";
    values.emplace();
    stat.emplace(StatReport::Options{});
    line = driver.valueCommand(words);
    return std::nullopt;
}

// What is wrong with the value of an option about samples; nothing when it was taken over.
std::optional<std::string> Request::prepareSamples(const std::string& option,
                                                   const std::string& value,
                                                   Sampling::Options& samples) {
    if (option == "-w") {
        const auto pause = pauseOf(value);
        if (!pause) return "vex stat -w takes the seconds between two samples, 0.1 to 3600";
        samples.pause = *pause;
        return std::nullopt;
    }
    const auto number = wholeNumber<int>(value);
    if (!number || *number < 2 || *number > Sampling::maxSamples)
        return "vex stat -t takes a number of samples, 2 to " +
               std::to_string(Sampling::maxSamples);
    samples.samples = *number;
    return std::nullopt;
}

std::optional<std::string> Request::prepareStat(const Driver& driver, ProgramLookup& programs) {
    const std::size_t bar = text.find('|');
    // "stat OPTIONS" is the console's, "vex stat OPTIONS" ours.
    std::string words = Text::afterWord(text.substr(0, bar));
    const bool ours = Text::firstWord(words) == "stat";
    if (ours) words = Text::afterWord(words);
    groupNames = GroupNames::place;
    StatReport::Options options;
    Sampling::Options samples;
    std::size_t end = 0;
    // The next word; empty: that was the last. The rest stays where it is: it may be long.
    const auto next = [&words, &end] {
        constexpr const char* blanks = " \t";
        const std::size_t begin = std::min(words.find_first_not_of(blanks, end), words.size());
        end = std::min(words.find_first_of(blanks, begin), words.size());
        return words.substr(begin, end - begin);
    };
    for (std::string option = next(); !option.empty(); option = next()) {
        if (option == "-s")
            options.withPlaces = true;
        else if (option == "-i")
            options.innermostOnly = true;
        else if (option == "-a" && ours)
            options.allCalls = true;
        else if (ours && (option == "-t" || option == "-w")) {
            if (auto problem = prepareSamples(option, next(), samples)) return problem;
        } else if (ours)
            return takes + option + "'";
    }
    stat.emplace(options);
    if (samples.samples > 0) sampling.emplace(samples, driver);
    if (!sampling && samples.pause.count() > 0) return "vex stat -w goes with -t SAMPLES";
    if (sampling && sampling->firstLine().empty()) return "vex stat -t needs gdb";
    if (bar != std::string::npos) {
        const std::size_t begin = text.find_first_not_of(" \t", bar + 1);
        filter = begin == std::string::npos ? "" : text.substr(begin);
        const std::string program = Text::firstWord(filter);
        if (!programs.isProgram(program)) return "cannot find the program '" + program + "'";
    }
    line = sampling ? sampling->firstLine() : driver.backtraceCommand(StackTree::maxCalls);
    return std::nullopt;
}
