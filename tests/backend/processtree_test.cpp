#include "backend/os/processtree.h"

#include <gtest/gtest.h>

#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(ProcessTree, ProcessesMayVanishWhileTheyAreLookedAt) {
    const pid_t forker = ::fork();
    if (forker == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            if (::fork() == 0) ::_exit(0);
            ::waitpid(-1, nullptr, 0);
        }
    }
    std::size_t seen = 0;
    for (int look = 0; look < 1000; ++look)
        seen += ProcessTree::descendants(forker).size();
    EXPECT_GT(seen, 0u);
    ::kill(forker, SIGKILL);
    ::waitpid(forker, nullptr, 0);
    EXPECT_EQ(ProcessTree::nameOf(forker), "");
}

} // namespace
