#include "backend/wire/handshake.h"
#include "backend/wire/noderecords.h"
#include "backend/wire/rendezvous.h"
#include "common/brokenconnection.h"
#include "common/framereader.h"
#include "tests/support/tempdir.h"

namespace {

// Each of what a proof is made of counts, and where one ends and the next begins.
TEST(Handshake, AProofIsGoodForOneSideAndOneConversation) {
    using enum Handshake::Side;
    const std::string good = Handshake::proof(AGENT, "secret", "hello", "nonce");
    EXPECT_TRUE(Handshake::equal(good, Handshake::proof(AGENT, "secret", "hello", "nonce")));
    const struct {
        Handshake::Side side;
        const char *secret, *hello, *nonce;
    } others[] = {
        {FRONT_END, "secret", "hello", "nonce"}, // reflected
        {AGENT, "secret", "hello", "later"},     // replayed
        {AGENT, "guess", "hello", "nonce"},      // forged
        {AGENT, "secret", "other", "nonce"},     // another introduction
        {AGENT, "secret", "hellon", "once"},
    };
    for (const auto& [side, secret, hello, nonce] : others)
        EXPECT_FALSE(Handshake::equal(good, Handshake::proof(side, secret, hello, nonce)))
            << secret << hello << nonce;
    EXPECT_FALSE(Handshake::equal(good, good.substr(1)));
    EXPECT_FALSE(Handshake::equal(good, ""));
}

TEST(Rendezvous, IsReadBackAndPrivate) {
    const Rendezvous where{"name", {"10.0.0.1", "fd00::1"}, 4711, Rendezvous::newSecret()};
    EXPECT_EQ(where.secret.size(), 64u);
    EXPECT_NE(where.secret, Rendezvous::newSecret());

    const TempDir folder;
    const std::filesystem::path place = folder.path("a/launch");
    std::filesystem::create_directory(folder.path("a"));
    std::filesystem::path path;
    {
        const RendezvousFile file(place, where);
        path = file.path();
        struct stat status {};
        ASSERT_EQ(::stat(path.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0600u);
        ASSERT_EQ(::stat(place.c_str(), &status), 0);
        EXPECT_EQ(status.st_mode & 0777, 0700u);
        std::istringstream in(folder.read(std::filesystem::relative(path, folder.path())));
        EXPECT_EQ(Rendezvous::parse(in).str(), where.str());
        EXPECT_EQ(RendezvousFile::read(path).str(), where.str());
        std::filesystem::permissions(path, std::filesystem::perms(0640));
        EXPECT_THROW(RendezvousFile::read(path), std::runtime_error);
    }
    EXPECT_FALSE(std::filesystem::exists(path));
    const std::string fifo = folder.path("fifo");
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    EXPECT_THROW(RendezvousFile::read(fifo), std::runtime_error);
    // Others could put another directory in its place, except from one like /tmp.
    const auto setParent = [&folder](mode_t mode) { ::chmod(folder.path("a").c_str(), mode); };
    setParent(01777);
    EXPECT_NO_THROW(RendezvousFile(place / "", where));
    setParent(0777);
    for (const auto& each : {place, place / "", place.parent_path() / "new"})
        EXPECT_THROW(RendezvousFile(each, where), std::runtime_error) << each;
    EXPECT_FALSE(std::filesystem::exists(folder.path("a/new")));
    setParent(0755);
    // Others could read what is in it.
    std::filesystem::permissions(place, std::filesystem::perms(0755));
    EXPECT_THROW(RendezvousFile(place, where), std::runtime_error);
    // One that is cut short is not taken for a whole one.
    const std::string text = where.str();
    for (std::size_t length = 0; length + 2 < text.size(); ++length) {
        std::istringstream in(text.substr(0, length));
        EXPECT_THROW(Rendezvous::parse(in), std::runtime_error) << length;
    }
}

// Writes down again what it is told, as records.
class Echo : public Node, public Node::Listener {
  public:
    AgentRecord record;

    void begin(const ClientSet& clients, const Work& work, Clock::time_point) override {
        record = NodeRecords::begin(clients, work);
    }
    void type(const ClientSet& clients, const std::string& line) override {
        record = NodeRecords::type(clients, line);
    }
    void interrupt(const ClientSet& clients, Clock::time_point) override {
        record = NodeRecords::interrupt(clients);
    }
    ClientSet reply(const ClientSet& clients, const std::string& text, Clock::time_point) override {
        record = NodeRecords::reply(clients, text);
        return clients;
    }
    const std::string& host() const override { return record.body; }
    void said(int work, const ClientSet& clients, std::vector<std::string> lines,
              Clock::time_point now) override {
        for (std::string& line : lines)
            rows.push_back({clients, {std::move(line)}});
        age = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::time_point() - now);
        record = NodeRecords::lines(work, age, rows);
    }
    void saidPart(int work, const ClientSet& clients, const LineCutter::Piece& part,
                  Clock::time_point) override {
        rows.push_back({clients, part});
        record = NodeRecords::lines(work, age, rows);
    }
    void captured(int work, int client, const std::string& text) override {
        record = NodeRecords::whole(work, {client}, text);
    }
    void stacks(int work, const StackTree& tree) override {
        record = NodeRecords::stacks(work, tree);
    }
    void answered(int work, const ClientSet& clients, Clock::time_point) override {
        record = NodeRecords::answered(work, clients);
    }
    void asks(int work, const ClientSet& clients, const std::string& question,
              Clock::time_point) override {
        record = NodeRecords::asks(work, clients, question);
    }

  private:
    std::vector<NodeRecords::Row> rows;
    std::chrono::milliseconds age{};
};

// Clients of one node of four, round by round, and two of their own.
const ClientSet known = [] {
    ClientSet clients{4000, 4001};
    for (int id = 1; id < 512; id += 4)
        clients.insert(id);
    return clients;
}();

AgentRecord readAndWritten(const AgentRecord& record) {
    using namespace NodeRecords;
    switch (record.type) {
    case AgentRecord::HELLO:
        return AgentHello::of(record).record();
    case AgentRecord::CHALLENGE:
        return AgentChallenge::of(record).record();
    case AgentRecord::TASKS:
        return tasks(tasksOf(record));
    case AgentRecord::START:
        return start(startOf(record));
    case AgentRecord::STARTED:
        return started(startedOf(record, known));
    case AgentRecord::IDENTITY:
        return notes(record.type, notesOf(record, known));
    case AgentRecord::ERRORS:
        return errors(errorsOf(record, known));
    case AgentRecord::FORKED:
        return fork(record.type, forkOf(record, known));
    case AgentRecord::ENDED:
        return about(record.type, clientsOf(record, known));
    default:
        Echo echo;
        if (!carryOut(record, known, echo, {}) && !tell(record, known, echo, {}))
            throw std::logic_error("unknown");
        return echo.record;
    }
}

std::vector<AgentRecord> records() {
    using namespace NodeRecords;
    DebuggerStart common;
    common.argv = {"gdb", "", "two words"};
    common.indexCacheWords = {"-iex", "set index-cache directory "};
    common.environment = {{"A", "1"}, {"B", ""}};
    common.prompt = "\001x\n";
    common.terminal = common.inputTerminal = common.process = common.dialect = "x";
    common.throughShells = true;
    StackTree tree;
    tree.add(1, {{"poll", true}, {"wait"}, {"main"}});
    tree.add(5, {{"poll"}, {"main"}});
    tree.add(5, {{"idle"}});
    tree.addWithout(9, "no stack: no process");
    tree.addHelpers(5, "libucs 1");
    ClientSet sparse = known;
    for (int id = 1; id < 100; id += 12)
        sparse.erase(id);
    return {
        AgentHello{.nonce = std::string("a\0b", 3), .host = "node", .pid = 7}.record(),
        AgentChallenge{"nonce", "proof"}.record(),
        tasks({{-1, -1, 1}, {131071, 131072, 4711}, {-2, 2, 3}}),
        start({common, {{0, 0}, {4000, 77}}}),
        started({{1, 9}, false, true, false, "text"}),
        notes(AgentRecord::IDENTITY, {{1, "rank 1"}, {4000, ""}}),
        errors({3, {5}}),
        fork(AgentRecord::FORKED, {4001, 99}),
        about(AgentRecord::ENDED, sparse),
        begin(known, {7, Work::STACKS, true, false, false}),
        type({1, 5, 13}, "print 1"),
        interrupt({4001}),
        reply({1}, std::string("\0\xff\n", 3)),
        lines(7, std::chrono::milliseconds(130),
              {{known, {"all"}},
               {known, {""}},
               {sparse, {"some"}},
               {{1}, {"> ", false, false}},
               {{1}, {"y", true, true}},
               {{5}, {"last"}}}),
        whole(7, {1}, std::string(300, 'x')),
        stacks(7, tree),
        answered(7, sparse),
        asks(7, {5, 9}, "(y or n) "),
    };
}

TEST(AgentRecord, IsReadBackAndNothingBeyondItsEnd) {
    for (const AgentRecord& record : records()) {
        SCOPED_TRACE(record.type);
        const std::string frame = record.frames();
        EXPECT_EQ(readAndWritten(AgentRecord::unpack(frame.substr(4))).body, record.body);
        // Cut short, or too long.
        for (std::size_t length = 0; length <= record.body.size(); ++length) {
            AgentRecord bad = record;
            bad.body.resize(length);
            if (length == record.body.size()) bad.body += '\1';
            EXPECT_THROW(readAndWritten(bad), BrokenConnection) << length;
        }
    }
    // A set of equal steps is short, however many it has.
    EXPECT_LE(NodeRecords::answered(7, known).body.size(), 12u);
    for (const std::string& body : {std::string(), std::string("\0\0\0", 3),
                                    std::string("\0\0\0\x09", 4), std::string(4, '\xff')})
        EXPECT_THROW(AgentRecord::unpack(body), BrokenConnection);
}

TEST(AgentRecord, RefusesWhatTakesMoreThanItSays) {
    // The set of `answered` to work 7, byte by byte.
    const std::vector<unsigned char> sets[] = {
        {1, 2, 0},                            // client 2 is not the node's
        {1, 1, 1, 0},                         // nor is it in a range
        {1, 0xff, 0xff, 0xff, 0x07, 1, 0x7f}, // beyond the last number
        {1, 1, 4, 0xff, 0xff, 0x3f},          // more than the node has
        {2, 5, 0, 0, 0},                      // twice the same
        {0xff, 0xff, 0xff, 0xff, 0x0f},       // more runs than bytes
        {1, 0x81, 0x00, 0},                   // a number that is longer than it must be
    };
    for (const auto& set : sets) {
        const std::string body = "\7" + std::string(set.begin(), set.end());
        EXPECT_THROW(readAndWritten({AgentRecord::ANSWERED, body}), BrokenConnection)
            << testing::PrintToString(set);
    }
    // A tree whose second call hangs in the air.
    EXPECT_THROW(readAndWritten({AgentRecord::STACKS, std::string("\7\2\0\1a\1\1\0\1\0"
                                                                  "\2\1b\1\1\0\1\0\0\0\0",
                                                                  21)}),
                 BrokenConnection);
    // Agents of other versions are named, not understood.
    AgentHello other;
    other.protocol = AgentHello::version + 1;
    other.program = "9.9";
    EXPECT_EQ(AgentHello::of({AgentRecord::HELLO, other.record().body + "more"}).program, "9.9");
    EXPECT_EQ(AgentHello::of({AgentRecord::HELLO, std::string("\0\0\0\2old", 7)}).program, "");
    const AgentHello hello{.nonce = "n", .host = std::string("no\0de", 5)};
    EXPECT_THROW(AgentHello::of(hello.record()), BrokenConnection);
    // What is too long for a frame comes in parts.
    const AgentRecord large{AgentRecord::WHOLE, std::string(9 * 1024 * 1024, 'x')};
    FrameReader reader(AgentRecord::maxFrame);
    reader.feed(large.frames());
    std::string body;
    int parts = 0;
    while (const auto frame = reader.body()) {
        const AgentRecord part = AgentRecord::unpack(*frame);
        body += part.body;
        parts += part.type == AgentRecord::PART;
    }
    EXPECT_TRUE(body == large.body && parts == 2) << body.size() << " " << parts;
}

} // namespace
