#include "backend/drivers/lldb.h"

#include <algorithm>

std::vector<std::string> Lldb::argv(const Launch& launch) const {
    std::vector<std::string> settings{
        "auto-confirm true",
        "use-color false",
        "stop-line-count-before 0",
        "stop-line-count-after 1",
    };
    // The program reads from a terminal of its own. Its output must go through lldb, which only
    // then keeps its prompt back until the program stops.
    if (launch.attach.empty())
        settings.push_back("target.input-path " +
                           (launch.inputFile.empty() ? launch.inputTerminal : launch.inputFile));
    std::vector<std::string> words{executable, "--no-lldbinit", "--no-use-colors"};
    for (const std::string& setting : settings)
        words.insert(words.end(), {"-O", "settings set " + setting});
    // The prompt comes last: lldb echoes every command of its command line behind a prompt.
    words.insert(words.end(), {"-o", "settings set prompt \"\\x01" + launch.nonce + "\\n\""});
    if (!launch.attach.empty()) {
        words.insert(words.end(), {"-p", launch.attach});
        return words;
    }
    if (!launch.core.empty()) words.insert(words.end(), {"-c", launch.core});
    words.push_back("--");
    words.insert(words.end(), launch.program.begin(), launch.program.end());
    return words;
}

std::string Lldb::prompt(const std::string& nonce) const { return "\001" + nonce + "\n"; }

bool Lldb::asks(std::string_view tail) const {
    if (tail.ends_with("[Y/n] ") || tail.ends_with("[y/N] ")) return true;
    // Commands of a breakpoint, of Python, the lines of an expression: "> ", ">>> ", "  2: ".
    if (tail == "> " || tail == ">>> ") return true;
    const std::size_t digit = tail.find_first_not_of(' ');
    return digit != std::string_view::npos && tail.ends_with(": ") && tail.size() > digit + 2 &&
           tail.substr(digit, tail.size() - digit - 2).find_first_not_of("0123456789") ==
               std::string_view::npos;
}

bool Lldb::showsInterrupt(std::string_view line) const {
    return line.find("stop reason = signal SIG") != std::string_view::npos;
}

bool Lldb::isGreeting(std::string_view line) const {
    // An lldb without a complete Python prints a traceback, and works.
    return line.empty() || line.starts_with("(lldb) ") ||
           line.starts_with("Current executable set to ") || line.starts_with("Traceback ") ||
           line.starts_with("  File \"<string>\"") || line.starts_with("ModuleNotFoundError") ||
           line.starts_with("NameError: ");
}

bool Lldb::letsRun(std::string_view line) const {
    static constexpr CommandName runners[] = {
        {"run", 1},   {"continue", 1},   {"next", 1}, {"step", 1},   {"nexti", 1},
        {"stepi", 2}, {"ni", 2},         {"si", 2},   {"finish", 1}, {"call", 3},
        {"jump", 1},  {"expression", 4}, {"sif", 3},
    };
    static constexpr CommandName parts[] = {
        {"continue", 1},  {"launch", 1},   {"until", 1},         {"step-over", 3}, {"step-in", 3},
        {"step-inst", 3}, {"step-out", 3}, {"step-scripted", 3}, {"signal", 2},
    };
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    if (word != "process" && word != "thread") return names(word, runners);
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(" \t", word.size())));
    return names(line.substr(0, line.find_first_of(" \t")), parts);
}

bool Lldb::leavesPlace(std::string_view line) const {
    static constexpr CommandName calls[] = {{"call", 3}, {"expression", 4}};
    static constexpr CommandName ends[] = {{"kill", 1}, {"detach", 3}};
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    if (names(word, calls)) return false;
    if (word != "process") return names(word, ends) || letsRun(line);
    std::string_view part = line.substr(word.size());
    part.remove_prefix(std::min(part.size(), part.find_first_not_of(" \t")));
    return names(part.substr(0, part.find_first_of(" \t")), ends) || letsRun(line);
}

bool Lldb::keepsBars(std::string_view line) const {
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    return word == "shell" || word == "platform" || word == "script" || word == "regexp-tbreak";
}

std::string Lldb::backtraceCommand(int calls) const {
    return "thread backtrace -c " + std::to_string(calls) + " all";
}

// "(double) $0 = 1.5", "error: use of undeclared identifier 'x'"
Driver::Value Lldb::parseValue(std::string_view answer) const {
    Value value;
    value.text = firstLine(answer);
    constexpr std::string_view is = " = ";
    const std::size_t at = value.text.find(is);
    if (value.text.starts_with('(') && at != std::string::npos) value.text.erase(0, at + is.size());
    value.number = numberIn(value.text);
    return value;
}

Driver::StackLine Lldb::parseStackLine(std::string_view line) const {
    StackLine result;
    const std::size_t begin = line.find_first_not_of(" *");
    if (begin == std::string_view::npos) return result;
    line.remove_prefix(begin);
    if (line.starts_with("thread #")) {
        result.kind = StackLine::THREAD;
        result.isMain = line.starts_with("thread #1,");
    }
    if (!line.starts_with("frame #")) return result;
    result.kind = StackLine::CALL;
    // "frame #1: 0x0000555555555200 f`main(argc=1) at f.c:7:5 [opt]", "... libm.so.6`sqrt + 9"
    const std::size_t tick = line.find('`');
    if (tick == std::string_view::npos) {
        result.function = "??";
        return result;
    }
    const std::string_view module =
        line.substr(0, tick).substr(line.substr(0, tick).rfind(' ') + 1);
    if (module.find(".so") != std::string_view::npos) result.library = module;
    std::string_view call = line.substr(tick + 1);
    constexpr std::string_view inlined = "[inlined] ";
    if (const std::size_t at = call.find(inlined); at != std::string_view::npos)
        call.remove_prefix(at + inlined.size());
    if (call.starts_with("::")) call.remove_prefix(2);
    result.function = functionName(call.substr(0, std::min(call.find(" + "), call.find(" at "))));
    const std::size_t at = call.rfind(" at ");
    if (at == std::string_view::npos) {
        result.place = module;
        return result;
    }
    std::string_view place = call.substr(at + 4);
    place = place.substr(0, place.find(' '));
    // The column is of no interest: "f.c:7:5".
    const std::size_t colon = place.find(':');
    if (colon != std::string_view::npos) place = place.substr(0, place.find(':', colon + 1));
    result.place = place;
    return result;
}
