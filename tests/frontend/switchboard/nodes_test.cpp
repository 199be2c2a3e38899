#include "backend/wire/servednode.h"
#include "tests/frontend/switchboard/switchboardtest.h"

#include <deque>

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

// 80 nodes of 128 clients, the ranks dealt out round by round.
class NodesTest : public SwitchboardTest {
  protected:
    static constexpr int nodeCount = 80, clientCount = 80 * 128;

    std::deque<PlayedNode> nodes;

    NodesTest() : SwitchboardTest(clientCount) {
        for (int i = 0; i < nodeCount; ++i) {
            ClientSet clients;
            for (int id = i; id < clientCount; id += nodeCount)
                clients.insert(id);
            nodes.emplace_back(gdb, board, "node" + std::to_string(i), clients);
            board.setNode(clients, nodes.back());
        }
        mostBytes(&PlayedNode::bytesUp); // those of the start
    }

    std::size_t mostBytes(std::size_t PlayedNode::*which) {
        std::size_t most = 0;
        for (PlayedNode& node : nodes)
            most = std::max(most, std::exchange(node.*which, 0));
        return most;
    }
    // As pass, for the nodes as well.
    std::string passes(std::chrono::milliseconds time) {
        for (PlayedNode& node : nodes)
            node.tick(now + time);
        return pass(time);
    }
};

TEST_F(NodesTest, EqualLinesCostByTheNodeAndArriveAsOneRecord) {
    types(1, "all", "info threads");
    EXPECT_LE(mostBytes(&PlayedNode::bytesDown), 64u);
    std::string text, shown;
    for (int i = 0; i < 100; ++i) {
        const std::string line = "a line that all of them print, number " + std::to_string(i);
        text += line + "\n";
        shown += "1 " + std::to_string(i) + "@0:10239 " + line + " / ";
    }
    for (PlayedNode& node : nodes) {
        EXPECT_EQ(node.typed, "info threads");
        EXPECT_EQ(node.told, node.clients());
        for (const int id : node.clients())
            node.answers(id, text, now);
    }
    EXPECT_LE(mostBytes(&PlayedNode::bytesUp), 10000u);
    EXPECT_EQ(records, 1);
    EXPECT_EQ(happened(), shown + "1 READY 1");
}

// Each record of the node holds those of its last moment.
TEST_F(NodesTest, WhatANodesClientsSayOneAfterTheOtherFolds) {
    types(1, "all", "continue");
    const std::vector<int> clients(nodes[5].clients().begin(), nodes[5].clients().end());
    for (std::size_t i = 0; i < 36; i += 2) {
        for (const int id : {clients[i], clients[i + 1]})
            nodes[5].answers(id, "stopped\n", now);
        EXPECT_EQ(passes(50ms), "");
    }
    const std::string told = passes(200ms);
    EXPECT_EQ(std::count(told.begin(), told.end(), '@'), 1) << told;
}

TEST_F(NodesTest, ASlowNodeHoldsNobodyAndIsNamed) {
    types(1, "all", "continue");
    for (PlayedNode& node : nodes) {
        for (const int id : node.clients())
            if (&node != &nodes[17]) node.answers(id, "stopped\n", now);
    }
    const std::string told = passes(400ms);
    EXPECT_TRUE(told.ends_with(" stopped")) << told;
    EXPECT_EQ(std::count(told.begin(), told.end(), '@'), 1);
    EXPECT_TRUE(passes(5s).ends_with("10097 10177 on node17"));
    // Half of it comes after a while; the rest is interrupted, or gone.
    ClientSet half, rest;
    for (const int id : nodes[17].clients())
        (id < 5000 ? half : rest).insert(id);
    for (const int id : half)
        nodes[17].answers(id, "late\n", now);
    passes(200ms); // the node's moment
    EXPECT_TRUE(passes(400ms).ends_with(" late"));
    interrupts("all");
    EXPECT_EQ(nodes[17].interrupted, rest);
    EXPECT_TRUE(nodes[16].interrupted.empty());
    const int last = rest.back();
    rest.erase(last);
    for (const int id : rest)
        nodes[17].answers(id, "received signal SIGINT\n", now);
    EXPECT_EQ(passes(200ms).find("READY"), std::string::npos);
    EXPECT_TRUE(dies(last).ends_with(" / 1 READY 1"));
}

TEST_F(NodesTest, StacksAreMergedByTheNodes) {
    send(1, STATCLIENT, "all", "stat");
    for (PlayedNode& node : nodes) {
        for (const int id : node.clients())
            node.answers(id,
                         "\nThread 1 (LWP 1):\n#0  f" + std::to_string(id % 4) +
                             " () at p.c:1\n#1  0x1 in main () at m.c:2\n",
                         now);
    }
    EXPECT_LE(mostBytes(&PlayedNode::bytesUp), 1000u);
    const std::string told = happened();
    EXPECT_EQ(std::count(told.begin(), told.end(), '@'), 9);
    EXPECT_NE(told.find(" 2560 clients in f0, called by main / "), told.npos);
    EXPECT_NE(told.find(" / 1 1@0:10239 main / "), told.npos);
}

} // namespace
