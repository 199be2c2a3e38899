#pragma once

#include <string>

/// Edit distance of two texts: insert, delete and substitute cost 1 each; bytes are compared as
/// they are. No program calls Minimum.
class Levenshtein {
  public:
    /// The exact distance. Bit-parallel in blocks of 64 rows (Myers, J. ACM 46(3), 1999; blocks and
    /// global distance by Hyyrö, "Explaining and extending the bit-parallel approximate string
    /// matching algorithm of Myers", 2001).
    static int Distance(const std::string& s1, const std::string& s2);
    static int Minimum(int a, int b, int c);
};
