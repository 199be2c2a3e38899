#pragma once

#include "common/clientset.h"
#include "mpitrace/mpistate.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// Who waits for whom in MPI: finds out of what each task says of itself at whom the others wait in
/// the end, and which tasks wait for each other. Does no I/O; linear in tasks and in what they wait
/// for, but for sorting the members of communicators.
///
/// A task that waits for several may need only one of them, which it does not tell; so it waits in
/// vain when all of them do. A collective call waits for all members that have not begun it. The
/// tasks that are left when all are taken out that can go on some time wait for ever. A task in
/// MPI_Finalize or MPI_Abort, or one that made an error that ends the job, waits for nobody.
class WaitGraph {
  public:
    using Index = std::uint32_t;
    static constexpr Index none = 0xffffffff;

    /// A task, a rank without a client, or what is missing of a collective call.
    struct Node {
        enum Kind { TASK, RANK, COLLECTIVE } kind = TASK;
        int client = -1; // of a task, or of a rank that has no process any more
        int rank = -1;
        std::string call;      // of a task that waits: "MPI_Recv (tag 0)"
        std::string end;       // why nobody is waited for, "is in no MPI call"; empty: it waits
        bool anybody = false;  // it waits for any task
        bool stopped = false;  // a debugger, or a signal, holds it
        bool mixed = false;    // it is in a collective call in which others make another one
        bool released = false; // it may go on some time
        bool awaited = false;  // somebody waits for it in the end, and it for nobody
        /// Of those that it waits for, the one to tell; none: it waits for nobody.
        Index next = none;
        /// Where that leads in the end: to itself, or, of those that wait for ever, to the first
        /// task of a circle.
        Index root = none;
        std::size_t depth = 0;   // how many tasks wait one behind the other
        std::size_t missing = 0; // of a collective call: targets that are not released
        std::vector<Index> targets, sources;
    };
    struct Member {
        std::uint32_t collectives; // how many it has begun
        Index node;
    };
    /// A communicator.
    struct Waiting {
        std::uint32_t size = 0;      // members
        std::vector<Member> members; // those that are clients, and those that have ended
        std::map<std::uint32_t, std::vector<Index>> callers; // by the number of the call

        /// How many members nothing is known of; "2 members have no client".
        std::size_t strangers() const;
        std::string strangersText() const;
    };
    /// The tasks of which nothing is known, by the kinds up to NO_MPI.
    using Untold = std::array<ClientSet, MpiState::NO_MPI + 1>;

    /// A client's task. `moved`: it has begun other calls of late, so it does not hang; `place`:
    /// where it is when it is in no call, "search (ring.cpp:41)", or empty.
    void add(int client, const MpiState& state, bool moved = false, const std::string& place = "");
    /// Finds out; once, behind all `add`.
    void solve();

    /// The tasks come first.
    const std::vector<Node>& nodes() const { return all; }
    /// Of the tasks, by their nodes; what is not waited for is left out.
    const std::vector<MpiState>& states() const { return told; }
    const std::map<std::uint64_t, Waiting>& comms() const { return communicators; }
    const Untold& untold() const { return without; }
    /// Those that may go on, each behind the one that it waits for.
    const std::vector<Index>& released() const { return order; }
    /// The task or the rank that stands behind this one in a chain; none: the chain ends.
    Index following(Index node) const;

  private:
    std::vector<Node> all;
    std::vector<MpiState> told;
    std::map<std::pair<int, int>, Index> byRank; // size of the world and rank; none: several
    std::map<std::uint64_t, Waiting> communicators;
    Untold without;
    std::vector<Index> order;
    std::size_t followed = 0; // of these
    bool clientsAreRanks = false;

    Index newNode(Node::Kind kind);
    void link(Index from, Index to);
    bool isAlone(const MpiState& state) const;
    Index nodeOf(int size, int rank); // of a world of that size; none: several have it
    void linkPeers(Index task);
    void linkCollectives();
    void endCalls(const std::vector<Index>& callers, const Waiting& waiting);
    void release(Index node);
    void releaseAll();
    void findNext();
};
