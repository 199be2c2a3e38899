#include "frontend/session/waitqueries.h"

#include "backend/os/clock.h"
#include "frontend/switchboard/waitgraph.h"
#include "frontend/switchboard/waitreport.h"

#include <algorithm>
#include <chrono>

namespace {

// A task that makes no call in this time is taken for one that waits.
constexpr auto pauseBetween = std::chrono::milliseconds(200);

} // namespace

WaitQueries::WaitQueries(EventLoop& loop, Owner& whose) : owner(whose), patience(loop) {}

void WaitQueries::want(int console, const Command& command) {
    waiting.emplace_back(console, command);
    if (phase == IDLE) look(FIRST);
}

void WaitQueries::forget(int console) {
    std::erase_if(waiting, [console](const auto& each) { return each.first == console; });
}

void WaitQueries::look(Phase which) {
    phase = which;
    due += owner.askMpiStates();
    if (due == 0) return looked();
    patience.after(Wait::answer, [this] { looked(); });
}

void WaitQueries::answered() {
    if (due > 0 && --due == 0 && (phase == FIRST || phase == SECOND)) looked();
}

void WaitQueries::looked() {
    patience.cancel();
    if (phase == FIRST) {
        phase = BETWEEN;
        calls.clear();
        for (const int task : owner.mpiTasks())
            calls[task] = owner.mpiState(task).calls;
        patience.after(pauseBetween, [this] { look(SECOND); });
        return;
    }
    phase = IDLE;
    for (const auto& [console, command] : std::exchange(waiting, {}))
        owner.onWaitsKnown(console, command);
}

std::vector<StackTree::Row> WaitQueries::rows() const {
    WaitGraph graph;
    for (const int task : owner.mpiTasks()) {
        const MpiState state = owner.mpiState(task);
        const auto before = calls.find(task);
        graph.add(task, state, before != calls.end() && before->second != state.calls,
                  state.stopped ? owner.placeOf(task) : "");
    }
    graph.solve();
    return WaitReport(graph).rows();
}
