#pragma once

#include "backend/folding/stacktree.h"
#include "common/clientset.h"

#include <chrono>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// The report of stat, where the threads of all clients are; or of rows that are known already.
/// Does no I/O.
class StatReport {
  public:
    struct Options {
        bool withPlaces = false;    // tells calls apart by source line, too
        bool innermostOnly = false; // leaves the tree out
        bool allCalls = false;      // of all threads, not only what their user has written
    };
    /// Whose stacks have changed between samples that were taken one after the other.
    struct Moves {
        int samples = 0;
        std::chrono::milliseconds apart{0};
        ClientSet moved;
        ClientSet never;
        /// Those that were not let run in between, by the reason.
        std::map<std::string, ClientSet> still;
    };
    explicit StatReport(const Options& wanted) : chosen(wanted) {}

    const Options& options() const { return chosen; }
    /// Adds the stacks of clients that are not there yet.
    void add(const StackTree& tree) { stacks.add(tree); }
    /// The stacks are those of the last of several samples: the places are told with these, too.
    void setMoves(Moves found) { moves = std::move(found); }
    /// Adds a row as it is.
    void addRow(const std::string& text, const ClientSet& clients) {
        ready.push_back({{text, clients}});
    }
    /// The clients of each place where innermost calls are, as the rows tell them.
    std::vector<ClientSet> places() const { return stacks.placeClients(); }
    /// All rows; each group is a line of the report.
    std::vector<StackTree::RowGroup> rows() const;
    /// The same as a text for a program, "0:3 | row" each; find knows its lines from then on.
    std::string text();
    /// The row behind a line of the text; null when the text has no such line.
    const StackTree::Row* find(const std::string& line) const;

  private:
    const Options chosen;
    StackTree stacks;
    Moves moves; // no samples: there is one
    std::vector<StackTree::RowGroup> ready;
    std::map<std::string, StackTree::Row> fed;

    std::vector<StackTree::RowGroup> placeRows() const;
    std::string movesOf(const ClientSet& clients) const;
};
