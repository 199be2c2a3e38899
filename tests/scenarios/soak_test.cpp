// Three consoles work on 64 clients at random, for VEX_SOAK_SECONDS: every answer is what the
// clients must have said, line by line for each of them, and the session does not grow.
#include "bench/answers.h"
#include "tests/support/vextest.h"

#include <algorithm>
#include <array>
#include <iostream>

namespace {

class SoakTest : public VexTest {
  protected:
    static constexpr int tasks = 64, consoles = 3, survivors = 24;

    std::mt19937 random{static_cast<unsigned>(soak("VEX_SOAK_SEED", 1))};
    std::map<int, Answers> model;
    ClientSet alive;
    std::map<int, std::unique_ptr<Peer>> peers;
    long checked = 0;

    int upTo(int most) { return std::uniform_int_distribution(0, most)(random); }

    static std::map<int, std::string> perClient(const Lines& lines) {
        std::map<int, std::string> said;
        for (const std::string& line : lines) {
            const std::size_t bar = line.find("| ");
            // On a busy machine, some are named before they answer.
            if (bar == std::string::npos || contain({line}, "| No answer yet from ")) continue;
            std::istringstream sets(line.substr(0, bar));
            for (std::string set; sets >> set;) {
                const int first = std::stoi(set), last = std::stoi(set.substr(set.find(':') + 1));
                for (int id = first; id <= last; ++id)
                    said[id] += line.substr(bar + 2) + "\n";
            }
        }
        return said;
    }

    // A command of a console to its clients, and what they say to it.
    struct Work {
        Peer& peer;
        ClientSet clients;
        std::string command;
        std::map<int, std::string> expected = {};
        bool runs = false;
    };
    Work begin(int console, const ClientSet& clients) {
        const char* const commands[] = {"print 1", "lines 20 200", "own 3", "where",
                                        "run",     "lines 400",    "set x", "run"};
        Peer& peer = *peers[console];
        Work work{peer, clients, upTo(60) == 0 ? "flood 1" : commands[upTo(7)]};
        for (const int id : clients) {
            Answers& answers = model.at(id);
            work.expected[id] = answers.to(work.command);
            work.runs = answers.running();
            if (work.runs) work.expected[id] += answers.interrupted();
        }
        peer.interrupted = "g" + std::to_string(console);
        peer.assign(peer.interrupted, clients);
        peer.deaf = true;
        peer.send(Command::CLIENT, peer.interrupted, work.command);
        return work;
    }
    void check(Work& work) {
        if (work.runs) work.peer.send(Command::INTERRUPT, work.peer.interrupted);
        auto said = perClient(work.peer.finish());
        checked += static_cast<long>(said.size());
        for (const int id : work.clients)
            ASSERT_EQ(said[id], work.expected[id]) << id << " on " << work.command;
    }
    void endOne() {
        const auto ranges = alive.ranges();
        const int last = static_cast<int>(ranges.size()) - 1;
        const int id = ranges[static_cast<std::size_t>(upTo(last))].first;
        if (upTo(1) == 0) {
            peers[0]->send(Command::CLIENT, std::to_string(id), "quit");
            EXPECT_EQ(peers[0]->finish().back(), "READY");
        } else {
            for (const pid_t each : named("gdb-standin", living())) {
                if (ProcessTree::variable(each, "VEX_TASK") == std::to_string(id))
                    ::kill(each, SIGKILL);
            }
            // Everybody is told, sooner or later; who asks before gets no answer from it.
            while (!contain(peers[0]->next(), "REPLY 5 " + std::to_string(id))) {
            }
        }
        alive.erase(id);
    }
    // What one of the tasks seems to have forked becomes a client.
    void forkOne() {
        peers[0]->command("fork", std::to_string(alive.ranges().front().first));
        const ClientSet found = peers[0]->forked(1);
        const int id = found.ranges().front().first;
        ASSERT_TRUE(model.try_emplace(id, id).second) << id;
        alive.insert(id);
    }
    long resident() const {
        long size = 0, pages = 0;
        std::istringstream(ProcessTree::fileOf(sessionPid(), "statm")) >> size >> pages;
        return pages * 4; // KiB
    }
};

TEST_F(SoakTest, EveryAnswerIsRightAndMemoryStaysFlat) {
    const int length = static_cast<int>(soak("VEX_SOAK_SECONDS", 4)) * 1000; // ms
    const std::string path =
        beginWith({"-n", std::to_string(tasks), "--debugger", program("gdb-standin"), "true"});
    for (int i = 0; i < tasks; ++i)
        model.try_emplace(i, i);
    ClientSet started;
    started.insertRange(0, tasks - 1);
    alive = started;
    for (int i = 0; i < consoles; ++i)
        peers[i] = std::make_unique<Peer>(path);
    const Deadline end{std::chrono::milliseconds(length)};
    std::array<long, 13> memory{}; // the most in each twelfth
    long rounds = 0;
    for (; end.left() > 0 && !HasFatalFailure(); ++rounds) {
        std::map<int, ClientSet> parts; // of the consoles
        for (const int id : alive) {
            if (const int part = upTo(consoles); part < consoles) parts[part].insert(id);
        }
        std::vector<Work> works;
        for (const auto& [console, clients] : parts)
            works.push_back(begin(console, clients));
        for (Work& work : works)
            check(work);
        if (upTo(200) == 0 && static_cast<int>(alive.size()) > survivors) endOne();
        ClientSet forked = alive;
        forked.erase(started);
        const bool room = forked.size() < 64; // the session's bound
        if (upTo(200) == 0 && static_cast<int>(alive.size()) < tasks + 8 && room) forkOne();
        if (upTo(20) == 0) peers[upTo(consoles - 1)] = std::make_unique<Peer>(path);
        long& most = memory[static_cast<std::size_t>(12LL * (length - end.left()) / length)];
        most = std::max(most, resident());
    }
    // Floods take more now and less then; what grows with the session's age does so for good.
    const long early = memory[1], late = *std::min_element(&memory[9], &memory[12]);
    if (length >= 5 * 60 * 1000) {
        EXPECT_GT(late, 0);
        EXPECT_LE(late, early + early / 10);
    }
    std::cout << rounds << " rounds, " << checked << " answers of " << alive.size()
              << " clients at the end; KiB in each twelfth:";
    for (const long each : memory)
        std::cout << ' ' << each;
    std::cout << std::endl;
    EXPECT_GT(checked, 0);
    quit(*peers[0]);
}

} // namespace
