#include "frontend/session/startprogress.h"
#include "tests/support/testing.h"

namespace {

TEST(StartProgress, TellsHowFarAndWhoIsWaitedFor) {
    const struct {
        StartProgress::Facts facts;
        std::size_t columns;
        const char* text;
    } cases[] = {
        {{97312, 100000, {"node17"}, true}, 80, "97,312 of 100,000 \xC2\xB7 waiting for node17"},
        {{0, 131072, {"a", "b", "c", "d"}, true},
         80,
         "0 of 131,072 \xC2\xB7 waiting for a, b, c and 1 more"},
        {{999, 1000, {"gdb"}}, 80, "999 of 1,000 \xC2\xB7 waiting for gdb"},
        {{0, 0, {"mpirun"}, false, true}, 80, "waiting for mpirun \xC2\xB7 Ctrl-C gives up"},
        {{1, 8, {"gdb"}}, 8, "1 of 8 \xC2\xB7"},
        {{1, 8, {"gdb"}}, 7, "1 of 8 "},
        {{1, 8, {"gdb"}}, 0, ""},
        {{1, 8, {"n\xC3\xB6"}, true}, 22, "1 of 8 \xC2\xB7 waiting for n"},
        {{1, 8, {"n\xC3\xB6"}, true}, 23, "1 of 8 \xC2\xB7 waiting for n\xC3\xB6"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(StartProgress::line(each.facts, each.columns, true), each.text);
    EXPECT_EQ(StartProgress::line({1, 8, {"gdb"}}, 80, false), "1 of 8 - waiting for gdb");
}

} // namespace
