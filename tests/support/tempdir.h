#pragma once

#include "tests/support/testing.h"

/// A directory of one's own, removed with all that is in it.
class TempDir {
  public:
    TempDir();
    ~TempDir();
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string path() const { return root.string(); }
    /// The path of a file in it.
    std::string path(const std::string& name) const { return (root / name).string(); }
    /// Writes a file and gives its path.
    std::string write(const std::string& name, const std::string& text) const;
    /// A file's content; empty when it does not exist.
    std::string read(const std::string& name) const;

  private:
    std::filesystem::path root;
};
