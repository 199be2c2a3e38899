#pragma once

#include "report/report.h"

#include <cstddef>
#include <optional>
#include <vector>

/// The ranks that are missing, at most so many rows of them, as a report's first lines name them.
std::vector<Row> missingRanks(const std::vector<Row>& missing, std::size_t most);

/// For a job that may hang and whose calls of MPI nobody has traced: a note that this would tell
/// more. `waits`: the rows of vex waits; `ran`: the report's own session has started the job.
std::optional<Row> traceHint(const Report& report, const std::vector<Row>& waits, bool ran);
