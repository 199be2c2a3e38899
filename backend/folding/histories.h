#pragma once

#include "backend/folding/indextable.h"
#include "backend/os/clock.h"
#include "common/clientset.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What clients have said and what of it has not been sent, as trees: a node is a line behind the
/// lines above it, and stands for all clients that have said just these. Clients with equal
/// histories so cost 4 bytes each, and a line that was said before costs one step.
///
/// A root is where clients begin: the number of the last line that was sent of them.
class Histories {
  public:
    /// How a line is cut; a line can be both.
    enum Cut : std::uint32_t {
        WHOLE = 0,
        /// Its end is missing.
        HALF = 1,
        /// It continues the client's line before it: joins that, or stands behind it where that has
        /// left. Behind a line that lacks no end it is one of its own.
        REST = 2,
    };

    /// A node or a root, as one number.
    using Point = std::uint32_t;
    static Point nodePoint(std::uint32_t node) { return node << 1 | 1; }
    static Point rootPoint(std::uint32_t root) { return root << 1; }
    static bool isNode(Point point) { return (point & 1) != 0; }
    static std::uint32_t indexOf(Point point) { return point >> 1; }

    static constexpr std::uint32_t none = IndexTable::none;

    struct Text {
        std::string text;
        std::uint64_t hash;
        int lastClient; // who said it last
    };

    /// Parents stand before their children.
    struct Node {
        Point parent;
        std::uint32_t key;   // text * 4 + cut
        std::uint32_t child; // the first one; others are in a table
        std::uint32_t born;  // ms since the epoch of these histories

        std::uint32_t text() const { return key >> 2; }
        std::uint32_t cut() const { return key & 3; }
    };

    struct Root {
        /// The number of the clients' last line; -1: they have said nothing.
        int last = -1;
        /// The place within its number of a last line without end; -1: it has one.
        int half = -1;
        std::uint32_t child = none;
        std::size_t clients = 0; // those whose histories are empty
    };

    /// Neighbours of the same history.
    struct Run {
        int first, last;
        Point point;
        bool awaited;
    };

    /// Nothing was said; what comes first stands behind the number `last`.
    explicit Histories(int last) : rootIndex{{{last, -1}, 0}} { rootList.front().last = last; }

    Histories(Histories&&) = default;
    Histories& operator=(Histories&&) = default;

    /// The next line of the client, or of each of the clients; true when another client has said
    /// the same text.
    bool add(int client, std::string_view text, std::uint32_t cut, Clock::time_point now);
    bool add(const ClientSet& clients, std::string_view text, std::uint32_t cut,
             Clock::time_point now);

    void await(const ClientSet& clients);
    void answered(int client);
    std::size_t awaited() const { return awaitedCount; }
    /// Whether each client that is awaited has said something that was not sent.
    bool allHaveSpoken() const { return awaitedCount > 0 && silent == 0; }

    bool empty() const { return nodeList.empty(); }
    const std::vector<Node>& nodes() const { return nodeList; }
    const std::vector<Root>& roots() const { return rootList; }
    const Text& text(std::uint32_t id) const { return texts[id]; }
    /// Gives a text away that is not needed any more.
    std::string release(std::uint32_t id) { return std::move(texts[id].text); }
    std::size_t textCount() const { return texts.size(); }
    /// The bytes of the distinct texts.
    std::size_t textBytes() const { return bytes; }
    Clock::time_point born(const Node& node) const {
        return epoch + std::chrono::milliseconds(node.born);
    }

    /// The clients that have said something that was not sent, ascending.
    std::vector<Run> runs() const;
    /// Those of the nodes have left that `sentAs` gives a root for: the number of the line and, of
    /// a line without end, its place there. All else stays. The runs are those of before.
    struct Sent {
        bool sent = false;
        int last = -1;
        int half = -1;
    };
    void leave(const std::vector<Run>& runs, const std::vector<Sent>& sentAs);

  private:
    static constexpr int pageSize = 1024;
    static constexpr std::uint32_t awaitedBit = 1u << 31;
    struct Page {
        std::array<std::uint32_t, pageSize> cells{}; // points, and whether the client is awaited
        bool spoken = false;                         // whether a cell is a node
    };

    std::vector<std::unique_ptr<Page>> pages;
    std::vector<Root> rootList{1}; // the first is that of clients that have said nothing
    std::map<std::pair<int, int>, std::uint32_t> rootIndex; // by last and half
    std::vector<std::uint32_t> freeRoots;
    std::vector<Node> nodeList;
    IndexTable branches;
    std::vector<Text> texts;
    IndexTable textIndex;
    std::size_t bytes = 0;
    Clock::time_point epoch;
    std::size_t awaitedCount = 0;
    std::size_t silent = 0; // of those

    void clear();
    Page& pageOf(int client);
    std::uint32_t& cellOf(int client) {
        return pageOf(client).cells[static_cast<std::size_t>(client % pageSize)];
    }
    std::uint32_t& childOf(Point point) {
        return isNode(point) ? nodeList[indexOf(point)].child : rootList[indexOf(point)].child;
    }
    std::uint32_t intern(std::string_view text);
    Point next(Point from, std::string_view text, std::uint32_t cut, std::uint32_t born);
    Point step(Point from, std::string_view text, std::uint32_t cut, std::uint32_t born);
    std::uint32_t childWith(Point from, std::uint32_t key, std::uint32_t born);
    void move(Page& page, std::uint32_t& cell, Point to);
    bool saidBy(int client, Point point);
    std::uint32_t age(Clock::time_point now);
    std::uint32_t rootFor(int last, int half);
    void dropUnusedRoots();
};
