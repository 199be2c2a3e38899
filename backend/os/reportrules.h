#pragma once

#include "common/wholenumber.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

/// What a session and the program that writes a report of it have agreed on.
namespace ReportRules {

/// How lines begin by which a session tells of its start. They are about ranks of the job, in the
/// place of clients: that the session has no debugger of them, and why; the second where their
/// debuggers are at fault.
inline const std::string missing = "missing: ";
inline const std::string undebugged = "undebugged: ";

/// How long debuggers that give no sign are waited for: two minutes, for they may have to read
/// symbols first, or what VEX_REPORT_PATIENCE says.
inline std::chrono::seconds patience() {
    constexpr int usual = 120;
    const char* const given = std::getenv("VEX_REPORT_PATIENCE");
    return std::chrono::seconds(given ? std::max(1, wholeNumber<int>(given).value_or(usual))
                                      : usual);
}

} // namespace ReportRules
