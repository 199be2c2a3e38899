#include "tests/support/tempdir.h"

TempDir::TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "vex-test-XXXXXX").string();
    if (!::mkdtemp(name.data())) throw std::runtime_error("mkdtemp failed: " + name);
    root = name;
}

TempDir::~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(root, ignored);
}

std::string TempDir::write(const std::string& name, const std::string& text) const {
    std::ofstream file(root / name, std::ios::binary);
    file << text;
    if (!file.flush()) throw std::runtime_error("cannot write " + path(name));
    return path(name);
}

std::string TempDir::read(const std::string& name) const {
    const std::ifstream file(root / name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}
