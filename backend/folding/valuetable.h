#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/stacktree.h"
#include "common/clientset.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

/// What an expression is worth in many clients: the rows that tell it. Does no I/O.
class ValueTable {
  public:
    /// The value in a client, which must not be here yet; else it is left out.
    void add(int client, const Driver::Value& value);

    struct Report {
        /// In which frames; then of the numbers: extremes with their clients, mean and standard
        /// deviation of the finite ones, those that are not, and a histogram of at most maxBars
        /// rows; then all other values, the most common first.
        std::vector<StackTree::Row> rows;
        /// The clients of each row of the histogram and of each other value, in that order.
        std::vector<ClientSet> groups;
    };
    static constexpr std::size_t maxBars = 10;
    Report report() const;

  private:
    ClientSet known;
    std::map<long double, ClientSet> finite;
    ClientSet notNumbers, infinite;
    std::map<std::string, ClientSet> texts;
    std::map<std::string, ClientSet> frames; // by what the report says of them

    void tellMoments(std::vector<StackTree::Row>& rows) const;
    std::vector<StackTree::Row> bars() const;
    std::vector<StackTree::Row> widths() const;
    static std::vector<StackTree::Row> commonFirst(const std::map<std::string, ClientSet>& map);
};
