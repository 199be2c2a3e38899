#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <unordered_map>
#include <vector>

/// What went out under the highest line numbers, as hashes of the texts: enough to find where a
/// slower client's line belongs. Two texts of one hash only cost a fold.
class SentLines {
  public:
    /// How far behind the highest number lines may still go out, and how far ahead of a client's
    /// last line an equal one is looked for.
    static constexpr int reach = 1000;

    /// A line number, and a line's place within it.
    struct Spot {
        int number;
        int place;
    };

    /// What comes first has the number behind this one.
    explicit SentLines(int last) : top(last) {}

    /// The highest number that was sent; -1: none.
    int highest() const { return top; }
    /// Whether lines may still go out under the number.
    bool reachable(int number) const { return number >= lowest() && number <= top; }

    /// The place of the text within the lines of a number; -1: it was not sent there.
    int place(int number, std::uint64_t hash) const;
    /// Where the text was sent, by ascending numbers, all of them reachable; null: nowhere.
    const std::vector<Spot>* spotsOf(std::uint64_t hash) const;

    /// The text goes out under a number that is reachable or above all, behind what went out there
    /// before.
    void add(int number, std::uint64_t hash);
    /// All numbers up to this one are taken.
    void raise(int number);

  private:
    // Hashes that are kept: beyond these the lowest numbers go out of reach.
    static constexpr std::size_t maxHashes = 65536;

    int top;
    std::deque<std::vector<std::uint64_t>> numbers; // the last of them is that of `top`
    std::unordered_map<std::uint64_t, std::vector<Spot>> index;
    std::size_t hashes = 0;

    int lowest() const { return top + 1 - static_cast<int>(numbers.size()); }
    void dropLowest();
};
