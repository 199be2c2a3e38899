#pragma once

#include "backend/folding/histories.h"
#include "backend/folding/indextable.h"
#include "backend/folding/sentlines.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

/// Lays what clients have said onto line numbers, so that equal texts share a number wherever each
/// client's own order allows.
///
/// One class of equal histories after the other is placed, large ones first. What continues behind
/// a line that was sent is laid by a longest common subsequence onto the numbers that were sent
/// behind it. From there on the lines belong behind everything sent, and are laid by another one
/// onto what earlier classes have there; lines without a partner pair in order with those of the
/// same gap, and what is left over gets a number of its own.
class Alignment {
  public:
    /// A text under a number, for all clients that have it there.
    struct Line {
        std::uint32_t text; // within the histories
        std::uint32_t slot;
    };

    /// Places all histories; they and what was sent must outlive this, unchanged.
    Alignment(const Histories& histories, const SentLines& sent,
              const std::vector<Histories::Run>& runs);

    const std::vector<Line>& lines() const { return lineList; }
    /// The line that a node has become; `none` for a node that no client has passed.
    std::uint32_t lineOf(std::uint32_t node) const { return placed[node]; }
    int numberOf(const Line& line) const { return slots[line.slot].number; }
    /// Whether a client may have two of the lines of this line's number, so that they must stand in
    /// the order in which they were sent or have been placed here.
    bool ordered(const Line& line) const { return slots[line.slot].ordered; }

  private:
    static constexpr std::uint32_t none = Histories::none;

    struct Slot {
        int number;          // -1: behind everything sent, and not numbered yet
        std::uint64_t order; // of those
        std::uint32_t next;  // of those; none: it is the last
        bool ordered;
    };

    /// Where a text stands: mostly in one slot.
    class Places {
      public:
        bool empty() const { return first == none; }
        /// The line of the text in the first slot that was added.
        std::uint32_t lineIn(std::uint32_t slot) const { return slot == first ? line : none; }
        void add(std::uint32_t slot, std::uint32_t lineThere);
        std::span<const std::uint32_t> slots() const {
            if (more) return *more;
            return {&first, first == none ? std::size_t{0} : 1};
        }

      private:
        std::uint32_t first = none;
        std::uint32_t line = none;
        std::unique_ptr<std::vector<std::uint32_t>> more; // all of them
    };

    const Histories& histories;
    const SentLines& sent;
    std::vector<std::uint32_t> placed; // by node: its line
    std::vector<Line> lineList;
    IndexTable lineIndex; // by slot and text; without those that are the first in `where`
    std::vector<Slot> slots;
    std::vector<Places> where;            // by text: slots behind everything sent
    std::vector<std::uint32_t> sentSlots; // by number from the lowest that is reachable
    std::vector<std::uint32_t> symbols;   // by text, for one comparison

    void placeAll(const std::vector<Histories::Run>& runs);
    void place(std::uint32_t node);
    std::size_t placeOnSent(std::span<const std::uint32_t> path, int number, int half);
    void placeBehind(std::span<const std::uint32_t> path, std::uint32_t after);
    void put(std::uint32_t node, std::uint32_t slot);
    void number();

    std::uint32_t textOf(std::uint32_t node) const { return histories.nodes()[node].text(); }
    std::uint64_t hashOf(std::uint32_t node) const { return histories.text(textOf(node)).hash; }
    std::uint32_t lineAt(std::uint32_t slot, std::uint32_t text) const;
    std::uint32_t sentSlot(int number);
    std::uint32_t insertAfter(std::uint32_t slot);

    struct Candidate {
        std::uint64_t order;
        std::uint32_t slot; // or the number, of what was sent
        std::uint32_t symbol;
    };
    struct Match {
        std::size_t line; // within the path
        std::uint32_t slot;
    };
    template <class Find>
    std::vector<Match> match(std::span<const std::uint32_t> path, Find find);
};
