#include "backend/os/limits.h"
#include "backend/os/processtree.h"
#include "backend/os/sendqueue.h"
#include "backend/os/tracing.h"
#include "tests/support/testing.h"

#include <array>
#include <sys/prctl.h>

namespace {

TEST(Limits, SaysWhatIsTooMuchAndWhatToDo) {
    constexpr auto any = RLIM_INFINITY;
    constexpr std::uint64_t mega = 1 << 20;
    const std::string pty = " are free here. The administrator can allow more: sudo sysctl "
                            "kernel.pty.max=";
    const std::string files = " are allowed here (ulimit -Hn). The administrator can allow more: "
                              "sudo prlimit --pid $$ --nofile=";
    const std::string processes = "2 tasks need 4 processes, and only 3 more are allowed here "
                                  "(ulimit -u). ";
    const struct {
        Limits::Need need;
        Limits::Facts facts; // descriptors, terminals free and used, processes, memory
        std::string text;
    } cases[] = {
        {{320, 320}, {1024, 4096}, ""},
        {{321, 321},
         {1024, 4096},
         "321 tasks need 1027 open files, and only 1024" + files + "1027"},
        // On other hosts.
        {{131072, 0, 0, 0, 960}, {1024, 0}, ""},
        {{131072, 0, 0, 0, 961},
         {1024, 0},
         "131072 tasks need 1025 open files, and only 1024" + files + "1025"},
        {{131072, 131072}, {any, 262144}, ""},
        {{2049, 2049},
         {any, 4096, 7},
         "2049 tasks need 4098 pseudo-terminals, and only 4096" + pty + "4105"},
        {{1, 1}, {1024, 0}, "1 task needs 2 pseudo-terminals, and only 0" + pty + "2"},
        {{9, 8, 8}, {1024, 0}, ""},
        {{2, 2}, {any, 4, 0, 4}, ""},
        {{2, 2}, {any, 4, 0, 3, 50, 54}, processes + "Allow more: ulimit -u 54"},
        {{2, 2},
         {any, 4, 0, 3, 50, 53},
         processes + "The administrator can allow more: sudo prlimit --pid $$ --nproc=54"},
        {{3, 2, 0, 5 * mega}, {any, 4, 0, any, 0, any, 10 * mega}, ""},
        {{3, 2, 0, 5 * mega},
         {any, 4, 0, any, 0, any, 9 * mega},
         "3 tasks need at least 10 MB of memory for debuggers, and only 9 MB are free here. Let a "
         "launcher spread them over more hosts: vex --launch"},
    };
    for (const auto& each : cases)
        EXPECT_EQ(Limits::refusal(each.need, each.facts).value_or(""), each.text);
}

TEST(SendQueue, SharesLongPiecesWithOtherQueues) {
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    auto record = std::make_shared<const std::string>(300000, 'x');
    SendQueue queue(100000, 1000), other(100000, 1000);
    for (SendQueue* each : {&queue, &other}) {
        each->add(std::string("head"));
        each->add(record);
        each->add(std::string("tail"));
    }
    EXPECT_EQ(record.use_count(), 3);
    EXPECT_TRUE(queue.congested());
    std::string got;
    while (!queue.empty()) {
        ASSERT_TRUE(queue.send(ends[0]));
        std::array<char, 65536> buffer;
        got.append(buffer.data(),
                   static_cast<std::size_t>(::read(ends[1], buffer.data(), buffer.size())));
    }
    for (std::array<char, 65536> buffer; got.size() < record->size() + 8;)
        got.append(buffer.data(),
                   static_cast<std::size_t>(::read(ends[1], buffer.data(), buffer.size())));
    EXPECT_EQ(got, "head" + *record + "tail");
    EXPECT_EQ(record.use_count(), 2); // the other's
    ::close(ends[0]);
    ::close(ends[1]);
}

// The reason that can be acted on first comes first.
TEST(Tracing, ARefusalNamesItsReasonAndTheWayOut) {
    const struct {
        // Whether it exists and is a zombie, its process, owner, tracer and its name, yama's scope.
        Tracing::Facts known;
        const char* text;
    } cases[] = {
        {{}, "no such process"},
        {{true, true, -1, "", 0, "", 1}, "has ended"},
        {{true, false, 41, "", 0, "", 0}, "thread of process 41"},
        {{true, false, -1, "eva", 0, "", 1}, "belongs to eva. Run vex as eva."},
        {{true, false, -1, "", 7, "gdb", 1}, "process 7 (gdb) traces it already"},
        {{true, false, -1, "", 0, "", 1}, "sudo sysctl kernel.yama.ptrace_scope=0"},
        {{true, false, -1, "", 0, "", 2}, "only administrators"},
        {{true, false, -1, "", 0, "", 3}, "booted again"},
        {{true, false, -1, "", 0, "", 0}, "--cap-add=SYS_PTRACE"},
    };
    for (const auto& each : cases) {
        const std::string text = Tracing::refusal(42, each.known);
        EXPECT_TRUE(text.starts_with("cannot attach to process 42: ")) << text;
        EXPECT_NE(text.find(each.text), std::string::npos) << text;
    }
}

TEST(ProcessTree, ProcessesMayVanishWhileTheyAreLookedAt) {
    const pid_t forker = ::fork();
    if (forker == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            if (::fork() == 0) ::_exit(0);
            ::waitpid(-1, nullptr, 0);
        }
    }
    std::size_t seen = 0;
    for (int look = 0; look < 1000; ++look)
        seen += ProcessTree::descendants(forker).size();
    EXPECT_TRUE(eventually([&] { return (seen += ProcessTree::descendants(forker).size()) > 0; }));
    ::kill(forker, SIGKILL);
    ::waitpid(forker, nullptr, 0);
    EXPECT_EQ(ProcessTree::nameOf(forker), "");
}

} // namespace
