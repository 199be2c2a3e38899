#pragma once

#include <string>
#include <vector>

/// The names in a directory but "." and "..", as far as they can be read; none when it cannot be
/// opened. Unlike the standard library's iterator, with which a program ends that has no memory
/// left, this throws std::bad_alloc then.
std::vector<std::string> namesIn(const std::string& directory);
