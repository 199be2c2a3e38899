#include "frontend/tracing.h"

#include <gtest/gtest.h>

namespace {

Tracing::Facts facts(pid_t tracer = 0, const std::string& owner = "", int yama = 0) {
    Tracing::Facts known;
    known.exists = true;
    known.tracer = tracer;
    known.tracerName = "gdb";
    known.owner = owner;
    known.yamaScope = yama;
    return known;
}

// The reason that can be acted on first comes first.
TEST(Tracing, ARefusalNamesItsReasonAndTheWayOut) {
    Tracing::Facts zombie = facts(0, "", 1), thread = facts();
    zombie.zombie = true;
    thread.processOf = 41;
    const struct {
        Tracing::Facts known;
        const char* text;
    } cases[] = {
        {{}, "no such process"},
        {zombie, "has ended"},
        {thread, "thread of process 41"},
        {facts(0, "eva", 1), "belongs to eva. Run vex as eva."},
        {facts(7, "", 1), "process 7 (gdb) traces it already"},
        {facts(0, "", 1), "sudo sysctl kernel.yama.ptrace_scope=0"},
        {facts(0, "", 2), "only administrators"},
        {facts(0, "", 3), "booted again"},
        {facts(), "--cap-add=SYS_PTRACE"},
    };
    for (const auto& each : cases) {
        const std::string text = Tracing::refusal(42, each.known);
        EXPECT_TRUE(text.starts_with("cannot attach to process 42: ")) << text;
        EXPECT_NE(text.find(each.text), std::string::npos) << text;
    }
}

} // namespace
