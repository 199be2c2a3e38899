#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

/// Finds the debugger's prompt in its output, also when it is cut across reads, and the marks by
/// which it tells that its task begins to run or stands still.
///
/// The prompt is a text that nothing else prints (a control byte, a nonce, a newline); a mark is
/// the prompt with one more byte before its last one. Bytes that may be the beginning of either are
/// kept back until it is clear what they are.
class PromptMatcher {
  public:
    enum Mark { NONE, PROMPT, RUNS, STANDS };

    /// A stretch of output, and what stood behind it.
    struct Piece {
        std::string text;
        Mark mark;
        bool operator==(const Piece&) const = default;
    };

    /// What makes a prompt the mark that the task runs, or that it stands still.
    static constexpr char runs = '+';
    static constexpr char stands = '-';

    /// The prompt must not be empty.
    explicit PromptMatcher(std::string_view prompt)
        : stem(prompt.substr(0, prompt.size() - 1)), last(prompt.back()) {}

    /// The pieces that this chunk completes, in order; a piece without a mark is never empty.
    std::vector<Piece> feed(std::string_view chunk);
    /// Gives up what is kept back: the output has ended.
    std::string rest();

  private:
    const std::string stem; // the prompt but its last byte
    const char last;
    std::string kept; // the beginning of a mark at most, between calls

    std::size_t lengthAt(std::size_t at, Mark& mark) const;
};
