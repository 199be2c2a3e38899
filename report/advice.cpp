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
