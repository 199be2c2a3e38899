// Where in the program tasks stand.
#include "tests/frontend/switchboard/switchboardtest.h"

#include <sstream>

namespace {

class StopPlacesTest : public SwitchboardTest {
  protected:
    // Its stack: "function, source line, library" of each call of the main thread, the innermost
    // first; "-" begins another thread.
    static std::string stackOf(const std::string& calls) {
        std::string answer = "thread\t1\n";
        std::istringstream words(calls);
        for (std::string call; words >> call;) {
            std::ranges::replace(call, ',', '\t');
            answer += call == "-" ? "thread\t0\n" : "call\t" + call + "\n";
        }
        return answer;
    }
    void asks(const std::string& command, const std::string& answer) {
        send(1, command.starts_with("stat") ? STATCLIENT : CLIENT, "0", command);
        answers({0}, answer);
        filtered();
    }
};

TEST_F(StopPlacesTest, AreOfTheProgramAndNotOfALibrary) {
    const std::string within = "Thread 1 hit Breakpoint 1, ";
    const struct {
        std::string command, answer, place;
    } cases[] = {
        {"stat", stackOf("search,a.c:7, main,a.c:9,"), "search"},
        {"stat -s", stackOf("search,a.c:7, main,a.c:9,"), "search (a.c:7)"},
        // Whatever the names of libraries' functions look like.
        {"stat", stackOf("dgemm_kernel,,/usr/lib/libblas.so.3 solve,a.c:4, main,a.c:9,"), "solve"},
        {"stat -s", stackOf("dgemm,blas.c:7,/usr/lib/libblas.so.3 solve,a.c:4, main,a.c:9,"),
         "solve (a.c:4)"},
        {"stat", stackOf("PMPI_Recv,,/opt/lib/libmpi.so.40 go_round,a.c:4, main,a.c:9,"),
         "go_round"},
        {"stat", stackOf("std::sort<int>,stl_algo.h:4, sorted,a.c:4, main,a.c:9,"), "sorted"},
        {"vex stat -a",
         stackOf("epoll_wait,,/lib/libc.so.6 ucp_wait,,/usr/lib/libucp.so.0 go,a.c:4, main,a.c:9,"),
         "go"},
        {"stat", stackOf("helper,,/lib/libucs.so.0 - work,a.c:3, begin,a.c:4,"), "work"},
        {"stat", stackOf("helper,,/lib/libucs.so.0 - work,a.c:3, - idle,a.c:4,"), ""},
        // What stacks do not tell, the debugger may have.
        {"continue", within + "search (n=3) at a.c:8\n", "search (a.c:8)"},
        {"finish", within + "poll () at ../sysdeps/poll.c:29\n29\tin ../sysdeps/poll.c\n", ""},
        {"where", "#0  0x1 in poll () from /lib/libc.so.6\n#1  0x2 in go (n=1) at a.c:41\n",
         "go (a.c:41)"},
        {"stat", stackOf("poll,,/lib/libc.so.6 go,a.c:41, main,a.c:9,"), "go (a.c:41)"},
        {"print 1", "$1 = 1\n", "go (a.c:41)"},
        {"kill", "[Inferior 1 (process 7) killed]\n", ""},
    };
    for (const auto& [command, answer, place] : cases) {
        if (command.find("stat") != std::string::npos && place.find(":41") == std::string::npos)
            asks("continue", "");
        asks(command, answer);
        EXPECT_EQ(board.placeOf(0), place) << command << "\n" << answer;
    }
}

TEST_F(StopPlacesTest, AreOfStacksThatSomebodyHasAskedFor) {
    StackTree tree;
    tree.add(0, {{"search"}, {"main"}});
    board.stacks(7, tree);
    types(1, "0", "where");
    for (int work = 0; work < 10; ++work)
        board.stacks(work, tree);
    EXPECT_EQ(board.placeOf(0), "");
    prompts({0});
    filtered();
    // A task that runs on between samples has left the place of the last one.
    types(1, "0", "vex stat -t 2");
    answers({0}, "may run\n");
    answers({0}, stackOf("search,a.c:7, main,a.c:9,"));
    EXPECT_EQ(board.placeOf(0), "");
}

} // namespace
