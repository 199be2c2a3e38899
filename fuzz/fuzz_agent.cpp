#include "backend/wire/mpirecords.h"
#include "backend/wire/noderecords.h"
#include "common/brokenconnection.h"
#include "common/framereader.h"
#include "fuzz/fuzz.h"

namespace {

// Hears all and does nothing with it, but for stacks, which it merges.
struct Reader : Node, Node::Listener {
    using Time = Clock::time_point;
    const std::string here;

    void begin(const ClientSet&, const Work&, Time) override {}
    void type(const ClientSet&, const std::string&) override {}
    void interrupt(const ClientSet&, Time) override {}
    ClientSet reply(const ClientSet& clients, const std::string&, Time) override { return clients; }
    const std::string& host() const override { return here; }
    void said(int, const ClientSet&, std::vector<std::string>, Time) override {}
    void saidPart(int, const ClientSet&, const LineCutter::Piece&, Time) override {}
    void captured(int, int, const std::string&) override {}
    void stacks(int, const StackTree& tree) override {
        StackTree merged = tree;
        merged.add(tree);
        merged.tree();
        merged.places();
    }
    void answered(int, const ClientSet&, Time) override {}
    void asks(int, const ClientSet&, const std::string&, Time) override {}
};

void read(const AgentRecord& record) {
    static const ClientSet known(std::vector<ClientSet::Range>{{0, 127}, {200, 200}, {300, 302}});
    Reader reader;
    using namespace NodeRecords;
    switch (record.type) {
    case AgentRecord::HELLO:
        if (const auto hello = AgentHello::of(record); hello.protocol == AgentHello::version)
            expect(hello.record().body == record.body);
        break;
    case AgentRecord::CHALLENGE:
        expect(AgentChallenge::of(record).record().body == record.body);
        break;
    case AgentRecord::START:
        expect(start(startOf(record)).body == record.body);
        break;
    case AgentRecord::TASKS:
        expect(tasks(tasksOf(record)).body == record.body);
        break;
    case AgentRecord::STARTED:
        startedOf(record, known);
        break;
    case AgentRecord::IDENTITY:
    case AgentRecord::TELL:
        expect(notes(record.type, notesOf(record, known)).body == record.body);
        break;
    case AgentRecord::MPISTATES:
        expect(MpiRecords::states(MpiRecords::statesOf(record, known)).body == record.body);
        break;
    case AgentRecord::ERRORS:
        errorsOf(record, known);
        break;
    case AgentRecord::FORKED:
    case AgentRecord::LEAVEFORK:
        expect(fork(record.type, forkOf(record, known)).body == record.body);
        break;
    case AgentRecord::ENDED:
    case AgentRecord::WHO:
    case AgentRecord::ASKMPI:
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
