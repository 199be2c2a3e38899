#pragma once

#include "report/report.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// The ranks that are missing, at most so many rows of them, as a report's first lines name them.
std::vector<Row> missingRanks(const std::vector<Row>& missing, std::size_t most);

/// Why a job with so many clients and these ranks missing was not run or looked at.
std::string reasonNot(std::size_t clients, const std::vector<Row>& missing);

/// For a job that may hang and whose calls of MPI nobody has traced: a note that this would tell
/// more. `waits`: the rows of vex waits; `ran`: the report's own session has started the job.
std::optional<Row> traceHint(const Report& report, const std::vector<Row>& waits, bool ran);

/// For a job that has failed or may hang without a crash that a debugger has seen: a note that
/// processes were forked and could be followed. `forkers`: the clients whose tasks have forked
/// them, `ended`: those whose tasks have ended.
std::optional<Row> forksHint(const Report& report, const ClientSet& forkers,
                             const ClientSet& ended);
