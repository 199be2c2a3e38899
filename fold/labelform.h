#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <optional>
#include <regex.h>
#include <string>
#include <string_view>

/// A line, divided into its label and what the label's task has printed.
struct LabelledLine {
    std::string_view label, text;
};

/// How the lines of an input begin with their labels. A value without a memory of its own.
class LabelForm {
  public:
    enum Kind {
        NUMBER,    // "3: text", "  3: text": srun --label
        NAME,      // "node17: text": pdsh, clush
        BRACKET,   // "[3] text": mpiexec -l
        TAG,       // "[1,3]<stdout>:text": mpirun --tag-output of Open MPI 4
        NAMED_TAG, // "[prterun-host-1@1,3]<stdout>: text": the same of Open MPI 5
        KINDS
    };

    /// The line, given without its end, in this form; nothing when it has another. One blank behind
    /// the colon or the bracket belongs to the label, and must stand there unless the line ends; no
    /// blank does so in a TAG.
    static std::optional<LabelledLine> divide(Kind kind, std::string_view line);
};

/// Finds out which form most of some lines have.
class FormGuess {
  public:
    void look(std::string_view line);
    /// The form of most lines; of those that tie, the first. Nothing when no line has one.
    std::optional<LabelForm::Kind> best() const;

  private:
    std::array<std::size_t, LabelForm::KINDS> seen{};
};

/// A label form of the user's: an extended regular expression (POSIX) with \d, \w and \s, which
/// must match at the beginning of a line. Its first group is the label, what stands behind the
/// match the text.
class LabelPattern {
  public:
    /// Throws std::runtime_error for an expression that does not compile or has no group.
    explicit LabelPattern(const std::string& expression);

    std::optional<LabelledLine> divide(std::string_view line) const;

  private:
    struct Free {
        void operator()(regex_t* expression) const {
            ::regfree(expression);
            delete expression;
        }
    };
    std::unique_ptr<regex_t, Free> compiled;
};
