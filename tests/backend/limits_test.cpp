#include "backend/os/limits.h"

#include <gtest/gtest.h>

TEST(Limits, SaysWhatIsTooMuchAndWhatToDo) {
    const auto refusal = [](int tasks, const Limits::Facts& facts) {
        return Limits::refusal(tasks, facts).value_or("");
    };
    const std::string pty = ". The administrator can allow more: sysctl kernel.pty.max";
    EXPECT_EQ(refusal(320, {1024, 4096}), "");
    EXPECT_EQ(refusal(321, {1024, 4096}),
              "321 tasks need 1027 open files, and only 1024 are allowed here (ulimit -Hn).");
    EXPECT_EQ(refusal(2048, {RLIM_INFINITY, 4096}), "");
    EXPECT_EQ(refusal(2049, {RLIM_INFINITY, 4096}),
              "2049 tasks need 4098 pseudo-terminals, and only 4096 are free here" + pty);
    EXPECT_EQ(refusal(1, {1024, 0}),
              "1 tasks need 2 pseudo-terminals, and only 0 are free here" + pty);
}
