#pragma once

#include <algorithm>
#include <string_view>

/// Whether a line of a stack tells a place in the sources of libc: where these are named in its
/// symbols, debuggers do not name the library.
inline bool isInLibcSources(std::string_view line) {
    static constexpr std::string_view folders[] = {
        ") at ../sysdeps/", ") at ./nptl/",   ") at ./stdlib/", ") at ./signal/", ") at ./libio/",
        ") at ./string/",   ") at ./assert/", ") at ./debug/",  ") at ./malloc/", ") at ./io/",
        ") at ./socket/",   ") at ./posix/",  ") at ./time/",   ") at ./misc/",   ") at ./csu/",
    };
    return std::ranges::any_of(
        folders, [line](std::string_view each) { return line.find(each) != line.npos; });
}
