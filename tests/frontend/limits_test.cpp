#include "frontend/limits.h"

#include <gtest/gtest.h>

TEST(Limits, SaysWhatIsTooMuchAndWhatToDo) {
    const struct {
        int tasks;
        Limits::Facts facts;
        const char* what; // empty: it fits
    } cases[] = {
        {1, {1024, 4096}, ""},
        {320, {1024, 4096}, ""},
        {321,
         {1024, 4096},
         "321 tasks need 1027 open files, and only 1024 are allowed here (ulimit -Hn)."},
        {2048, {RLIM_INFINITY, 4096}, ""},
        {2049,
         {RLIM_INFINITY, 4096},
         "2049 tasks need 4098 pseudo-terminals, and only 4096 are free here. The administrator "
         "can allow more: sysctl kernel.pty.max"},
        {1,
         {1024, 0},
         "1 tasks need 2 pseudo-terminals, and only 0 are free here. The administrator can allow "
         "more: sysctl kernel.pty.max"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(Limits::refusal(each.tasks, each.facts).value_or(""), each.what);
}
