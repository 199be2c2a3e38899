#pragma once

#include "common/descriptor.h"
#include "common/file.h"

#include <string>

/// A file of the settings directory, as far as it may be trusted.
///
/// Trusted is what belongs to this user or to root and is not open to everybody's writing. Only a
/// regular file in a trusted directory is ever opened, and a link is followed only when its owner,
/// the directory that it leads to and the file there are trusted too. No call waits: a FIFO, a
/// device or a file of more than 16 MiB is not even opened.
class UserFile {
  public:
    /// Follows the links; opens nothing.
    explicit UserFile(std::string path);

    /// Whether the file is there and not to be trusted, or the directory that holds it is not.
    bool isForeign() const { return state == FOREIGN; }
    /// What the links lead to; of a foreign file the file or directory that is not trusted.
    const std::string& path() const { return name; }
    /// With flags as open(2) takes them. O_CREAT makes a missing file with mode 0600, whatever the
    /// umask; the mode of an existing one is left alone. Without a file, errno tells why.
    Descriptor open(int flags) const;
    /// The same for reading; null when that is not possible.
    File read() const;

    /// Makes a directory of mode 0700, whatever the umask, where nothing is yet. False when that
    /// fails. Call it before there are threads: they share the umask.
    static bool makeDirectory(const std::string& path);
    /// Whether a directory is there and not to be trusted.
    static bool isForeignDirectory(const std::string& path);

  private:
    enum State { MISSING, REGULAR, FOREIGN, OTHER };

    std::string name;
    State state;

    State follow();
};
