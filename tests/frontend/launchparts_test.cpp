#include "backend/jobs/hostfile.h"
#include "backend/jobs/launcher.h"
#include "backend/wire/agentrecord.h"
#include "backend/wire/rendezvous.h"
#include "common/brokenconnection.h"
#include "common/frame.h"
#include "tests/support/tempdir.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <sys/stat.h>

namespace {

using Lines = std::vector<std::string>;

// What a call gives, or what it throws, as one text.
template <typename Call>
std::string outcome(Call call) {
    try {
        std::string text;
        for (const std::string& each : call())
            text += (text.empty() ? "" : "|") + each;
        return text;
    } catch (const std::runtime_error& error) {
        return std::string("! ") + error.what();
    }
}

TEST(HostFile, NamesTheHostOfEachTask) {
    const std::string help = "; a line is: host, host:n or host slots=n";
    const struct {
        std::string text, expected;
    } cases[] = {
        {"a\nb\na\n", "a|b|a"},
        {"# all\n\n  a:2 # two\nuser@b slots=2 max_slots=4\r\nc slots = 1", "a|a|user@b|user@b|c"},
        {"fe80::1\n[fe80::2]:2\n[fe80::3]\n", "fe80::1|fe80::2|fe80::2|fe80::3"},
        {"a:5\n", "a|a|a|a|a"},
        {"a:5\nb\n", "! hosts, line 2: that are more than 5 tasks."},
        {"a:99999999999999999999\n",
         "! hosts, line 1: '99999999999999999999' is no number of tasks" + help},
        {"a slots=0\n", "! hosts, line 1: '0' is no number of tasks" + help},
        {"a\nb:\n", "! hosts, line 2: '' is no number of tasks" + help},
        {"a 4\n", "! hosts, line 1: '4' is not understood here" + help},
        {"a slots\n", "! hosts, line 1: 'slots' is not understood here" + help},
        {"-oProxyCommand=x\n", "! hosts, line 1: '-oProxyCommand' is no host" + help},
        {":3\n", "! hosts, line 1: '' is no host" + help},
        {"# nobody\n", "! hosts names no host."},
    };
    for (const auto& each : cases) {
        std::istringstream in(each.text);
        EXPECT_EQ(outcome([&] { return HostFile::read(in, "hosts", 5); }), each.expected);
    }
}

TEST(Launcher, SplitsItsCommandLineAsAShellDoes) {
    ::setenv("VEX_TEST_WORD", "two words", 1);
    const struct {
        std::string text, expected;
    } cases[] = {
        {"mpirun -np 4", "mpirun|-np|4"},
        {"  mpirun  -x 'A=b c' \"d e\"f g\\ h ", "mpirun|-x|A=b c|d ef|g h"},
        {"mpirun --host 'n{1,2}' \"$VEX_TEST_WORD\"", "mpirun|--host|n{1,2}|two words"},
        {"", "! the launcher is empty."},
        {"mpirun 'x", "! the launcher 'mpirun 'x' has a quote that is not closed."},
        {"mpirun; rm x", "! the launcher 'mpirun; rm x' has one of |&;<>(){} outside quotes."},
        {"mpirun -np $(nproc)", "! the launcher 'mpirun -np $(nproc)' would run a command by "
                                "itself; put its result there."},
    };
    for (const auto& each : cases)
        EXPECT_EQ(outcome([&] { return Launcher::split(each.text); }), each.expected);
    ::unsetenv("VEX_TEST_WORD");
}

TEST(Rendezvous, IsReadBackAndPrivate) {
    Rendezvous where;
    where.socketName = "name";
    where.addresses = {"10.0.0.1", "fd00::1"};
    where.port = 4711;
    where.secret = Rendezvous::newSecret();
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
    start.environment = {{"A", "1"}, {"B", ""}};
    start.prompt = "\001x\n";
    start.terminal = "t";
    start.inputTerminal = "i";
    start.process = "p";
    start.attach = 77;
    start.throughShells = true;
    const AgentRecord record = AgentRecords::start(start);
    const DebuggerStart copy = AgentRecords::startOf(AgentRecord::unpack(bodyOf(record)));
    EXPECT_EQ(copy.argv, start.argv);
    EXPECT_EQ(copy.environment, start.environment);
    EXPECT_EQ(copy.prompt, start.prompt);
    EXPECT_EQ(copy.attach, start.attach);
    EXPECT_TRUE(copy.throughShells);

    AgentHello hello;
    hello.nonce = std::string("a\0b", 3);
    hello.rank = 3;
    hello.size = 4;
    hello.host = "node";
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
