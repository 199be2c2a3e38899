#pragma once

#include <cstddef>
#include <string>
#include <utility>

/// The file of the commands typed, one a line, shared by all consoles of a user.
///
/// Every failure is silent: history never stops the console, nor does it wait for more than a
/// second. A file that others may have made (see UserFile) counts as none. No operation loses a
/// line that was in the file, also when the disk is full, another console writes at the same time
/// or this one is killed; only where the directory may not be written, and the file is rewritten in
/// place, a console that is killed meanwhile may leave some lines twice.
class HistoryFile {
  public:
    /// Opens nothing. Without a path nothing is read or written.
    explicit HistoryFile(std::string file) : path(std::move(file)) {}

    /// Appends one line (with its newline); first, when the file has more than 1000 lines, it is
    /// cut down to its last 800. Without the trim the line is not written either. A file that may
    /// only be written is appended to.
    void write(const std::string& line) const;
    /// The number of lines, where a line counts once for every 255 bytes begun; 0 when the file
    /// cannot be read.
    int countLines() const;
    /// The file's last lines, as they stand; all of them when it has fewer.
    std::string tail(std::size_t lines) const;

  private:
    std::string path;
};
