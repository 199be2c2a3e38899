#pragma once

#include <string>

/// How lines begin by which a session tells a report of its start.
namespace ReportMarks {

/// Of ranks of the job, in the place of clients: that the session has no debugger of them, and
/// why; the second where their debuggers are at fault.
inline const std::string missing = "missing: ";
inline const std::string undebugged = "undebugged: ";

} // namespace ReportMarks
