#pragma once

#include "report/report.h"

#include <string>

/// A report as one page for a browser, which needs nothing else: the ranks as a grid coloured by
/// place, the tree of the stacks, and of a rank that is chosen its stack and its output.
struct HtmlForm {
    static std::string of(const Report& report);
};
