#include "backend/drivers/debuggerstart.h"

#include "backend/os/text.h"

namespace {

void replaceAll(std::string& text, const std::string& what, const std::string& with) {
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
}

} // namespace

DebuggerStart DebuggerStart::of(const Driver& driver, Driver::Launch launch,
                                Environment environment, pid_t attach) {
    DebuggerStart start;
    // No word of the user's holds the nonce.
    start.terminal = launch.terminal = "terminal-" + launch.nonce;
    start.inputTerminal = launch.inputTerminal = "input-" + launch.nonce;
    start.process = "process-" + launch.nonce;
    start.dialect = driver.name();
    start.errorMark = launch.errorMark;
    if (attach != 0) launch.attach = start.process;
    start.argv = driver.argv(launch);
    if (launch.cachesIndex) start.indexCacheWords = driver.indexCacheWords();
    start.prompt = driver.prompt(launch.nonce);
    start.attach = attach;
    if (!launch.program.empty()) start.program = Text::baseName(launch.program[0]);
    start.environment = std::move(environment);
    start.environment.insert(start.environment.end(), {{"TERM", "dumb"}, {"DEBUGINFOD_URLS", ""}});
    return start;
}

DebuggerStart DebuggerStart::with(int number, pid_t target) const {
    DebuggerStart start = *this;
    start.client = number;
    start.attach = target;
    if (!clientVariable.empty())
        start.environment.emplace_back(clientVariable, std::to_string(number));
    return start;
}

std::vector<std::string> DebuggerStart::argvFor(const std::string& ownTerminal,
                                                const std::string& programsTerminal,
                                                const std::string& indexCache) const {
    std::vector<std::string> words = argv;
    if (!indexCacheWords.empty() && !indexCache.empty()) {
        words.insert(words.begin() + 1, indexCacheWords.begin(), indexCacheWords.end());
        words[indexCacheWords.size()] += indexCache;
    }
    for (std::string& word : words) {
        replaceAll(word, terminal, ownTerminal);
        replaceAll(word, inputTerminal, programsTerminal);
        replaceAll(word, process, std::to_string(attach));
    }
    return words;
}
