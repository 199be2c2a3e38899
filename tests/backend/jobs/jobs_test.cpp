#include "backend/jobs/hostfile.h"
#include "backend/jobs/launcher.h"
#include "backend/jobs/runningjob.h"
#include "backend/os/text.h"
#include "tests/support/testing.h"

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

// What a call gives, or what it throws, as one text.
template <typename Call>
std::string outcome(Call call) {
    try {
        std::string text;
        for (const std::string& each : call())
            text += (text.empty() ? "" : "|") + each;
        return text;
    } catch (const std::runtime_error& error) {
        return std::string("! ") + error.what();
    }
}

TEST(HostFile, NamesTheHostOfEachTask) {
    const std::string help = "; a line is: host, host:n or host slots=n";
    const struct {
        std::string text, expected;
    } cases[] = {
        {"a\nb\na\n", "a|b|a"},
        {"# all\n\n  a:2 # two\nuser@b slots=2 max_slots=4\r\nc slots = 1", "a|a|user@b|user@b|c"},
        {"fe80::1\n[fe80::2]:2\n[fe80::3]\n", "fe80::1|fe80::2|fe80::2|fe80::3"},
        {"a:5\n", "a|a|a|a|a"},
        {"a:5\nb\n", "! hosts, line 2: that are more than 5 tasks."},
        {"a:99999999999999999999\n",
         "! hosts, line 1: '99999999999999999999' is no number of tasks" + help},
        {"a slots=0\n", "! hosts, line 1: '0' is no number of tasks" + help},
        {"a\nb:\n", "! hosts, line 2: '' is no number of tasks" + help},
        {"a 4\n", "! hosts, line 1: '4' is not understood here" + help},
        {"a slots\n", "! hosts, line 1: 'slots' is not understood here" + help},
        {"-oProxyCommand=x\n", "! hosts, line 1: '-oProxyCommand' is no host" + help},
        {":3\n", "! hosts, line 1: '' is no host" + help},
        {"# nobody\n", "! hosts names no host."},
    };
    for (const auto& each : cases) {
        std::istringstream in(each.text);
        EXPECT_EQ(outcome([&] { return HostFile::read(in, "hosts", 5); }), each.expected);
    }
}

TEST(Launcher, SplitsItsCommandLineAsAShellDoes) {
    ::setenv("VEX_TEST_WORD", "two words", 1);
    const struct {
        std::string text, expected;
    } cases[] = {
        {"mpirun -np 4", "mpirun|-np|4"},
        {"  mpirun  -x 'A=b c' \"d e\"f g\\ h ", "mpirun|-x|A=b c|d ef|g h"},
        {"mpirun --host 'n{1,2}' \"$VEX_TEST_WORD\"", "mpirun|--host|n{1,2}|two words"},
        {"", "! the launcher is empty."},
        {"mpirun 'x", "! the launcher 'mpirun 'x' has a quote that is not closed."},
        {"mpirun; rm x", "! the launcher 'mpirun; rm x' has one of |&;<>(){} outside quotes."},
        {"mpirun -np $(nproc)", "! the launcher 'mpirun -np $(nproc)' would run a command by "
                                "itself; put its result there."},
    };
    for (const auto& each : cases)
        EXPECT_EQ(outcome([&] { return Launcher::split(each.text); }), each.expected);
    for (const std::string word : {"'a", "a'", "it's", "''", "", "a b$"})
        EXPECT_EQ(Launcher::split(Text::quoted(word)), std::vector<std::string>{word});
    ::unsetenv("VEX_TEST_WORD");
}

} // namespace
