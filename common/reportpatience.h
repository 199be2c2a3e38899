#pragma once

#include "common/wholenumber.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>

/// How long a report waits for debuggers that give no sign: two minutes, for they may have to read
/// symbols first, or what VEX_REPORT_PATIENCE says.
inline std::chrono::seconds reportPatience() {
    constexpr int usual = 120;
    const char* const given = std::getenv("VEX_REPORT_PATIENCE");
    return std::chrono::seconds(given ? std::max(1, wholeNumber<int>(given).value_or(usual))
                                      : usual);
}
