#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Finds the debugger's prompt in its output, also when it is cut across reads.
///
/// The prompt is a text that nothing else prints (a control byte, a nonce, a newline). Bytes that
/// may be the beginning of a prompt are kept back until it is clear what they are.
class PromptMatcher {
  public:
    /// A stretch of output, and whether a prompt stood behind it.
    struct Piece {
        std::string text;
        bool prompt;
        bool operator==(const Piece&) const = default;
    };

    /// The prompt must not be empty.
    explicit PromptMatcher(std::string promptText) : prompt(std::move(promptText)) {}

    /// The pieces that this chunk completes, in order; a piece without a prompt is never empty.
    std::vector<Piece> feed(std::string_view chunk);
    /// Gives up what is kept back: the output has ended.
    std::string rest();

  private:
    const std::string prompt;
    std::string kept;
};
