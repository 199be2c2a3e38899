#include "backend/drivers/gdb.h"
#include "backend/wire/servednode.h"
#include "frontend/switchboard/switchboard.h"
#include "tests/support/testing.h"

#include <deque>
#include <memory>

using namespace std::chrono_literals;

namespace {

// A node whose debuggers are played: everything that passes between it and the session is packed.
class PlayedNode : public Node, private ServedNode::Outlet {
  public:
    PlayedNode(const Driver& driver, Node::Listener& session, std::string where,
               const ClientSet& clients)
        : listener(session), served(driver, "", *this), name(std::move(where)), known(clients) {
        for (const int id : known) {
            served.add(id, true);
            served.prompted(id, false, {});
        }
    }

    std::size_t bytesUp = 0, bytesDown = 0;
    std::string typed;     // for the first of those that got it
    ClientSet told;        // clients at which something was typed
    ClientSet interrupted; // the same of SIGINT

    // A debugger prints, and prompts.
    void answers(int id, const std::string& text, Clock::time_point now) {
        latest = now;
        served.output(id, text, now);
        served.prompted(id, false, now);
    }
    void prints(int id, const std::string& text, Clock::time_point now) {
        served.output(id, text, now);
    }
    void ends(int id, Clock::time_point now) { served.ended(id, now); }
    std::optional<Clock::time_point> deadline() const { return served.deadline(); }
    void tick(Clock::time_point now) {
        latest = now;
        served.tick(now);
    }
    const ClientSet& clients() const { return known; }

  private:
    Node::Listener& listener;
    ServedNode served;
    const std::string name;
    const ClientSet known;
    Clock::time_point latest{};

    void carry(const AgentRecord& record, Clock::time_point now) {
        bytesDown += record.frames().size();
        EXPECT_TRUE(served.take(record, now));
    }
    void begin(const ClientSet& clients, const Work& work, Clock::time_point now) override {
        carry(NodeRecords::begin(clients, work), now);
    }
    void type(const ClientSet& clients, const std::string& line) override {
        carry(NodeRecords::type(clients, line), {});
    }
    void interrupt(const ClientSet& clients, Clock::time_point now) override {
        carry(NodeRecords::interrupt(clients), now);
    }
    ClientSet reply(const ClientSet& clients, const std::string& text,
                    Clock::time_point now) override {
        carry(NodeRecords::reply(clients, text), now);
        return clients;
    }
    const std::string& host() const override { return name; }

    void toClient(int client, const std::string& line) override {
        if (told.insert(client) && told.size() == 1) typed = line;
    }
    void interrupt(int client) override { interrupted.insert(client); }
    void send(const AgentRecord& record) override {
        bytesUp += record.frames().size();
        NodeRecords::tell(record, known, listener, latest);
    }
};

// 80 nodes of 128 clients, the ranks dealt out round by round, and a console.
class NodesTest : public testing::Test, private Switchboard::Outlet {
  protected:
    static constexpr int nodeCount = 80, clientCount = 80 * 128;

    Gdb gdb{"gdb"};
    Switchboard board{clientCount, gdb, *this};
    std::deque<PlayedNode> nodes;
    Clock::time_point now{};
    std::vector<std::string> lines; // "0:3 | text" of all records
    int records = 0;
    int readies = 0;

    NodesTest() {
        for (int i = 0; i < nodeCount; ++i) {
            ClientSet clients;
            for (int id = i; id < clientCount; id += nodeCount)
                clients.insert(id);
            nodes.emplace_back(gdb, board, "node" + std::to_string(i), clients);
            board.setNode(clients, nodes.back());
        }
        board.consoleJoined(1);
        mostBytes(&PlayedNode::bytesUp); // those of the start
    }

    void types(const std::string& line, Command::Type type = Command::CLIENT) {
        Command command;
        command.init(1, "all", type, line.c_str(), -1);
        board.command(1, command, now);
    }
    std::size_t mostBytes(std::size_t PlayedNode::*which) {
        std::size_t most = 0;
        for (PlayedNode& node : nodes)
            most = std::max(most, std::exchange(node.*which, 0));
        return most;
    }
    void pass(std::chrono::milliseconds time) {
        now += time;
        for (PlayedNode& node : nodes)
            node.tick(now);
        board.tick(now);
    }

  private:
    void toConsole(int, const Reply&) override {}
    void toConsoles(const std::vector<int>&, const Data& data) override { toConsole(1, data); }
    void toConsole(int, const Data& data) override {
        readies += data.getType() == Data::READY;
        if (data.getType() != Data::TEXT) return;
        ++records;
        for (const auto& [number, slot] : data.slots())
            for (const auto& line : slot.lines)
                lines.push_back(line.clients().str() + "| " + std::string(line.getContent()));
    }
    void toClient(int, const std::string&) override { FAIL(); }
    void interrupt(int) override { FAIL(); }
    void startUserProgram(int, const std::string&, const std::string&) override {}
    void stopUserProgram(int) override {}
    bool isProgram(const std::string&) override { return false; }
    std::string describe(int) override { return ""; }
    void sessionOver() override {}
    void wakeAt(std::optional<Clock::time_point>) override {}
};

TEST_F(NodesTest, EqualLinesCostByTheNodeAndArriveAsOneRecord) {
    types("info threads");
    EXPECT_LE(mostBytes(&PlayedNode::bytesDown), 64u);
    std::string text;
    for (int i = 0; i < 100; ++i)
        text += "a line that all of them print, number " + std::to_string(i) + "\n";
    for (PlayedNode& node : nodes) {
        EXPECT_EQ(node.typed, "info threads");
        EXPECT_EQ(node.told, node.clients());
        for (const int id : node.clients())
            node.answers(id, text, now);
    }
    EXPECT_LE(mostBytes(&PlayedNode::bytesUp), 10000u);
    EXPECT_EQ(records, 1);
    EXPECT_EQ(lines.size(), 100u);
    EXPECT_EQ(lines.back(), "0:10239 | a line that all of them print, number 99");
    EXPECT_EQ(readies, 1);
}

// Each record of the node holds those of its last moment.
TEST_F(NodesTest, WhatANodesClientsSayOneAfterTheOtherFolds) {
    types("continue");
    const std::vector<int> clients(nodes[5].clients().begin(), nodes[5].clients().end());
    for (std::size_t i = 0; i < 36; i += 2) {
        for (const int id : {clients[i], clients[i + 1]})
            nodes[5].answers(id, "stopped\n", now);
        pass(50ms);
    }
    EXPECT_EQ(records, 0);
    pass(200ms);
    EXPECT_EQ(records, 1);
    EXPECT_EQ(lines.size(), 1u);
}

TEST_F(NodesTest, ASlowNodeHoldsNobodyAndIsNamed) {
    types("continue");
    for (PlayedNode& node : nodes) {
        if (&node == &nodes[17]) continue;
        for (const int id : node.clients())
            node.answers(id, "stopped\n", now);
    }
    pass(200ms);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(readies, 0);
    pass(5s);
    EXPECT_TRUE(lines.back().ends_with("10097 10177 on node17")) << lines.back();
    // Half of it comes after a while; the rest is interrupted, or gone.
    for (const int id : nodes[17].clients()) {
        if (id < 5000) nodes[17].answers(id, "late\n", now);
    }
    pass(200ms); // the node's moment
    pass(200ms);
    EXPECT_TRUE(lines.back().ends_with(" | late"));
    Command command;
    command.init(1, "all", Command::INTERRUPT, "", 0);
    board.command(1, command, now);
    ClientSet rest;
    for (const int id : nodes[17].clients()) {
        if (id >= 5000) rest.insert(id);
    }
    EXPECT_EQ(nodes[17].interrupted, rest);
    EXPECT_TRUE(nodes[16].interrupted.empty());
    const int last = rest.back();
    rest.erase(last);
    for (const int id : rest)
        nodes[17].answers(id, "received signal SIGINT\n", now);
    pass(200ms);
    EXPECT_EQ(readies, 0);
    board.clientGone(last, now);
    EXPECT_EQ(readies, 1);
}

TEST_F(NodesTest, StacksAreMergedByTheNodes) {
    types("stat", Command::STATCLIENT);
    for (PlayedNode& node : nodes) {
        for (const int id : node.clients())
            node.answers(id,
                         "\nThread 1 (LWP 1):\n#0  f" + std::to_string(id % 4) +
                             " () at p.c:1\n#1  0x1 in main () at m.c:2\n",
                         now);
    }
    EXPECT_LE(mostBytes(&PlayedNode::bytesUp), 1000u);
    EXPECT_EQ(lines.size(), 9u);
    EXPECT_TRUE(lines[0].ends_with("| 2560 clients in f0, called by main"));
    EXPECT_EQ(lines[4], "0:10239 | main");
}

} // namespace
