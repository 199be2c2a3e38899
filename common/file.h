#pragma once

#include <cstdio>
#include <memory>

struct CloseFile {
    void operator()(std::FILE* file) const { std::fclose(file); }
};

/// Owns an open stdio stream. Where the result of closing matters (a written file), release it and
/// close it by hand.
using File = std::unique_ptr<std::FILE, CloseFile>;
