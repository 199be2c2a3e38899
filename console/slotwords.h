#pragma once

#include "common/data.h"
#include "console/wordpool.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

/// The words of one slot of kept output, for adding them to the pool again and again.
///
/// Lines of a slot are much alike, so a line is held by what is another word than in the line
/// before it. Words are borrowed from the lines, which must not have changed places since: a slot
/// of another version is begun afresh.
class SlotWords {
  public:
    /// Adds all words of the slot's lines, in their order, whose texts the pool borrows.
    void replay(const Data::Slot& slot, WordPool& pool);

  private:
    // Words of a line, from one on; whatever is repeated, changed or new.
    struct Step {
        enum Kind : std::uint8_t { REPEAT, CHANGE, WHOLE } kind;
        bool last;           // of its line
        std::uint32_t count; // REPEAT: lines; CHANGE: which word
        WordPool::Word word; // in the text of its line
    };
    using Words = std::vector<WordPool::Word>;

    std::uint64_t version = 0;
    std::size_t lines = 0; // of the slot, that the steps hold
    bool streamed = false; // the first lines, which were too many, have been added once
    std::vector<Step> steps;

    void read(const Data::Slot& slot);
    static void addAll(const Words& words, WordPool& pool, std::uint64_t& oldest);
};

/// Cuts a line into the words that completion offers.
class WordCutter {
  public:
    explicit WordCutter(std::string_view line) : rest(line) {}
    /// Of what a line does not have in common with the line before it.
    WordCutter(std::string_view line, std::string_view before);
    /// The next word; an empty one when there is none.
    std::string_view next();

  private:
    std::string_view rest;
};
