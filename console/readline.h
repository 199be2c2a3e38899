#pragma once

#include "console/cline.h"

#include <string>
#include <string_view>
#include <vector>

/// The console's line input: one process-wide editor and the pool of words that the tab key offers.
namespace Readline {

/// The editor of the input thread.
extern Line line;

void initialize();
/// Prints the prompt and reads one line; the result is that of Line::read.
const char* readCommandLine(const std::string& prompt);
/// Prints the prompt alone.
void showPrompt(const std::string& prompt);

/// The order of the pool's texts.
struct StringCompare {
    bool operator()(std::string_view a, std::string_view b) const { return a < b; }
};

/// Adds one text to the pool of completions, without its leading white space; a text that is there
/// keeps its place, the 401st drops the oldest. Any thread may call; the console itself has
/// many at once.
void addContext(std::string_view text);
/// The editor's completion function: walks the pool's entries that begin with the prefix, oldest
/// first. State 0 begins a cycle.
std::string generateVariable(std::string prefix, int state);
/// Adds texts one after the other.
void addContexts(const std::vector<std::string_view>& texts);
/// The same, but only when no text has ever been dropped from the pool and none will be; false
/// otherwise, and nothing is added.
bool addContextsIfRoom(const std::vector<std::string_view>& texts);

} // namespace Readline
