#include "backend/wire/agentrecord.h"
#include "backend/wire/rendezvous.h"
#include "common/brokenconnection.h"
#include "common/frame.h"
#include "tests/support/tempdir.h"

namespace {

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
    }
    EXPECT_FALSE(std::filesystem::exists(path));
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

// The body of a frame.
std::string bodyOf(const AgentRecord& record) { return record.frame().substr(4); }

TEST(AgentRecord, CarriesWhatADebuggerIsStartedWith) {
    DebuggerStart start;
    start.argv = {"gdb", "", "two words"};
    start.indexCacheWords = {"-iex", "x"};
    start.environment = {{"A", "1"}, {"B", ""}};
    start.prompt = "\001x\n";
    start.terminal = start.inputTerminal = start.process = "x";
    start.attach = 77;
    start.throughShells = true;
    const AgentRecord record = AgentRecords::start(start);
    const DebuggerStart copy = AgentRecords::startOf(AgentRecord::unpack(bodyOf(record)));
    EXPECT_EQ(copy.argv, start.argv);
    EXPECT_EQ(copy.argvFor("t", "i", "/c"), start.argvFor("t", "i", "/c"));
    EXPECT_EQ(copy.environment, start.environment);
    EXPECT_EQ(copy.prompt, start.prompt);
    EXPECT_EQ(copy.attach, start.attach);
    EXPECT_TRUE(copy.throughShells);

    AgentHello hello{.nonce = std::string("a\0b", 3), .rank = 3, .size = 4, .host = "node"};
    EXPECT_EQ(AgentHello::of(hello.record()).nonce, hello.nonce);
    EXPECT_EQ(AgentHello::of(hello.record()).rank, 3);
    AgentHello other = hello;
    other.protocol = AgentHello::version + 1;
    EXPECT_EQ(AgentHello::of({AgentRecord::HELLO, other.record().body.substr(0, 4)}).rank, -1);

    // Cut short, too long, or of another type: refused, and nothing is read beyond the end.
    for (const AgentRecord& each : {record, hello.record()}) {
        for (std::size_t length = 0; length <= each.body.size(); ++length) {
            AgentRecord bad = each;
            bad.body.resize(length);
            if (length == each.body.size()) bad.body += 'x';
            const auto read = [&bad] {
                if (bad.type == AgentRecord::START)
                    AgentRecords::startOf(bad);
                else
                    AgentHello::of(bad);
            };
            EXPECT_THROW(read(), BrokenConnection) << length;
        }
    }
    EXPECT_THROW(AgentHello::of(record), BrokenConnection);
    hello.host = std::string("no\0de", 5);
    EXPECT_THROW(AgentHello::of(hello.record()), BrokenConnection);
    for (const std::string& body : {std::string(), std::string("\0\0\0", 3), std::string(4, '\0'),
                                    std::string("\0\0\0\x09", 4), std::string(4, '\xff')})
        EXPECT_THROW(AgentRecord::unpack(body), BrokenConnection);
}

} // namespace
