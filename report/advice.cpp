#include "report/advice.h"

#include "backend/os/text.h"

#include <string>

std::vector<Row> missingRanks(const std::vector<Row>& missing, std::size_t most) {
    std::vector<Row> rows;
    for (const Row& row : missing) {
        if (rows.size() == most) break;
        const bool one = row.clients.size() == 1;
        rows.push_back({{},
                        std::string(one ? "rank " : "ranks ") + Text::list(row.clients) +
                            (one ? " is missing: " : " are missing: ") + row.text});
    }
    return rows;
}

std::string reasonNot(std::size_t clients, const std::vector<Row>& missing) {
    std::size_t count = 0;
    for (const Row& row : missing)
        count += row.clients.size();
    const std::size_t tasks = clients + count;
    const std::string all = std::to_string(tasks) + (tasks == 1 ? " task" : " tasks");
    if (tasks == 0) return "no task was found";
    if (count == 0)
        return "a signal came before its " + all + (tasks == 1 ? " was" : " were") + " started";
    return std::to_string(count) + " of " + all + (count == 1 ? " has" : " have") + " no debugger";
}

std::optional<Row> traceHint(const Report& report, const std::vector<Row>& waits, bool ran) {
    if (report.outcome != Report::TIMED_OUT && report.outcome != Report::LOOKED)
        return std::nullopt;
    ClientSet untraced, tasks;
    for (const Row& row : waits) {
        if (row.text.starts_with("libvexmpi.so is not loaded")) untraced.insert(row.clients);
    }
    for (const Row& row : report.mpi)
        tasks.insert(row.clients.intersection(untraced));
    if (tasks.empty()) return std::nullopt;
    return Row{tasks, ran ? "who waits for whom: --trace-mpi would tell"
                          : "who waits for whom: --trace-mpi, when the job is started, would tell"};
}

std::optional<Row> forksHint(const Report& report, const ClientSet& forkers,
                             const ClientSet& ended) {
    if (!report.crashes.empty()) return std::nullopt;
    ClientSet theirs;
    if (report.outcome == Report::TIMED_OUT || report.outcome == Report::LOOKED) {
        theirs = forkers;
        theirs.erase(ended);
    } else if (report.outcome == Report::FAILED) {
        // Those that a signal has ended are culprits of their own.
        for (const Report::Ended& end : report.ended) {
            if (end.signal.empty()) theirs.insert(end.clients.intersection(forkers));
        }
    }
    if (theirs.empty()) return std::nullopt;
    return Row{theirs,
               "processes were forked, and a crash of theirs is in no debugger: --forks yes "
               "follows them, 0.15 seconds behind the fork"};
}
