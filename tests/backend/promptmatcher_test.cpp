#include "backend/drivers/promptmatcher.h"

#include <gtest/gtest.h>

namespace {

using Pieces = std::vector<PromptMatcher::Piece>;

const std::string prompt = "\1nonce\n";

// All pieces of a text that arrives in chunks of one size, with neighbouring stretches joined.
Pieces inChunks(const std::string& text, std::size_t size) {
    PromptMatcher matcher(prompt);
    Pieces all;
    for (std::size_t at = 0; at < text.size(); at += size) {
        for (const auto& piece : matcher.feed(std::string_view(text).substr(at, size))) {
            if (all.empty() || all.back().prompt) all.emplace_back();
            all.back().text += piece.text;
            all.back().prompt = piece.prompt;
        }
    }
    if (const std::string rest = matcher.rest(); !rest.empty()) all.push_back({rest, false});
    return all;
}

TEST(PromptMatcher, FindsPromptsHoweverTheyAreCut) {
    const std::pair<std::string, Pieces> cases[] = {
        {"a\n" + prompt, {{"a\n", true}}},
        {prompt + prompt, {{"", true}, {"", true}}},
        {"no newline" + prompt + "b", {{"no newline", true}, {"b", false}}},
        // Beginnings that come to nothing.
        {"\1non" + prompt, {{"\1non", true}}},
        {"\1\1\1" + prompt, {{"\1\1\1", true}}},
        {"\1nonce \n", {{"\1nonce \n", false}}},
    };
    for (const auto& [text, pieces] : cases)
        for (std::size_t size = 1; size <= text.size(); ++size)
            EXPECT_EQ(inChunks(text, size), pieces) << text << " by " << size;
}

TEST(PromptMatcher, KeepsBackOnlyWhatMayBecomeAPrompt) {
    PromptMatcher matcher(prompt);
    EXPECT_EQ(matcher.feed("text\1no"), (Pieces{{"text", false}}));
    EXPECT_EQ(matcher.feed("t"), (Pieces{{"\1not", false}}));
    EXPECT_TRUE(matcher.feed("\1").empty());
    EXPECT_EQ(matcher.rest(), "\1");
    EXPECT_EQ(matcher.rest(), "");
}

} // namespace
