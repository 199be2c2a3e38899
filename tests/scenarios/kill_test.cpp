// Whichever process of a session is killed, and whenever: nothing is left of the session, its
// socket file goes with the next "vex --list", and what it has attached to runs on. The rounds
// follow from VEX_SOAK_SEED; they go on until VEX_SOAK_KILLS have met their process.
#include "tests/support/vextest.h"
#include "tests/support/walker.h"

#include <deque>
#include <iostream>

namespace {

struct Plan {
    const char* name;
    Lines arguments;
    Lines programs; // of the processes besides foreground, guardian, session and console
    Lines typed;    // a command, one with much output, one that runs
};

class KillTest : public VexTest {
  protected:
    enum Phase { START, PROMPT, COMMAND, FLOOD, STOP, END, PHASES };

    std::mt19937 random;
    std::deque<Walker> walkers;
    int slowest = 0; // of the ends, in ms

    int upTo(int most) { return std::uniform_int_distribution(0, most)(random); }
    // A console that nobody reads from stands still.
    void watchFor(int ms) {
        for (const Deadline end{std::chrono::milliseconds(ms)}; end.left() > 0; sleepFor(1))
            vex->screen();
    }

    void start(const Plan& plan) {
        Lines arguments = plan.arguments;
        walkers.clear();
        if (plan.arguments.back() == "--attach") {
            walkers.emplace_back();
            walkers.emplace_back();
            arguments.push_back(walkers[0].number() + "," + walkers[1].number());
        }
        launch(arguments);
    }
    void goTo(Phase phase, const Plan& plan) {
        if (phase == START) return watchFor(upTo(200));
        vex->until("(all) ");
        const auto type = [this](const std::string& line, int ms) {
            vex->type(line + "\n");
            watchFor(upTo(ms));
        };
        if (phase == PROMPT) watchFor(upTo(10));
        if (phase == COMMAND) type(plan.typed[0], 20);
        if (phase == FLOOD) type(plan.typed[1], 200);
        if (phase == END) type("kquit\ny", 100);
        if (phase != STOP) return;
        type(plan.typed[2], 100);
        vex->signal(SIGINT);
        for (const pid_t console : named("vexconsole", living()))
            ::kill(console, SIGINT);
        type("interrupt", 50);
    }

    // A process of the session, by the name of its part; -1: there is none at the moment.
    pid_t find(const std::string& part) {
        if (part == "foreground") return vex->running() ? vex->pid() : -1;
        if (part == "guardian") return childOf(vex->pid(), "vex");
        if (part == "session") return sessionPid();
        if (part == "steadily") return walkers[static_cast<std::size_t>(upTo(1))].pid();
        const auto found = named(part, living());
        return found.empty() ? -1 : found[static_cast<std::size_t>(upTo(1)) % found.size()];
    }

    // Whether nothing is left soon. A session that goes on is asked to end.
    void expectEnd(bool byItself) {
        constexpr int bound = 5000;
        if (!byItself) {
            watchFor(50);
            for (const pid_t id : named("vex", living()))
                ::kill(id, SIGTERM);
        }
        const Deadline end{std::chrono::milliseconds(2 * bound)};
        while ((!living().empty() || vex->running()) && end.left() > 0)
            watchFor(10);
        slowest = std::max(slowest, 2 * bound - end.left());
        std::string rest;
        for (const pid_t id : living())
            rest += " " + std::to_string(id) + " " + ProcessTree::nameOf(id);
        EXPECT_EQ(rest, "") << vex->screen();
        EXPECT_LT(slowest, bound);
        EXPECT_TRUE(!std::filesystem::exists(folder.path("launch")) ||
                    std::filesystem::is_empty(folder.path("launch")));
        kill(living());
    }

    // Whether the next "vex --list" removes the socket files that belong to no living process.
    void expectNoSockets() {
        std::map<std::string, long long> dead;
        for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
            const std::string path = entry.path().string();
            struct stat status {};
            if (path.starts_with("/tmp/.vexsock.") && ::lstat(path.c_str(), &status) == 0 &&
                status.st_uid == ::getuid() && S_ISSOCK(status.st_mode))
                dead[path] = timeOf(path);
        }
        // Read last: what is not in it, although its file was there, is dead.
        const std::string living = ProcessTree::fileOf(::getpid(), "net/unix");
        std::erase_if(dead, [&](const auto& each) {
            return living.find(" " + each.first + "\n") != std::string::npos;
        });
        // One that belongs to another test may still be claimed by a foreground that is about to
        // end.
        EXPECT_TRUE(eventually([&] {
            launch({"--list"});
            EXPECT_EQ(vex->exitStatus(), 0);
            std::erase_if(dead, [](const auto& each) { return timeOf(each.first) != each.second; });
            return dead.empty();
        })) << (dead.empty() ? "" : dead.begin()->first);
    }
};

TEST_F(KillTest, WhoeverIsKilledNothingIsLeft) {
    const long seed = soak("VEX_SOAK_SEED", 1);
    const long kills = soak("VEX_SOAK_KILLS", 30);
    random.seed(static_cast<unsigned>(seed));
    ::setenv("VEX_LAUNCH_DIR", folder.path("launch").c_str(), 1);
    // A leak checker forks the process at its end, as a part that is not one of the session's; its
    // parent waits for ever when that is killed.
    const char* const options = std::getenv("ASAN_OPTIONS");
    ::setenv("ASAN_OPTIONS", (std::string(options ? options : "") + ":detect_leaks=0").c_str(), 1);
    const std::string standin = program("gdb-standin");
    const std::string loop = script("loop", "#!/bin/sh\nfor r in 0 1; do PMI_SIZE=2 PMI_RANK=$r "
                                            "\"$@\" & done\nwait\n");
    const std::string manyLines = "python for i in range(100000): print(i)";
    const Lines plain{"own 100", "flood 4", "run"};
    const Plan plans[] = {
        {"local", {"-n", "2", "--debugger", standin, "true"}, {"gdb-standin"}, plain},
        {"launched",
         {"--launch", loop, "--debugger", standin, "true"},
         {"gdb-standin", "vexagent", "vexagent-node", "loop"},
         plain},
        {"local",
         {"-n", "2", program("halo")},
         {"gdb", "halo"},
         {"info line main", manyLines, "run"}},
        {"attached", {"--attach"}, {"gdb", "steadily"}, {"where", manyLines, "continue"}},
    };
    long killed = 0;
    // In some rounds the victim has ended before its turn.
    for (long round = 0; killed < kills && round < 4 * kills && !HasFailure(); ++round) {
        // Real debuggers take a second each.
        const Plan& plan = plans[round % 8 == 3 ? 3 : round % 8 == 7 ? 2 : upTo(1)];
        const auto phase = static_cast<Phase>(upTo(PHASES - 1));
        Lines parts{"foreground", "guardian", "session", "vexconsole"};
        parts.insert(parts.end(), plan.programs.begin(), plan.programs.end());
        const int last = static_cast<int>(parts.size()) - 1;
        const std::string part = parts[static_cast<std::size_t>(upTo(last))];
        const bool stopped = upTo(2) == 0;
        SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round) + ": " +
                     plan.name + ", phase " + std::to_string(phase) + ", " + part +
                     (stopped ? ", stopped before" : ""));
        start(plan);
        goTo(phase, plan);
        const pid_t victim = find(part);
        if (victim != -1 && stopped) {
            ::kill(victim, SIGSTOP);
            watchFor(upTo(100));
        }
        if (victim != -1 && ::kill(victim, SIGKILL) == 0) ++killed;
        const bool ends = part == "foreground" || part == "guardian" || part == "session";
        // A console that is killed may not have sent its kquit.
        expectEnd((ends && victim != -1) || (phase == END && part != "vexconsole"));
        if (part != "vexconsole") {
            EXPECT_TRUE(vex->isRestored()) << "the terminal";
        }
        for (const Walker& walker : walkers)
            EXPECT_TRUE(walker.pid() == victim || walker.walks()) << walker.number();
        expectNoSockets();
        if (round % 100 == 99 || killed == kills)
            std::cout << round + 1 << " rounds, " << killed << " killed; the slowest end took "
                      << slowest << " ms" << std::endl;
    }
    EXPECT_EQ(killed, kills);
    ::unsetenv("VEX_LAUNCH_DIR");
}

} // namespace
