#pragma once

#include <string>
#include <vector>

/// The labels of files, each of which is what one task has printed.
namespace FileLabels {

/// The number in each file's name, where each has just one and no two the same; else the names,
/// without their directories where that tells them apart.
std::vector<std::string> of(const std::vector<std::string>& paths);

} // namespace FileLabels
