// Node agents that simulate their clients, in one process: what a launcher starts, as far as a
// session can tell. Each node is served as an agent serves it; its debuggers are Answers.
// Usage, as the words of a launcher: vex --launch 'bench_nodes NODES CLIENTS' ...
// (vex adds the agent's own words, of which only the rendezvous is read). With VEX_BENCH_SENT=FILE
// the bytes that all nodes have sent stand in that file, as a number.

#include "agent/connector.h"
#include "backend/os/eventloop.h"
#include "backend/wire/noderecords.h"
#include "backend/wire/servednode.h"
#include "bench/answers.h"
#include "common/brokenconnection.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

// One node and its clients.
class SimulatedNode : private Connector::Owner,
                      private AgentLink::Handler,
                      private ServedNode::Outlet {
  public:
    SimulatedNode(EventLoop& eventLoop, const Rendezvous& where, int first, int count, int size)
        : loop(eventLoop),
          timer(loop),
          later(loop),
          firstRank(first),
          ranks(count),
          jobSize(size),
          connector(loop, where, AgentHello(), static_cast<Connector::Owner&>(*this)) {}

    // Nodes whose connection is open; the process ends with the last one.
    static inline int open = 0;
    // The bytes that all nodes have sent, and where they are told.
    static inline std::size_t sent = 0;
    static inline std::optional<std::ofstream> counter;

  private:
    EventLoop& loop;
    Timer timer; // of the served node
    Timer later;
    const int firstRank;
    const int ranks;
    const int jobSize;
    Connector connector;
    std::shared_ptr<AgentLink> link;
    std::unique_ptr<Driver> driver;
    std::optional<ServedNode> node;
    std::map<int, Answers> clients;
    std::deque<std::pair<int, std::string>> typed; // and not answered
    std::deque<int> interrupts;

    void onConnected(std::shared_ptr<AgentLink> connected) override {
        link = std::move(connected);
        link->setHandler(this, AgentRecord::maxFrame);
        std::vector<NodeRecords::Task> tasks;
        for (int i = 0; i < ranks; ++i)
            tasks.push_back({firstRank + i, jobSize, 1});
        link->send(NodeRecords::tasks(tasks));
        ++open;
    }
    void onUnreachable(const std::string& problem) override {
        std::fprintf(stderr, "bench_nodes: %s\n", problem.c_str());
        std::exit(1);
    }

    void onRecord(const AgentRecord& record) override {
        const Clock::time_point now = Clock::now();
        if (record.type == AgentRecord::START) return start(NodeRecords::startOf(record));
        if (record.type == AgentRecord::WHO) {
            NodeRecords::Notes notes;
            for (const int id : NodeRecords::clientsOf(record, node->clients()))
                notes.emplace_back(id, "rank " + std::to_string(id) + "  simulated");
            return link->send(NodeRecords::notes(AgentRecord::IDENTITY, notes));
        }
        if (record.type == AgentRecord::RELEASE) {
            for (const int id : NodeRecords::clientsOf(record, node->clients()))
                node->ended(id, now);
        } else if (!node || !node->take(record, now)) {
            throw BrokenConnection();
        }
        answer();
    }
    void onClosed() override {
        if (--open == 0) loop.stop();
    }

    void start(const NodeRecords::Start& wanted) {
        if (!node) {
            driver = makeDriver(wanted.common.dialect);
            node.emplace(*driver, wanted.common.errorMark, static_cast<ServedNode::Outlet&>(*this));
        }
        const Clock::time_point now = Clock::now();
        for (const auto& [id, process] : wanted.clients) {
            node->add(id, false);
            clients.emplace(id, Answers(id));
            node->output(id, wanted.common.errorMark, now);
            node->prompted(id, false, now);
        }
        wait();
    }

    // Not from within a call of the served node: it must not be called back.
    void answer() {
        const Clock::time_point now = Clock::now();
        while (!typed.empty()) {
            const auto [id, line] = std::move(typed.front());
            typed.pop_front();
            Answers& client = clients.at(id);
            node->output(id, client.to(line), now);
            if (!client.running()) node->prompted(id, false, now);
        }
        while (!interrupts.empty()) {
            const int id = interrupts.front();
            interrupts.pop_front();
            Answers& client = clients.at(id);
            if (!client.running()) continue;
            node->output(id, client.interrupted(), now);
            node->prompted(id, false, now);
        }
        wait();
    }
    void wait() {
        timer.cancel();
        if (const auto due = node->deadline()) {
            timer.at(*due, [this] {
                node->tick(Clock::now());
                answer();
            });
        }
    }

    // ServedNode::Outlet
    void toClient(int id, const std::string& line) override { typed.emplace_back(id, line); }
    void interrupt(int id) override { interrupts.push_back(id); }
    void send(const AgentRecord& record) override {
        if (!link) return;
        link->send(record);
        sent += record.frames().size();
        // Not replaced each time: some file systems wait for the disk then.
        if (counter) counter->seekp(0) << sent << std::flush;
    }
};

} // namespace

int main(int argc, char** argv) {
    std::string file;
    for (int i = 3; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--rendezvous") == 0) file = argv[i + 1];
    }
    const int count = argc > 2 ? std::atoi(argv[1]) : 0;
    const int each = argc > 2 ? std::atoi(argv[2]) : 0;
    std::ifstream in(file);
    if (!in || count < 1 || each < 1) {
        std::fprintf(stderr, "usage: vex --launch 'bench_nodes NODES CLIENTS' ...\n");
        return 2;
    }
    const Rendezvous where = Rendezvous::parse(in);
    if (const char* const path = std::getenv("VEX_BENCH_SENT"))
        SimulatedNode::counter.emplace(path);
    EventLoop loop;
    std::vector<std::unique_ptr<SimulatedNode>> nodes;
    for (int i = 0; i < count; ++i)
        nodes.push_back(std::make_unique<SimulatedNode>(loop, where, i * each, each, count * each));
    loop.run();
}
