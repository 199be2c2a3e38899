#include "frontend/switchboard/waitgraph.h"
#include "frontend/switchboard/waitreport.h"
#include "tests/support/testing.h"

namespace {

constexpr std::uint64_t world = MpiState::worldId, half = 77;

// What tasks do, shortly.
struct Task {
    std::string call; // "": none
    std::vector<int> peers = {};
    std::uint32_t collective = 0; // of the world, unless `comm` says of which
    std::uint64_t comm = world;
    bool moved = false;
    bool stopped = false;
    std::uint32_t begun = 0; // collective calls of the world
    std::uint64_t calls = 5;
    MpiState::Kind kind = MpiState::OUTSIDE;
    int worldSize = 0; // 0: as many as there are
    bool kept = false;
};

Lines rowsOf(const std::vector<Task>& tasks, const std::string& place = "") {
    WaitGraph graph;
    int client = 0;
    for (const Task& task : tasks) {
        MpiState state;
        state.kind = task.call.empty() ? task.kind : MpiState::INSIDE;
        state.stopped = task.stopped;
        state.kept = task.kept;
        state.rank = client;
        state.size = task.worldSize != 0 ? task.worldSize : static_cast<int>(tasks.size());
        state.calls = task.calls;
        state.comms = {{world, static_cast<std::uint32_t>(tasks.size()), task.begun}};
        if (client < 2) state.comms.push_back({half, 2, 0});
        state.call = task.call;
        state.peers = task.peers;
        state.collective = task.collective;
        if (task.peers.size() == 1) state.tag = 0;
        if (!task.call.empty()) state.comm = {task.comm, task.comm == half ? 2u : 4u, 0};
        graph.add(client++, state, task.moved, place);
    }
    graph.solve();
    Lines lines;
    for (const auto& [text, clients] : WaitReport(graph).rows())
        lines.push_back(clients.str() + "| " + text);
    return lines;
}

constexpr int any = MpiState::anybody;

TEST(WaitsTest, WhoIsAtFault) {
    const std::string recv = "MPI_Recv", barrier = "MPI_Barrier";
    const struct {
        const char* what;
        std::vector<Task> tasks;
        Lines rows;
    } cases[] = {
        {"a chain to the one that computes, whose calls are the fewest",
         {{recv, {3}}, {recv, {0}}, {.call = "", .calls = 4}, {recv, {2}}},
         {"2 | is in no MPI call: search (a.c:1) · 3 wait for it",
          "0:1 3 | 1 waits for 0 in MPI_Recv (tag 0) · 0 for 3 · 3 for 2 · 2 is in no MPI call: "
          "search (a.c:1)",
          "2 | furthest behind: 4 MPI calls, the others 5"}},
        {"a circle, and one that waits for it",
         {{recv, {1}}, {recv, {2}}, {"MPI_Ssend", {0}}, {recv, {1}}},
         {"0:2 | deadlock: 0 waits for 1 in MPI_Recv (tag 0) · 1 for 2 · 2 for 0 in MPI_Ssend "
          "(tag 0)",
          "3 | waits for a task of that deadlock"}},
        {"a message may be on its way to tasks that stand still",
         {{recv, {1}}, {.call = recv, .peers = {0}, .stopped = true}},
         {"0:1 | deadlock, unless a message is under way: 0 waits for 1 in MPI_Recv (tag 0) · 1 "
          "for 0"}},
        {"one of several that go on is enough",
         {{"MPI_Waitall", {1, 2}}, {recv, {0}}, {""}},
         {"2 | is in no MPI call: search (a.c:1) · 2 wait for it",
          "0:1 | 1 waits for 0 in MPI_Recv (tag 0) · 0 for 2 in MPI_Waitall · 2 is in no MPI call: "
          "search (a.c:1)"}},
        {"none of several goes on",
         {{"MPI_Waitall", {1, 2}}, {recv, {0}}, {recv, {2}}},
         {"0:1 | deadlock: 0 waits for 1 in MPI_Waitall · 1 for 0 in MPI_Recv (tag 0)",
          "2 | deadlock: 2 waits for 2 in MPI_Recv (tag 0)"}},
        {"a task that makes calls is in no deadlock",
         {{recv, {1}}, {.call = recv, .peers = {0}, .moved = true}},
         {"1 | goes on with its MPI calls · 1 waits for it",
          "0 | 0 waits for 1 in MPI_Recv (tag 0) · 1 goes on with its MPI calls"}},
        {"a master that waits for anybody, while a worker computes, and while none does",
         {{recv, {any}}, {recv, {0}}, {""}},
         {"0 | waits for anybody in MPI_Recv (tag 0) · 1 waits for it",
          "1 | 1 waits for 0 in MPI_Recv (tag 0) · 0 waits for anybody in MPI_Recv (tag 0)",
          "2 | is in no MPI call: search (a.c:1)"}},
        {"",
         {{recv, {any}}, {recv, {0}}},
         {"0 | deadlock: 0 waits for anybody in MPI_Recv (tag 0)",
          "1 | waits for a task of that deadlock"}},
        {"one is missing in a collective call",
         {{.call = barrier, .collective = 3, .begun = 3},
          {.call = barrier, .collective = 3, .begun = 3},
          {.call = "", .begun = 2},
          {.call = "", .begun = 3}},
         {"2 | is in no MPI call: search (a.c:1) · 2 wait for it",
          "0:1 | 0 waits for 2 in MPI_Barrier · 2 is in no MPI call: search (a.c:1)",
          "0:1 | in MPI_Barrier on MPI_COMM_WORLD; missing: 2",
          "3 | is in no MPI call: search (a.c:1)"}},
        {"one waits for a message of those that wait for it in a collective call",
         {{.call = barrier, .collective = 3, .begun = 3},
          {.call = barrier, .collective = 3, .begun = 3},
          {.call = recv, .peers = {1}, .begun = 2}},
         {"1:2 | deadlock: 1 waits for 2 in MPI_Barrier · 2 for 1 in MPI_Recv (tag 0)",
          "0 | waits for a task of that deadlock",
          "0:1 | in MPI_Barrier on MPI_COMM_WORLD; missing: 2"}},
        {"two communicators in two orders",
         {{.call = barrier, .collective = 1, .comm = half, .begun = 2},
          {.call = barrier, .collective = 3, .begun = 3},
          {.call = barrier, .collective = 3, .begun = 3}},
         {"0:1 | deadlock: 0 waits for 1 in MPI_Barrier · 1 for 0",
          "2 | waits for a task of that deadlock",
          "1:2 | in MPI_Barrier on MPI_COMM_WORLD; missing: 0",
          "0 | in MPI_Barrier on a communicator of 2; missing: 1"}},
        {"collective calls that differ",
         {{.call = barrier, .collective = 1, .begun = 1},
          {.call = "MPI_Bcast", .collective = 1, .begun = 1},
          {.call = barrier, .collective = 1, .begun = 1}},
         {"1 | is in MPI_Bcast on MPI_COMM_WORLD, while 0 2 are in MPI_Barrier",
          "0 2 | is in MPI_Barrier on MPI_COMM_WORLD, while 1 is in MPI_Bcast"}},
        {"one would end the job for an error",
         {{recv, {1}}, {.call = recv, .peers = {0}, .kept = true}},
         {"1 | made a fatal error in MPI_Recv · 1 waits for it",
          "0 | 0 waits for 1 in MPI_Recv (tag 0) · 1 made a fatal error in MPI_Recv"}},
        {"one ends too early, one has ended",
         {{.call = barrier, .collective = 3, .begun = 3},
          {.call = "MPI_Finalize", .collective = 3, .begun = 3}},
         {"1 | is in MPI_Finalize · 1 waits for it",
          "0 | 0 waits for 1 in MPI_Barrier · 1 is in MPI_Finalize",
          "0 | in MPI_Barrier on MPI_COMM_WORLD; missing: 1"}},
        {"",
         {{.call = barrier, .collective = 3, .begun = 3},
          {.call = "", .kind = MpiState::NO_PROCESS}},
         {"1 | has no process · 1 waits for it",
          "0 | 0 waits for 1 in MPI_Barrier · 1 has no process",
          "0 | in MPI_Barrier on MPI_COMM_WORLD; missing: 1"}},
        {"all end, the fewest in another place",
         {{.call = "MPI_Finalize", .collective = 3, .begun = 3},
          {.call = "MPI_Finalize", .collective = 3, .begun = 3},
          {""}},
         {"2 | is in no MPI call: search (a.c:1)", "0:1 | is in MPI_Finalize"}},
        {"one rank has left, one is no client",
         {{.call = recv, .peers = {1}, .worldSize = 3},
          {.call = "", .kind = MpiState::OVER, .worldSize = 3},
          {.call = recv, .peers = {7}, .worldSize = 8}},
         {"2 | 2 waits for 7 in MPI_Recv (tag 0) · 7 has no client",
          "1 | has left MPI · 1 waits for it",
          "0 | 0 waits for 1 in MPI_Recv (tag 0) · 1 has left MPI"}},
        {"some wait for themselves",
         {{recv, {0}}, {recv, {1}}, {recv, {3}}, {recv, {2}}, {"MPI_Ssend", {4}}},
         {"0:1 | deadlock: each waits for itself in MPI_Recv (tag 0)",
          "2:3 | deadlock: 2 waits for 3 in MPI_Recv (tag 0) · 3 for 2",
          "4 | deadlock: 4 waits for 4 in MPI_Ssend (tag 0)"}},
        {"nobody waits", {{""}, {""}}, {"0:1 | is in no MPI call: search (a.c:1)"}},
        {"jobs of one task each have the same ranks",
         {{.call = recv, .peers = {0}, .worldSize = 1}},
         {"0 | deadlock: 0 waits for 0 in MPI_Recv (tag 0)"}},
        {"no library",
         {{.call = "", .kind = MpiState::NO_MPI},
          {.call = "", .kind = MpiState::NO_PROCESS},
          {.call = "", .kind = MpiState::NO_LOADER}},
         {"1 | has no process",
          "2 | its program is linked statically and loads no libvexmpi.so, so the calls of its MPI "
          "are not seen; 'stat' shows the stacks",
          "0 | libvexmpi.so is loaded, but no library of an MPI: the calls of one that is linked "
          "statically are not seen; 'stat' shows the stacks"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.what);
        EXPECT_EQ(rowsOf(each.tasks, "search (a.c:1)"), each.rows);
    }
}

// A ring of many tasks, and all kinds of calls at once, are told in few rows and at a cost in
// proportion to their number.
TEST(WaitsTest, ManyTasksMakeFewRows) {
    double cost[2] = {};
    for (const int size : {10000, 100000}) {
        std::vector<Task> ring(static_cast<std::size_t>(size)), steps = ring;
        for (int i = 0; i < size; ++i) {
            const auto at = static_cast<std::size_t>(i);
            ring[at] = {i == 0 ? "" : "MPI_Recv", {i - 1}};
            // Each in another call of the world.
            steps[at] = {.call = i == 0 ? "" : "MPI_Bcast",
                         .collective = static_cast<std::uint32_t>(i),
                         .begun = static_cast<std::uint32_t>(i)};
        }
        const std::clock_t begin = std::clock();
        const Lines rows = rowsOf(ring), others = rowsOf(steps);
        cost[size > 10000] = static_cast<double>(std::clock() - begin);
        const std::string last = std::to_string(size - 1), left = std::to_string(size - 10);
        EXPECT_EQ(rows.size(), 2u);
        EXPECT_EQ(rows.back().find("1:" + last + " | " + last + " waits for "), 0u) << rows.back();
        EXPECT_TRUE(rows.back().ends_with(" · … " + left +
                                          " more … · 1 for 0 in MPI_Recv (tag 0) "
                                          "· 0 is in no MPI call"))
            << rows.back();
        EXPECT_LE(others.size(), 12u);
        EXPECT_EQ(others[0].find("0 | is in no MPI call · " + last + " wait for it"), 0u);
    }
    EXPECT_LT(cost[1], 30 * cost[0]);
}

} // namespace
