#pragma once

#include "common/clientset.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// The labels of an input. Each has an id, in the order in which they came, and a rank, in the
/// order in which they are shown: that of numbers when all are whole numbers, else that of names
/// whose digits count as numbers.
class Labels {
  public:
    /// The id of a label; a new one's is the next. Quick for the label that came last, and for the
    /// one that has come behind it before.
    int idOf(std::string_view label);
    int size() const { return static_cast<int>(names.size()); }

    /// Ranks all labels that there are. What follows needs it when labels have come since.
    void rank();
    /// The ranks of ids.
    ClientSet ranked(ClientSet ids) const;
    /// Adds the label of a rank.
    void add(std::string& to, int rank) const { to += names[byRank(rank)]; }
    /// Adds the labels of ranks: numbers as client numbers, "0:3 5"; names with the numbers in them
    /// as ranges, "login1,node[01-03,07]".
    void add(std::string& to, const ClientSet& ranks);

  private:
    /// A name around the number at which it folds with others.
    struct Name {
        std::uint32_t family = 0; // those that differ in the number only
        std::string_view number;  // empty: the name has none
    };

    std::deque<std::string> names; // by id
    std::unordered_map<std::string_view, int> ids;
    std::vector<int> follower; // by id: the one that came behind it
    int last = -1;

    bool numbers = false;
    std::vector<int> rankOf;
    std::vector<int> idAt;
    std::vector<std::uint64_t> valueAt; // by rank; when all are numbers
    std::vector<Name> parts;            // by rank; else
    std::vector<std::string> families;  // with a NUL in the place of the number
    bool inOrder = true;                // ranks are ids
    ClientSet named;                    // what was added last, as names
    std::string namesOfNamed;

    std::size_t byRank(int rank) const {
        return static_cast<std::size_t>(idAt[static_cast<std::size_t>(rank)]);
    }
    int known(std::string_view label, int guess) const;
    void divideNames();
    void addNumbers(std::string& to, const ClientSet& ranks) const;
    void addNames(std::string& to, const ClientSet& ranks) const;
};
