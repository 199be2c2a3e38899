#include "frontend/session/startlosses.h"

#include "backend/os/reportrules.h"

#include <algorithm>
#include <chrono>
#include <cstddef>

StartLosses::StartLosses(EventLoop& loop, const Options& sessionOptions, Owner& whose)
    : options(sessionOptions), owner(whose), timer(loop) {}

void StartLosses::wait(bool again) {
    if (options.report.empty()) return;
    const std::chrono::seconds time = ReportRules::patience();
    timer.after(time, [this, time, again] {
        wait(true);
        owner.onStandstill(static_cast<int>(time.count()), again);
    });
}

void StartLosses::add(const Row& row) {
    const auto same = std::ranges::find(known, row.why, &Row::why);
    if (same != known.end())
        same->tasks.insert(row.tasks);
    else if (!row.tasks.empty())
        known.push_back(row);
}

void StartLosses::cutShort() {
    cut = true;
    end();
    owner.onStandstill(0, true);
}

void StartLosses::giveUp(const ClientSet& tasks, int seconds) {
    inVain.insert(tasks);
    add({seconds == 0 ? "no debugger had come to its prompt when the start was cut short"
                      : "no debugger has come to its prompt in " + std::to_string(seconds) +
                            (seconds == 1 ? " second" : " seconds"),
         tasks, true});
}

ClientSet StartLosses::arrived(const ClientSet& tasks) {
    ClientSet late = inVain.intersection(tasks);
    inVain.erase(late);
    for (Row& row : known)
        row.tasks.erase(late);
    std::erase_if(known, [](const Row& row) { return row.tasks.empty(); });
    if (!late.empty()) wait();
    return late;
}

std::vector<StartLosses::Row> StartLosses::rows() const {
    std::vector<Row> rows;
    if (!options.missing.empty()) rows.push_back({options.whyMissing, options.missing, false});
    for (const Row& each : known) {
        Row& row = rows.emplace_back(Row{each.why, {}, each.ofDebugger});
        for (const int task : each.tasks) {
            const auto index = static_cast<std::size_t>(task);
            const bool ranked = index < options.targets.size() && options.targets[index].rank >= 0;
            row.tasks.insert(ranked ? options.targets[index].rank : task);
        }
    }
    return rows;
}
