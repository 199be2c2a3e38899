#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// The texts that the tab key offers, oldest first: at most 400, no two alike. A text that is there
/// keeps its place when it is added again; the 401st drops the oldest.
///
/// Texts are borrowed until settle copies those that are still there. Not synchronised.
class WordPool {
  public:
    static constexpr std::size_t capacity = 400;

    /// A text and its hash, which is computed once where the text is met often.
    struct Word {
        std::string_view text;
        std::uint32_t hash = 0;

        Word() = default;
        explicit Word(std::string_view word) : text(word), hash(hashOf(word)) {}
        Word(std::string_view word, std::uint32_t known) : text(word), hash(known) {}
        bool operator==(const Word& other) const {
            return hash == other.hash && text == other.text;
        }
    };

    WordPool() { heads.fill(none); }
    WordPool(const WordPool&) = delete;
    WordPool& operator=(const WordPool&) = delete;

    bool contains(const Word& word) const { return find(word) != none; }
    /// Adds a text that is not there; the number of its entry, new or old. Entries are numbered
    /// from 0 in the order in which they were added; those from dropped() on are there.
    std::uint64_t add(const Word& word);
    /// Copies the texts that are still borrowed.
    void settle();

    std::size_t size() const { return static_cast<std::size_t>(added - dropped()); }
    /// How many texts have had to make room.
    std::uint64_t dropped() const { return added > capacity ? added - capacity : 0; }
    /// The text of an entry that is there.
    std::string_view text(std::uint64_t number) const { return contextQueue[number % capacity]; }

    static std::uint32_t hashOf(std::string_view text);

  private:
    static constexpr std::uint16_t none = 0xffff;
    static constexpr std::size_t chains = 8192;

    // Entry n stands at n % capacity.
    std::array<std::string_view, capacity> contextQueue;
    std::array<std::string, capacity> owned;
    // The set of what is there: chains of those whose hashes end alike.
    std::array<std::uint32_t, capacity> hashes{};
    std::array<std::uint16_t, capacity> nexts{};
    std::array<std::uint16_t, chains> heads;
    std::uint64_t added = 0;
    std::uint64_t settled = 0; // the entries before this one are not borrowed

    std::uint16_t find(const Word& word) const {
        std::uint16_t at = heads[word.hash % chains];
        while (at != none && (hashes[at] != word.hash || contextQueue[at] != word.text))
            at = nexts[at];
        return at;
    }
    void unlink(std::uint16_t at);
};
