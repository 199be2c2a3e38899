#pragma once

#include <string>

/// The file of the commands typed, one a line, shared by all consoles of a user. Every failure is
/// silent: history never stops the console. No operation loses a line that was in the file, also
/// when the disk is full, another console writes at the same time or this one is killed.
namespace HistoryFile {

/// Appends one line (with its newline); first, when the file has more than 1000 lines, it is cut
/// down to its last 800. Without the trim the line is not written either.
void write(const std::string& path, const std::string& line);
/// The number of lines, where a line counts once for every 255 bytes begun; 0 when the file cannot
/// be read.
int countLines(const std::string& path);
/// The file's last lines, as they stand; all of them when it has fewer.
std::string tail(const std::string& path, std::size_t lines);

} // namespace HistoryFile
