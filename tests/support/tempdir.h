#pragma once

#include "tests/support/testing.h"

/// A directory of one's own, removed with all that is in it.
class TempDir {
  public:
    TempDir() {
        if (!::mkdtemp(root.data())) throw std::runtime_error("mkdtemp failed: " + root);
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(root, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    std::string path() const { return root; }
    /// The path of a file in it.
    std::string path(const std::string& name) const { return root + "/" + name; }
    /// Writes a file and gives its path.
    std::string write(const std::string& name, const std::string& text) const {
        std::ofstream file(path(name), std::ios::binary);
        file << text;
        if (!file.flush()) throw std::runtime_error("cannot write " + path(name));
        return path(name);
    }
    /// A file's content; empty when it does not exist.
    std::string read(const std::string& name) const {
        std::ostringstream text;
        text << std::ifstream(path(name), std::ios::binary).rdbuf();
        return text.str();
    }

  private:
    std::string root = std::filesystem::temp_directory_path() / "vex-test-XXXXXX";
};
