#pragma once

#include <memory>
#include <regex.h>
#include <string>
#include <vector>

/// Thrown when a filter expression is malformed.
struct BadPattern {};

/// A filter over output: a cascade of extended regular expressions that ignore case, written
/// 'a' | match 'b'. A piece of text passes when it matches all of them; an expression that does not
/// compile is left out in silence.
///
/// To filter many texts, call compare once and filter for each. One thread at a time. No program
/// calls dump and free.
class Pattern {
  public:
    /// Compiles an expression and appends it. Ignores an empty expression and what does not
    /// compile.
    void add(const std::string& expr);
    /// Appends the expressions of a cascade. Gives back 0, or -1 when it is malformed; expressions
    /// before the fault stay until free.
    int compare(const char* expr);
    /// 0 when the text passes, -1 when it does not; a null text does not.
    int match(const char* text, const regex_t* re) const;
    /// Appends the pieces of the text that pass, and says whether there was one. A piece ends with
    /// its newline; behind the last newline there is always one more piece, empty perhaps.
    bool filter(const char* text, std::string& out) const;
    /// Prints the pieces that pass the cascade expr on standard output. Gives back 1 if there was
    /// one, else 0; also 0 for a null text (prints nothing) and a null expr (prints the text
    /// whole). Leaves no expressions behind. Throws BadPattern.
    int dump(const char* text, const char* expr);
    /// Releases the expressions.
    void free() { reglist.clear(); }

  private:
    struct Release {
        void operator()(regex_t* re) const;
    };
    using Expression = std::unique_ptr<regex_t, Release>;
    std::vector<Expression> reglist; // in the order of the cascade

    bool passes(const char* piece) const;
};
