// Three consoles work on 64 clients at random, for VEX_SOAK_SECONDS: every answer is what the
// clients must have said, line by line for each of them, and the session does not grow.
#include "bench/answers.h"
#include "tests/support/vextest.h"

#include <iostream>

namespace {

class SoakTest : public VexTest {
  protected:
    static constexpr int tasks = 64, consoles = 3, survivors = 24;

    std::mt19937 random{static_cast<unsigned>(soak("VEX_SOAK_SEED", 1))};
    std::vector<Answers> model;
    ClientSet alive;
    std::vector<std::unique_ptr<Peer>> peers;
    long checked = 0;

    int upTo(int most) { return std::uniform_int_distribution(0, most)(random); }

    static std::map<int, std::string> perClient(const Lines& lines) {
        std::map<int, std::string> said;
        for (const std::string& line : lines) {
            const std::size_t bar = line.find("| ");
            if (bar == std::string::npos) continue;
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
        std::string name;
        ClientSet clients;
        std::string command;
        std::map<int, std::string> expected;
        bool runs = false;
    };
    Work begin(int console, const ClientSet& clients) {
        const char* const commands[] = {"print 1", "lines 20 200", "own 3", "where",
                                        "run",     "lines 400",    "set x", "run"};
        Work work{"g" + std::to_string(console),
                  clients,
                  upTo(60) == 0 ? "flood 1" : commands[upTo(7)],
                  {},
                  false};
        for (const int id : clients) {
            Answers& answers = model[static_cast<std::size_t>(id)];
            std::string text = answers.to(work.command);
            work.runs = answers.running();
            if (work.runs) text += answers.interrupted();
            if (!text.empty()) work.expected[id] = text;
        }
        Peer& peer = *peers[static_cast<std::size_t>(console)];
        peer.assign(work.name, clients);
        peer.interrupted = work.name;
        peer.deaf = true;
        peer.send(Command::CLIENT, work.name, work.command);
        return work;
    }
    void check(int console, const Work& work) {
        Peer& peer = *peers[static_cast<std::size_t>(console)];
        if (work.runs) peer.send(Command::INTERRUPT, work.name);
        const auto said = perClient(peer.finish());
        checked += static_cast<long>(said.size());
        for (const int id : work.clients) {
            const auto is = said.find(id), should = work.expected.find(id);
            ASSERT_EQ(is == said.end() ? "" : is->second,
                      should == work.expected.end() ? "" : should->second)
                << id << " on " << work.command;
        }
    }
    void endOne() {
        const int id = alive
                           .ranges()[static_cast<std::size_t>(
                               upTo(static_cast<int>(alive.ranges().size()) - 1))]
                           .first;
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
    long resident() const {
        long size = 0, pages = 0;
        std::istringstream(ProcessTree::fileOf(sessionPid(), "statm")) >> size >> pages;
        return pages * 4; // KiB
    }
};

TEST_F(SoakTest, EveryAnswerIsRightAndMemoryStaysFlat) {
    using Time = std::chrono::steady_clock;
    const std::chrono::seconds length(soak("VEX_SOAK_SECONDS", 4));
    const std::string path =
        beginWith({"-n", std::to_string(tasks), "--debugger", program("gdb-standin"), "true"});
    for (int i = 0; i < tasks; ++i)
        model.emplace_back(i);
    alive.insertRange(0, tasks - 1);
    for (int i = 0; i < consoles; ++i)
        peers.push_back(std::make_unique<Peer>(path));
    const auto start = Time::now();
    long early = 0, late = 0, rounds = 0; // the most memory, after a twelfth and at the end
    for (; Time::now() - start < length && !HasFatalFailure(); ++rounds) {
        std::vector<ClientSet> parts(consoles);
        for (const int id : alive) {
            if (const int part = upTo(consoles); part < consoles)
                parts[static_cast<std::size_t>(part)].insert(id);
        }
        std::map<int, Work> works;
        for (int i = 0; i < consoles; ++i) {
            const ClientSet& clients = parts[static_cast<std::size_t>(i)];
            if (!clients.empty()) works[i] = begin(i, clients);
        }
        for (const auto& [console, work] : works)
            check(console, work);
        if (upTo(200) == 0 && static_cast<int>(alive.size()) > survivors) endOne();
        if (upTo(20) == 0) peers[static_cast<std::size_t>(upTo(2))] = std::make_unique<Peer>(path);
        const auto passed = Time::now() - start;
        if (passed < length / 12) continue;
        (passed < length / 6 ? early : late) =
            std::max(passed < length / 6 ? early : late, resident());
    }
    if (length >= std::chrono::minutes(5)) {
        EXPECT_LE(late, early + early / 10);
    }
    std::cout << rounds << " rounds, " << checked << " answers of " << alive.size()
              << " clients at the end; memory " << early << " KiB early, " << late
              << " KiB at most\n";
    EXPECT_GT(checked, 0);
    quit(*peers[0]);
}

} // namespace
