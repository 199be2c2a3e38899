#include "backend/wire/noderecords.h"
#include "common/brokenconnection.h"
#include "common/framereader.h"
#include "fuzz/fuzz.h"

#include <cassert>

namespace {

// Adds up what it is told, so that all of it is looked at.
struct Reader : Node, Node::Listener {
    std::size_t sum = 0;
    const std::string here;

    void begin(const ClientSet& clients, const Work& work, Clock::time_point) override {
        sum += clients.size() + static_cast<std::size_t>(work.number);
    }
    void type(const ClientSet& clients, const std::string& line) override {
        sum += clients.size() + line.size();
    }
    void interrupt(const ClientSet& clients, Clock::time_point) override { sum += clients.size(); }
    ClientSet reply(const ClientSet& clients, const std::string&, Clock::time_point) override {
        return clients;
    }
    const std::string& host() const override { return here; }
    void said(int, const ClientSet& clients, std::vector<std::string> lines,
              Clock::time_point) override {
        sum += clients.size() * lines.size();
    }
    void saidPart(int, const ClientSet& clients, const LineCutter::Piece&,
                  Clock::time_point) override {
        sum += clients.size();
    }
    void captured(int, int, const std::string& text) override { sum += text.size(); }
    void stacks(int, const StackTree& tree) override {
        StackTree merged = tree;
        merged.add(tree);
        sum += merged.tree().size() + merged.places().size();
    }
    void answered(int, const ClientSet& clients, Clock::time_point) override {
        sum += clients.size();
    }
    void asks(int, const ClientSet& clients, const std::string&, Clock::time_point) override {
        sum += clients.size();
    }
};

void read(const AgentRecord& record) {
    static const ClientSet known(std::vector<ClientSet::Range>{{0, 127}, {200, 200}, {300, 302}});
    Reader reader;
    using namespace NodeRecords;
    switch (record.type) {
    case AgentRecord::HELLO: {
        const AgentHello hello = AgentHello::of(record);
        assert(hello.protocol != AgentHello::version || hello.record().body == record.body);
        break;
    }
    case AgentRecord::CHALLENGE:
        assert(AgentChallenge::of(record).record().body == record.body);
        break;
    case AgentRecord::START:
        assert(start(startOf(record)).body == record.body);
        break;
    case AgentRecord::TASKS:
        assert(tasks(tasksOf(record)).body == record.body);
        break;
    case AgentRecord::STARTED:
        startedOf(record, known);
        break;
    case AgentRecord::IDENTITY:
    case AgentRecord::TELL:
        assert(notes(record.type, notesOf(record, known)).body == record.body);
        break;
    case AgentRecord::ERRORS:
        errorsOf(record, known);
        break;
    case AgentRecord::FORKED:
    case AgentRecord::LEAVEFORK:
        assert(fork(record.type, forkOf(record, known)).body == record.body);
        break;
    case AgentRecord::ENDED:
    case AgentRecord::WHO:
    case AgentRecord::RELEASE:
        clientsOf(record, known);
        break;
    default:
        if (!carryOut(record, known, reader, {})) tell(record, known, reader, {});
    }
}

} // namespace

// What comes on an agent's connection, at either end.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    FrameReader reader(AgentRecord::maxHello);
    reader.feed(textOf(bytes, size));
    try {
        while (const auto body = reader.body())
            read(AgentRecord::unpack(*body));
    } catch (const BrokenConnection&) {
    }
    return 0;
}
