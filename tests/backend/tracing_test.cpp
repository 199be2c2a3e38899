#include "backend/os/tracing.h"

#include <gtest/gtest.h>

namespace {

// The reason that can be acted on first comes first.
TEST(Tracing, ARefusalNamesItsReasonAndTheWayOut) {
    const struct {
        // Whether it exists and is a zombie, its process, owner, tracer and its name, yama's scope.
        Tracing::Facts known;
        const char* text;
    } cases[] = {
        {{}, "no such process"},
        {{true, true, -1, "", 0, "", 1}, "has ended"},
        {{true, false, 41, "", 0, "", 0}, "thread of process 41"},
        {{true, false, -1, "eva", 0, "", 1}, "belongs to eva. Run vex as eva."},
        {{true, false, -1, "", 7, "gdb", 1}, "process 7 (gdb) traces it already"},
        {{true, false, -1, "", 0, "", 1}, "sudo sysctl kernel.yama.ptrace_scope=0"},
        {{true, false, -1, "", 0, "", 2}, "only administrators"},
        {{true, false, -1, "", 0, "", 3}, "booted again"},
        {{true, false, -1, "", 0, "", 0}, "--cap-add=SYS_PTRACE"},
    };
    for (const auto& each : cases) {
        const std::string text = Tracing::refusal(42, each.known);
        EXPECT_TRUE(text.starts_with("cannot attach to process 42: ")) << text;
        EXPECT_NE(text.find(each.text), std::string::npos) << text;
    }
}

} // namespace
