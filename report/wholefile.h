#pragma once

#include <string>

/// A file that is written whole or not at all: in a temporary file beside it, which takes its name
/// in the end. "-" is the standard output.
class WholeFile {
  public:
    /// Throws std::system_error when no file can be made there, before there is anything to write.
    explicit WholeFile(const std::string& path);

    /// Throws std::system_error; a file that was there before is then as it was.
    void write(const std::string& text) const;

  private:
    std::string path;

    std::string temporary(int& descriptor) const;
};
