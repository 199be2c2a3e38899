#pragma once

#include "report/report.h"

#include <string>

/// A report as a text to read: the culprits first, then what was found out, a section each.
struct TextForm {
    static std::string of(const Report& report);
};
