#pragma once

#include "report/report.h"

#include <string>

/// A report for programs, as vex(5) documents it: one object of JSON (RFC 8259).
struct JsonForm {
    /// Changes when a member goes away or means something else, not when one is added.
    static constexpr int version = 1;

    static std::string of(const Report& report);
};
