#pragma once

#include <string>
#include <vector>

/// The fields of a text: cut at any of the separator characters and trimmed of white space. A field
/// with nothing left is dropped, so runs of separators count as one. With all false only the first
/// field is split off and the rest of the text, separators included, is the second.
class Split : public std::vector<std::string> {
  public:
    Split(std::string text, const char* separators, bool all);
    /// Prints the number of fields and the fields on standard output.
    void dump() const;
};

/// The same without a copy of the text.
class SplitRef : public std::vector<std::string> {
  public:
    SplitRef(std::string& text, const char* separators, bool all);
    void dump() const;
};
