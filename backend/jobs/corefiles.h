#pragma once

#include <string>
#include <vector>

/// The core files of a job's tasks.
struct CoreFiles {
    /// By the numbers of their clients; empty: no file has the number. These are the tasks' ranks,
    /// as the environment in a file tells it, else the last number in its name; where a rank is
    /// unknown, or two are equal, files are numbered in the order of their names.
    std::vector<std::string> paths;
    /// Whether the numbers are ranks.
    bool ranked = true;
    /// What the user may want to know of what was found, a sentence each.
    std::vector<std::string> notes;

    /// Those in a directory, or those that a shell's pattern names, whose ranks are below `most`.
    /// Throws std::runtime_error with a sentence for the user when there is none.
    static CoreFiles find(const std::string& patternOrFolder, int most);
};
