#include "frontend/switchboard/waitgraph.h"

#include <algorithm>
#include <utility>

namespace {

// What a task waits for is told as "MPI_Recv (tag 0)".
std::string callText(const MpiState& state) {
    if (state.peers.empty() || state.collective != 0) return state.call;
    if (state.tag == MpiState::anyTag) return state.call + " (any tag)";
    if (state.tag == MpiState::noTag) return state.call;
    return state.call + " (tag " + std::to_string(state.tag) + ")";
}

constexpr const char* abortCall = "MPI_Abort";

std::string endText(const MpiState& state, bool moved, const std::string& place) {
    if (moved) return "goes on with its MPI calls";
    switch (state.kind) {
    case MpiState::INSIDE:
        return (state.kept && state.call != abortCall ? "made a fatal error in " : "is in ") +
               state.call;
    case MpiState::OUTSIDE:
        return "is in no MPI call" + (place.empty() ? "" : ": " + place);
    case MpiState::OVER:
        return "has left MPI";
    case MpiState::NOT_STARTED:
        return "has not started MPI";
    case MpiState::NO_PROCESS:
        return "has no process";
    default:
        return "does not tell its MPI calls";
    }
}

} // namespace

WaitGraph::Index WaitGraph::newNode(Node::Kind kind) {
    all.emplace_back();
    all.back().kind = kind;
    return static_cast<Index>(all.size() - 1);
}

void WaitGraph::link(Index from, Index to) {
    all[from].targets.push_back(to);
    all[to].sources.push_back(from);
}

void WaitGraph::add(int client, const MpiState& state, bool moved, const std::string& place) {
    if (state.kind <= MpiState::NO_MPI) {
        without[state.kind].insert(client);
        return;
    }
    const Index index = newNode(Node::TASK);
    Node& node = all[index];
    node.client = client;
    node.rank = state.rank < 0 ? client : state.rank;
    node.stopped = state.stopped;
    // Tasks that end wait for the others only in the interest of their MPI.
    const bool ends = state.call == "MPI_Finalize" || state.call == abortCall || state.kept;
    const bool waits = state.kind == MpiState::INSIDE && !moved && !ends &&
                       (!state.peers.empty() || (state.collective != 0 && state.comm.id != 0));
    if (waits)
        node.call = callText(state);
    else
        node.end = endText(state, moved, place);
    told.push_back(state);
    if (!waits) {
        // To those that are in another call on it, it has not begun theirs.
        for (MpiState::Comm& comm : told.back().comms) {
            if (ends && state.collective != 0 && comm.id == state.comm.id)
                comm.collectives = std::min(comm.collectives, state.collective - 1);
        }
        told.back().peers.clear();
        told.back().collective = 0;
    }
    if (state.rank < 0) return;
    // Two of a rank are of two jobs.
    const auto [at, first] = byRank.try_emplace({state.size, state.rank}, index);
    if (!first && state.size > 1) at->second = none;
}

// Whether the job is the only one of its size; jobs of a single task are of no interest.
bool WaitGraph::isAlone(const MpiState& state) const {
    const auto at = byRank.find({state.size, state.rank});
    return state.size > 1 && at != byRank.end() && at->second != none;
}

// --- who waits for whom

WaitGraph::Index WaitGraph::nodeOf(int size, int rank) {
    const auto [at, isNew] = byRank.try_emplace({size, rank}, none);
    if (!isNew) return at->second;
    const Index index = at->second = newNode(Node::RANK);
    Node& node = all[index];
    node.rank = rank;
    node.end = "has no client";
    if (!clientsAreRanks || !without[MpiState::NO_PROCESS].contains(rank)) return index;
    node.client = rank;
    node.end = "has no process";
    return index;
}

void WaitGraph::linkPeers(Index task) {
    const MpiState& state = told[task];
    for (const int peer : state.peers) {
        if (peer == MpiState::anybody) all[task].anybody = true;
        if (state.size == 1 && peer == state.rank) link(task, task);
        if (peer < 0 || state.size == 1) continue;
        if (const Index rank = nodeOf(state.size, peer); rank != none) link(task, rank);
    }
    Node& node = all[task];
    if (!node.call.empty() && node.targets.empty() && !node.anybody &&
        (state.collective == 0 || !isAlone(state)))
        node.end = "is in " + node.call + " with a task that is not known";
}

// What is missing of a call is missing of the next one on that communicator as well: so each
// member is linked once, however many calls are under way.
void WaitGraph::linkCollectives() {
    const auto tasks = static_cast<Index>(told.size());
    for (Index task = 0; task < tasks; ++task) {
        const MpiState& state = told[task];
        if (!isAlone(state)) continue;
        for (const MpiState::Comm& comm : state.comms) {
            Waiting& waiting = communicators[comm.id];
            waiting.size = comm.size;
            // The call may have begun behind the moment at which the list was read.
            const std::uint32_t begun = comm.id == state.comm.id ? state.collective : 0;
            waiting.members.push_back({std::max(comm.collectives, begun), task});
        }
        if (state.collective != 0)
            communicators[state.comm.id].callers[state.collective].push_back(task);
    }
    // Those that have ended begin no call any more.
    const auto everybody = communicators.find(MpiState::worldId);
    if (clientsAreRanks && everybody != communicators.end()) {
        const auto size = static_cast<int>(everybody->second.size);
        for (const int gone : without[MpiState::NO_PROCESS]) {
            if (gone >= size) break;
            const Index rank = nodeOf(size, gone);
            if (rank != none && all[rank].kind == Node::RANK)
                everybody->second.members.push_back({0, rank});
        }
    }
    for (auto& [id, waiting] : communicators) {
        std::ranges::sort(waiting.members, {}, &Member::collectives);
        Index before = none;
        auto member = waiting.members.begin();
        for (const auto& [number, callers] : waiting.callers) {
            if (before == none &&
                (member == waiting.members.end() || member->collectives >= number)) {
                endCalls(callers, waiting);
                continue;
            }
            const Index missing = newNode(Node::COLLECTIVE);
            for (; member != waiting.members.end() && member->collectives < number; ++member)
                link(missing, member->node);
            if (before != none) link(missing, before);
            all[missing].missing = all[missing].targets.size();
            for (const Index caller : callers)
                link(caller, missing);
            before = missing;
        }
    }
}

// Of the clients, nobody is missing.
void WaitGraph::endCalls(const std::vector<Index>& callers, const Waiting& waiting) {
    const bool mixed = std::ranges::any_of(callers, [this, &callers](Index caller) {
        return told[caller].call != told[callers[0]].call;
    });
    for (const Index caller : callers) {
        Node& node = all[caller];
        if (!node.targets.empty() || node.anybody) continue;
        node.mixed = mixed;
        node.end = "is in " + node.call;
        if (mixed) continue;
        node.end += ", as all clients of the communicator are";
        if (waiting.strangers() > 0) node.end += "; " + waiting.strangersText();
    }
}

std::size_t WaitGraph::Waiting::strangers() const {
    return size - std::min<std::size_t>(size, members.size());
}

std::string WaitGraph::Waiting::strangersText() const {
    return std::to_string(strangers()) +
           (strangers() == 1 ? " member has no client" : " members have no client");
}

// --- who can go on

void WaitGraph::release(Index index) {
    Node& node = all[index];
    node.released = true;
    node.root = node.next == none ? index : all[node.next].root;
    node.depth = node.next == none ? 0 : all[node.next].depth + (node.kind == Node::TASK);
    order.push_back(index);
}

void WaitGraph::releaseAll() {
    for (; followed < order.size(); ++followed) {
        const Index index = order[followed];
        for (const Index source : all[index].sources) {
            Node& node = all[source];
            if (node.released) continue;
            if (node.next == none) node.next = index;
            if (node.kind != Node::COLLECTIVE || --node.missing == 0) release(source);
        }
    }
}

// The others wait for ever: each for one that does so, too.
void WaitGraph::findNext() {
    for (Node& node : all) {
        if (node.released) continue;
        node.next = none;
        for (const Index target : node.targets) {
            if (!all[target].released && node.next == none) node.next = target;
        }
    }
    // Where that leads: around in a circle, or to those that wait for anybody.
    std::vector<Index> path;
    for (Index start = 0; start < all.size(); ++start) {
        path.clear();
        Index at = start;
        while (!all[at].released && all[at].root == none) {
            all[at].root = start; // for the time being
            path.push_back(at);
            if (all[at].next == none) break;
            at = all[at].next;
        }
        if (path.empty()) continue;
        Index root = all[at].root;
        const auto circle = std::ranges::find(path, at);
        if (circle != path.end()) root = *std::min_element(circle, path.end());
        for (auto each = path.rbegin(); each != path.rend(); ++each) {
            Node& node = all[*each];
            node.root = root;
            const bool inCircle =
                circle != path.end() && path.rend() - each > circle - path.begin();
            if (!inCircle) node.depth = all[node.next].depth + (node.kind == Node::TASK);
        }
    }
}

// The task, or the rank, that a chain names behind this one.
WaitGraph::Index WaitGraph::following(Index index) const {
    do
        index = all[index].next;
    while (index != none && all[index].kind == Node::COLLECTIVE);
    return index;
}

void WaitGraph::solve() {
    const auto tasks = static_cast<Index>(told.size());
    clientsAreRanks =
        std::ranges::all_of(all, [](const Node& node) { return node.client == node.rank; });
    for (Index task = 0; task < tasks; ++task)
        linkPeers(task);
    linkCollectives();
    for (Index node = 0; node < all.size(); ++node) {
        if (!all[node].end.empty()) release(node);
    }
    releaseAll();
    // Somebody who can go on may send what they wait for.
    for (Index task = 0; task < tasks && !order.empty(); ++task) {
        if (!all[task].anybody || all[task].released) continue;
        all[task].end = "waits for anybody in " + all[task].call;
        release(task);
    }
    releaseAll();
    findNext();
    for (const Index index : order) {
        if (all[index].next != none) all[all[index].root].awaited = true;
    }
}
