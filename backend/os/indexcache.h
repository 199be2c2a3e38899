#pragma once

#include "backend/os/clock.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// The directory in which the debuggers of this user on this machine keep what they have found in
/// the symbols of a program, so that the next one finds it there. Who writes into it rules what
/// debuggers believe, so it is this user's alone. Debuggers write a file under another name first
/// and rename it, so any number of them may share it.
namespace IndexCache {

/// The directory for the debuggers that this process starts, looked for and trimmed by the first
/// call; empty: there is none. Not for several threads.
const std::string& folder();

/// Where it may lie, the best first: on a disk of this machine, which is fast and does not wait for
/// others, else in the user's cache directory (XDG_CACHE_HOME, else ~/.cache).
std::vector<std::filesystem::path> places();
/// Whether the directory is there, or was made, and is this user's: no link, of mode 0700 or less.
bool makePrivate(const std::filesystem::path& path);
/// Removes the files that were used longest ago until the others come to at most this many bytes.
/// Leaves files alone that are younger than this, which may be being written.
void trim(const std::filesystem::path& folder, std::uintmax_t maxBytes, Clock::duration minAge);

} // namespace IndexCache
