#pragma once

#include "common/clientset.h"

#include <cstddef>
#include <map>
#include <string>
#include <vector>

/// The stacks of many clients' threads as one tree of calls, with the clients at each call.
class StackTree {
  public:
    /// A line of the report, and the clients that it is about.
    struct Row {
        std::string text;
        ClientSet clients;
        bool operator==(const Row&) const = default;
    };
    /// Rows that stand side by side: no two of a group have the same text.
    using RowGroup = std::vector<Row>;
    /// A call of a thread's stack.
    struct Frame {
        std::string text;
        bool isForeign = false; // not the program's own (UserStack::isOfProgram)
    };
    /// A call of the tree: those that it has called stand behind it, one deeper.
    struct Call {
        std::size_t depth = 0;
        std::string text;
        ClientSet clients;
        std::size_t threads = 0;
        bool isForeign = false; // in one of the stacks at least
    };
    /// The whole tree, flat.
    struct Outline {
        std::vector<Call> calls;
        std::vector<Call> innermost; // of depth 0
        std::vector<Row> without;
        std::vector<Row> helpers;
    };
    /// The most calls of a stack that debuggers are asked for.
    static constexpr int maxCalls = 500;

    StackTree() = default;
    /// No call is deeper by more than one than that before it, or than maxCalls.
    explicit StackTree(const Outline& outline);
    Outline outline() const;

    /// Adds the stack of one thread, the innermost call first.
    void add(int client, const std::vector<Frame>& calls);
    /// Adds the stacks of other clients.
    void add(const StackTree& other);
    /// Adds a client that has no stack, and the reason.
    void addWithout(int client, const std::string& reason) { without[reason].insert(client); }
    /// Adds what is to be told of a client's threads that are in no stack here: "libucs 1".
    void addHelpers(int client, const std::string& counts) { helpers[counts].insert(client); }

    /// The clients whose stacks are not the same here and there; threads at equal calls count once.
    ClientSet differing(const StackTree& other) const;

    /// Where the innermost calls are, the place with the fewest clients first, of equal ones
    /// those where nobody waits; then the clients without stacks, a group for each reason. All
    /// places are one group, so that a console colours their differences; when the console would
    /// show so many places client by client, each is a group.
    std::vector<RowGroup> places() const;
    /// The clients of each place, in the order of places.
    std::vector<ClientSet> placeClients() const;
    /// The calls from the outermost inwards, a group of one row for each, indented by depth. Of the
    /// calls of one caller, that with the fewest clients stands first.
    std::vector<RowGroup> tree() const;
    /// The threads that are in no stack: one group, or none.
    std::vector<RowGroup> helperThreads() const;

  private:
    struct Node {
        ClientSet clients;
        std::size_t threads = 0;
        bool isForeign = false;
        std::map<std::string, Node> calls;
    };

    Node root;
    std::map<std::string, Node> innermost; // by the text of the place
    std::map<std::string, ClientSet> without;
    std::map<std::string, ClientSet> helpers;

    static void list(const std::map<std::string, Node>& nodes, std::size_t depth,
                     std::vector<Call>& calls);
    static void compare(const std::map<std::string, Node>& mine,
                        const std::map<std::string, Node>& others, ClientSet& differing);
    static void merge(std::map<std::string, Node>& into, const std::map<std::string, Node>& other);
    static std::vector<const std::pair<const std::string, Node>*>
    byClients(const std::map<std::string, Node>& nodes);
    std::vector<const std::pair<const std::string, Node>*> placesByClients() const;
    static std::string threadsOf(const Node& node);
    static void walk(const Node& node, std::size_t depth, std::vector<RowGroup>& rows);
};
