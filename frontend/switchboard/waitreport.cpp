#include "frontend/switchboard/waitreport.h"

#include "backend/os/text.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>

namespace {

using Index = WaitGraph::Index;
using Node = WaitGraph::Node;
constexpr Index none = WaitGraph::none;

// Of each kind of row, so many at most are told.
constexpr std::size_t maxRows = 8;
// Of a chain, so many tasks at its beginning and the last one.
constexpr std::size_t maxHops = 8;
// Of a list of ranks, so many runs.
constexpr std::size_t maxRuns = 12;

std::string commText(std::uint64_t id, std::uint32_t size) {
    return id == MpiState::worldId ? "MPI_COMM_WORLD" : "a communicator of " + std::to_string(size);
}

std::string listText(const ClientSet& ranks) {
    std::vector<ClientSet::Range> runs;
    std::size_t told = 0;
    for (auto run = ranks.runs().begin(); run != ranks.runs().end() && runs.size() < maxRuns;
         ++run) {
        runs.push_back(*run);
        told += static_cast<std::size_t>(run->last - run->first) + 1;
    }
    const std::size_t rest = ranks.size() - told;
    std::string text = Text::list(ClientSet(std::move(runs)));
    if (rest > 0) text += " and " + std::to_string(rest) + " more";
    return text;
}

} // namespace

// "1 waits for 0 in MPI_Recv (tag 0) · 0 for 3 · 3 is in no MPI call", up to the end of the chain
// or until it is back where it began.
std::string WaitReport::chain(Index from) const {
    std::vector<Index> hops{from};
    for (Index at = graph.following(from); at != none; at = graph.following(at)) {
        hops.push_back(at);
        if (at == from) break;
    }
    std::string text, call;
    const std::size_t last = hops.size() - 1;
    for (std::size_t i = 0; i < hops.size(); ++i) {
        const Node& node = graph.nodes()[hops[i]];
        if (i == last && i > 0 && hops[i] == from) break;
        if (i > 0) text += " · ";
        if (i == maxHops && last > maxHops + 1) {
            text += "… " + std::to_string(last - maxHops - 1) + " more …";
            i = last - 2;
            call.clear();
            continue;
        }
        text += std::to_string(node.rank) + " ";
        if (i < last) {
            text +=
                (i == 0 ? "waits for " : "for ") + std::to_string(graph.nodes()[hops[i + 1]].rank);
            if (node.call != call) text += " in " + node.call;
            call = node.call;
        } else {
            text += node.end.empty() ? "waits for anybody in " + node.call : node.end;
        }
    }
    return text;
}

void WaitReport::tellDeadlocks() {
    struct Circle {
        ClientSet members, waiters;
        bool stopped = false;
    };
    std::map<Index, Circle> circles; // by their roots
    for (const Node& node : graph.nodes()) {
        if (!node.released && node.kind == Node::TASK)
            circles[node.root].waiters.insert(node.client);
    }
    std::vector<std::pair<Index, Circle>> sorted;
    std::map<std::pair<std::string, bool>, std::size_t> alone; // in `sorted`, by call and stopped
    for (auto& [root, circle] : circles) {
        Index at = root;
        do {
            const Node& node = graph.nodes()[at];
            if (node.kind == Node::TASK) {
                circle.members.insert(node.client);
                circle.stopped = circle.stopped || node.stopped;
            }
            at = node.next;
        } while (at != none && at != root);
        circle.waiters.erase(circle.members);
        // Of those that wait for themselves, equal ones are told together.
        const Node& first = graph.nodes()[root];
        if (circle.members.size() == 1 && circle.waiters.empty() && first.next == root) {
            const auto [same, isNew] =
                alone.try_emplace(std::pair(first.call, circle.stopped), sorted.size());
            if (!isNew) {
                sorted[same->second].second.members.insert(circle.members);
                continue;
            }
        }
        sorted.emplace_back(root, std::move(circle));
    }
    std::ranges::stable_sort(sorted, std::ranges::greater(), [](const auto& each) {
        return each.second.members.size() + each.second.waiters.size();
    });
    ClientSet rest;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        const auto& [root, circle] = sorted[i];
        if (i >= maxRows) {
            rest.insert(circle.members);
            rest.insert(circle.waiters);
            continue;
        }
        // A message that has been sent reaches no task that stands still.
        const Node& first = graph.nodes()[root];
        const bool isAlone = first.next == root && circle.members.size() > 1;
        answer.push_back(
            {(circle.stopped ? "deadlock, unless a message is under way: " : "deadlock: ") +
                 (isAlone ? "each waits for itself in " + first.call : chain(root)),
             circle.members});
        if (!circle.waiters.empty())
            answer.push_back({"waits for a task of that deadlock", circle.waiters});
    }
    if (!rest.empty())
        answer.push_back({"deadlock: " + std::to_string(sorted.size() - maxRows) + " more", rest});
}

void WaitReport::tellCulprits() {
    std::map<std::string, Culprits> found; // by why they wait for nobody
    for (const Index index : graph.released()) {
        const Node& node = graph.nodes()[index];
        const Node& root = graph.nodes()[node.root];
        if (!root.awaited) {
            if (node.kind == Node::TASK && !node.mixed) idle[node.end].insert(node.client);
            continue;
        }
        Culprits& culprits = found[root.end];
        if (node.client < 0) continue;
        if (node.next == none) {
            culprits.clients.insert(node.client);
            continue;
        }
        culprits.waiters.insert(node.client);
        if (culprits.longest == none || graph.nodes()[culprits.longest].depth < node.depth)
            culprits.longest = index;
    }
    std::vector<std::pair<std::string, Culprits>> sorted(found.begin(), found.end());
    std::erase_if(sorted, [](const auto& each) { return each.second.waiters.empty(); });
    std::ranges::stable_sort(sorted, {}, [](const auto& each) {
        return std::pair(each.second.clients.size(),
                         -static_cast<long>(each.second.waiters.size()));
    });
    someWait = someWait || !sorted.empty();
    if (sorted.size() > maxRows) sorted.resize(maxRows);
    for (const auto& [end, culprits] : sorted) {
        const std::size_t waiters = culprits.waiters.size();
        told.insert(culprits.clients);
        if (!culprits.clients.empty())
            answer.push_back({end + " · " + std::to_string(waiters) +
                                  (waiters == 1 ? " waits" : " wait") + " for " +
                                  (culprits.clients.size() == 1 ? "it" : "these"),
                              culprits.clients});
        answer.push_back({chain(culprits.longest), culprits.waiters});
    }
}

void WaitReport::tellCollectives() {
    struct Call {
        std::uint64_t comm;
        std::uint32_t number;
        std::size_t callers;
    };
    std::vector<Call> calls;
    for (const auto& [id, waiting] : graph.comms()) {
        for (const auto& [number, callers] : waiting.callers)
            calls.push_back({id, number, callers.size()});
    }
    std::ranges::stable_sort(calls, std::ranges::greater(), &Call::callers);
    if (calls.size() > maxRows) calls.resize(maxRows);
    for (const Call& each : calls) {
        const WaitGraph::Waiting& waiting = graph.comms().at(each.comm);
        ClientSet missing;
        for (const WaitGraph::Member& member : waiting.members) {
            if (member.collectives < each.number) missing.insert(graph.nodes()[member.node].rank);
        }
        std::map<std::string, Callers> named;
        for (const Index caller : waiting.callers.at(each.number)) {
            Callers& callers = named[graph.states()[caller].call];
            callers.clients.insert(graph.nodes()[caller].client);
            callers.ranks.insert(graph.nodes()[caller].rank);
        }
        std::vector<std::pair<std::string, Callers>> sorted(named.begin(), named.end());
        std::ranges::stable_sort(sorted, {},
                                 [](const auto& call) { return call.second.clients.size(); });
        if (sorted.size() > maxRows) sorted.resize(maxRows);
        std::string rest;
        if (!missing.empty()) rest += "; missing: " + listText(missing);
        if (waiting.strangers() > 0) rest += "; " + waiting.strangersText();
        if (rest.empty() && sorted.size() == 1) continue;
        for (const auto& [call, callers] : sorted) {
            std::string others;
            for (const auto& [other, theirs] : sorted) {
                if (other == call) continue;
                others += (others.empty() ? ", while " : " and ") + listText(theirs.ranks) +
                          (theirs.ranks.size() == 1 ? " is in " : " are in ") + other;
            }
            answer.push_back({(others.empty() ? "in " : "is in ") + call + " on " +
                                  commText(each.comm, waiting.size) + others + rest,
                              callers.clients});
        }
    }
}

void WaitReport::tellOthers() {
    std::vector<std::pair<std::string, ClientSet>> sorted(idle.begin(), idle.end());
    std::ranges::stable_sort(sorted, {}, [](const auto& each) { return each.second.size(); });
    ClientSet rest;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        if (i < maxRows)
            answer.push_back({sorted[i].first, sorted[i].second});
        else
            rest.insert(sorted[i].second);
    }
    if (!rest.empty()) answer.push_back({"is elsewhere", rest});
    std::uint64_t least = ~std::uint64_t(0), second = least, most = 0;
    ClientSet behind;
    for (Index task = 0; task < graph.states().size(); ++task) {
        const std::uint64_t calls = graph.states()[task].calls;
        most = std::max(most, calls);
        if (calls < least) {
            behind.clear();
            second = std::exchange(least, calls);
        } else if (calls > least) {
            second = std::min(second, calls);
        }
        if (calls == least) behind.insert(graph.nodes()[task].client);
    }
    if (someWait && least < most)
        answer.push_back({"furthest behind: " + std::to_string(least) +
                              (least == 1 ? " MPI call, the others " : " MPI calls, the others ") +
                              std::to_string(second) +
                              (second == most ? "" : " to " + std::to_string(most)),
                          behind});
    static constexpr const char* reasons[] = {
        "has no process",
        "libvexmpi.so is not loaded, so nobody tells who waits for whom: start with vex "
        "--trace-mpi, or the tasks with LD_PRELOAD; 'stat' shows their stacks",
        "its program is linked statically and loads no libvexmpi.so, so the calls of its MPI are "
        "not seen; 'stat' shows the stacks",
        "libvexmpi.so is loaded, but no library of an MPI: the calls of one that is linked "
        "statically are not seen; 'stat' shows the stacks",
    };
    for (std::size_t kind = 0; kind < std::size(graph.untold()); ++kind) {
        ClientSet clients = graph.untold()[kind];
        clients.erase(told); // others wait for them
        if (!clients.empty()) answer.push_back({reasons[kind], clients});
    }
}

std::vector<StackTree::Row> WaitReport::rows() {
    someWait = graph.released().size() < graph.nodes().size();
    tellDeadlocks();
    tellCulprits();
    tellCollectives();
    tellOthers();
    return std::move(answer);
}
