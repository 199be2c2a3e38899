#include "backend/jobs/runningjob.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <unistd.h>

namespace {

TEST(RunningJob, TakesTheEntriesByRank) {
    TALConfig config;
    // Its fields: the task is the second, the process the fifth, host and address follow.
    config.readNewTalConfiguration(
        {"0, 2, 0, 0, 102, here, 10.0.0.1, /x", //
         "0, 0, 0, 0, 100, here, 10.0.0.1, /x", "0, 1, 0, 0, 0, here, 10.0.0.1, /x",
         "0, 3, 0, 0, 102, there, 10.0.0.2, /a/x", "0, 5, 0, 0, 105, alias, 10.0.0.1, /x",
         "0, 4, 0, 0, -1, here, 10.0.0.1, /x"});
    RunningJob job([](const std::string& host) { return host == "here" || host == "10.0.0.1"; });
    job.addEntries(config);
    EXPECT_EQ(job.targets(),
              (std::vector<Target>{{0, 100}, {2, 102}, {3, 102, "there", "x"}, {5, 105}}));
    EXPECT_EQ(job.notes(), (std::vector<std::string>{"task 1 is left out: it has no process",
                                                     "task 4 is left out: it has no process"}));
    EXPECT_THROW(job.addPids({7, 102}), std::runtime_error);
    config.readNewTalConfiguration({"0, 0, 0, 0, 100, -oProxyCommand=x, 10.0.0.9, /x"});
    EXPECT_THROW(job.addEntries(config), std::runtime_error);
}

TEST(RunningJob, KnowsTheNamesOfThisMachine) {
    char name[256] = "";
    ::gethostname(name, sizeof name - 1);
    for (const char* own : {"localhost", "127.0.0.1", static_cast<const char*>(name)})
        EXPECT_TRUE(RunningJob::isThisMachine(own)) << own;
    for (const char* other : {"", "192.0.2.9", "2001:db8::9", "no-such-host.example"})
        EXPECT_FALSE(RunningJob::isThisMachine(other)) << other;
}

} // namespace
