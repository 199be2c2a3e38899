#pragma once

#include "console/cline.h"
#include "console/wordpool.h"

#include <mutex>
#include <string>
#include <string_view>

/// The console's line input: one process-wide editor and the pool of words that the tab key offers.
namespace Readline {

/// The editor of the input thread.
extern Line line;

void initialize();
/// Prints the prompt and reads one line; the result is that of Line::read.
const char* readCommandLine(const std::string& prompt);
/// Prints the prompt alone.
void showPrompt(const std::string& prompt);

/// Adds one text to the pool of completions, without its leading white space; see WordPool. Any
/// thread may call.
void addContext(std::string_view text);
/// The editor's completion function: walks the pool's entries that begin with the prefix, oldest
/// first. State 0 begins a cycle.
std::string generateVariable(std::string prefix, int state);

/// The pool, kept from the other thread for as long as this object lives. Whatever is still
/// borrowed by the pool must stand until settle.
struct LockedPool {
    std::unique_lock<std::mutex> lock;
    WordPool& words;
};
LockedPool lockPool();

} // namespace Readline
