#include "tests/support/vextest.h"

#include <fnmatch.h>

namespace {

struct Mpi {
    const char *name, *launcher;
};
constexpr Mpi mpis[] = {{"openmpi", "mpirun.openmpi --oversubscribe -np "},
                        {"mpich", "mpiexec.mpich -n "}};

// Tasks of a real MPI that wait for each other.
class WaitsTest : public VexTest {
  protected:
    void SetUp() override {
        VexTest::SetUp();
        ::setenv("VEX_LAUNCH_DIR", folder.path("launch").c_str(), 1);
    }
    void TearDown() override { ::unsetenv("VEX_LAUNCH_DIR"); }

    struct Standstill {
        Lines words; // a program that is built for each MPI, or a path, and its arguments
        Lines waits; // rows of `vex waits`
        // Patterns: its first row when all are stopped, and rows among the first of `stat`.
        std::string culprit;
        Lines places;
        int tasks = 4;
    };
    // Each MPI that is here starts tasks, and a first console has them run; the answers to `vex
    // waits` of a second one are awaited until they are these. Once they are stopped, the culprit
    // is on top on both screens and in a report.
    void expectWaits(const Standstill& expected) {
        int tried = 0;
        for (const Mpi& mpi : mpis) {
            Lines words = expected.words;
            const bool isPath = words[0].starts_with('/');
            if (!isPath) words[0] = program(words[0] + "." + mpi.name);
            if (::access(words[0].c_str(), X_OK) != 0 || (isPath && tried > 0)) continue;
            ++tried;
            SCOPED_TRACE(words[0] + " " + words.back());
            words.insert(words.begin(), {"--trace-mpi", "--launch",
                                         mpi.launcher + std::to_string(expected.tasks)});
            const std::string path = beginWith(words);
            Peer first(path), second(path);
            first.send(Command::CLIENT, "all", "run");
            second.deaf = true;
            Lines rows;
            EXPECT_TRUE(eventually([&] { return (rows = waitsOf(second)) == expected.waits; }))
                << testing::PrintToString(rows);
            first.send(Command::INTERRUPT, "all");
            first.finish();
            EXPECT_TRUE(eventually([&] { return isLike(waitsOf(second)[0], expected.culprit); }))
                << waitsOf(second)[0];
            if (!expected.places.empty()) {
                expectPlaces(first.command("vex stat"), expected);
                Lines lines = joined();
                EXPECT_TRUE(lines.size() > 2 && isLike(lines[1], expected.culprit))
                    << testing::PrintToString(lines);
                std::erase_if(lines, [](const auto& line) { return !isLike(line, "* client*"); });
                expectPlaces(lines, expected);
            }
            second.send(Command::QUIT, "all");
            EXPECT_TRUE(first.closed());
            killConsole();
            vex->exitStatus();
            expectNothingLeft(path);
        }
        if (tried == 0)
            GTEST_SKIP() << "there is no MPI for it here (Debian: openmpi-bin, mpich, gfortran)";
    }
    static bool isLike(const std::string& text, const std::string& pattern) {
        return ::fnmatch(pattern.c_str(), text.c_str(), 0) == 0;
    }
    // The first row is the culprit's, and all places are among the first three.
    static void expectPlaces(const Lines& rows, const Standstill& expected) {
        const std::string whose = expected.culprit.substr(0, expected.culprit.find(" |") + 2);
        EXPECT_TRUE(rows.at(0).starts_with(whose)) << rows[0];
        for (const std::string& place : expected.places)
            EXPECT_TRUE(std::any_of(rows.begin(),
                                    rows.begin() + std::min<std::ptrdiff_t>(3, std::ssize(rows)),
                                    [&](const std::string& row) { return isLike(row, place); }))
                << place << testing::PrintToString(rows);
    }
    // The lines of a report about the session down to the first empty one.
    Lines joined() {
        auto owner = std::move(vex);
        launch({"--join", std::to_string(std::atoi(folder.read("session").c_str())), "--report",
                folder.path("report.txt")});
        EXPECT_EQ(vex->exitStatus(), 0) << vex->screen();
        vex = std::move(owner);
        std::istringstream text(folder.read("report.txt"));
        Lines lines;
        for (std::string line; std::getline(text, line) && !line.empty();)
            lines.push_back(line);
        return lines;
    }
    // The last of two tasks does not come to a call of all.
    static Lines missingLast(const std::string& call) {
        return {"1 | is in no MPI call · 1 waits for it",
                "0 | 0 waits for 1 in " + call + " · 1 is in no MPI call",
                "0 | in " + call + " on MPI_COMM_WORLD; missing: 1", "READY"};
    }
    // Without how many calls they have made, which is each MPI's own affair.
    static Lines waitsOf(Peer& console) {
        Lines rows = console.command("vex waits");
        std::erase_if(rows, [](const std::string& row) { return row.find("behind") != row.npos; });
        return rows;
    }
};

TEST_F(WaitsTest, AChainLeadsToTheTaskThatComputes) {
    expectWaits({{"ring"},
                 {"2 | is in no MPI call · 3 wait for it",
                  "0:1 3 | 1 waits for 0 in MPI_Recv (tag 0) · 0 for 3 · 3 for 2 · 2 is in no MPI "
                  "call",
                  "READY"},
                 "2 | is in no MPI call: search (ring.cpp:*",
                 {"2 | 1 client in search, called by go_round",
                  "0:1 3 | 3 clients in MPI_Recv, called by receive"}});
}

TEST_F(WaitsTest, ACircleIsADeadlock) {
    expectWaits({{"waiting", "circle"},
                 {"0:3 | deadlock: 0 waits for 1 in MPI_Recv (tag 3) · 1 for 2 · 2 for 3 · 3 for 0",
                  "READY"},
                 "0:3 | deadlock*: 0 waits for 1 in MPI_Recv (tag 3) · 1 for 2 *",
                 {"0:3 | 4 clients in MPI_Recv, called by circle"}});
}

TEST_F(WaitsTest, ACollectiveCallTellsWhoIsMissing) {
    expectWaits({{"waiting", "missing"},
                 {"3 | is in no MPI call · 3 wait for it",
                  "0:2 | 1 waits for 3 in MPI_Barrier · 3 is in no MPI call",
                  "0 2 | in MPI_Barrier on MPI_COMM_WORLD; missing: 1 3",
                  "1 | in MPI_Barrier on a communicator of 2; missing: 3", "READY"},
                 "3 | is in no MPI call*",
                 {"3 | 1 client in sleep, called by compute",
                  "0:2 | 3 clients in MPI_Barrier, called by missing"}});
}

TEST_F(WaitsTest, RequestsAndCommunicatorsAreToldByRanksInTheWorld) {
    expectWaits({{"waiting", "requests"},
                 {"0 | is in no MPI call · 3 wait for it",
                  "1:3 | 3 waits for 2 in MPI_Wait (tag 5) · 2 for 1 · 1 for 0 · 0 is in no MPI "
                  "call",
                  "READY"},
                 "0 | is in no MPI call*",
                 {"1:3 | 3 clients in MPI_Wait, called by requests"}});
}

// One that waits is as many as the culprit.
TEST_F(WaitsTest, AThreadOfATaskComputes) {
    expectWaits({{"faulty", "-", "thread"},
                 missingLast("MPI_Allreduce"),
                 "1 | is in no MPI call*",
                 {"1 | 1 client in search, called by *advance*",
                  "0 | 1 client in MPI_Allreduce, called by agree"},
                 2});
}

TEST_F(WaitsTest, AFortranProgram) {
    expectWaits({{"fortran"},
                 missingLast("MPI_Barrier"),
                 "1 | is in no MPI call: *(fortran.f90:*",
                 {"1 | 1 client in fortran::advance, called by fortran",
                  "0 | 1 client in MPI_Barrier, called by *"},
                 2});
}

TEST_F(WaitsTest, APythonProgram) {
    const std::string python = "/usr/bin/python3";
    if (std::system((python + " -c 'import mpi4py' 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "there is no mpi4py here (Debian: python3-mpi4py)";
    const std::string text = "from mpi4py import MPI\n"
                             "def search():\n"
                             "    while True: pass\n"
                             "def agree(): MPI.COMM_WORLD.Barrier()\n"
                             "if MPI.COMM_WORLD.rank == 1: search()\n"
                             "agree()\n";
    expectWaits({{python, folder.write("step.py", text)},
                 missingLast("MPI_Barrier"),
                 "1 | is in no MPI call*",
                 {"1 | 1 client in search (step.py:*), called by <module> (step.py:5)",
                  "0 | 1 client in MPI_Barrier, called by agree (step.py:4)"},
                 2});
}

TEST_F(WaitsTest, TasksThatGoOnAreInNoDeadlock) {
    expectWaits({{"waiting", "healthy"}, {"0:3 | goes on with its MPI calls", "READY"}, "*", {}});
}

// Neither the debugger nor its shell gets the library, and the user's own stays behind it.
TEST_F(WaitsTest, TheLibraryIsForTheTasksAlone) {
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "this sanitizer wants to be loaded before all other libraries";
#endif
    const std::string own = VEX_BIN_DIR "/libvexmpi.so";
    const std::string script = folder.write("script", "run\nshell echo gdb: $LD_PRELOAD\n");
    ::setenv("LD_PRELOAD", "libm.so.6", 1);
    launch({"--trace-mpi", "--script", script, "/usr/bin/env"});
    ::unsetenv("LD_PRELOAD");
    vex->until("LD_PRELOAD=" + own + ":libm.so.6");
    vex->until("gdb: libm.so.6");
    vex->exitStatus();
}

TEST_F(WaitsTest, WithoutTheLibraryItSaysWhatToDo) {
    Peer console(begin(1));
    EXPECT_EQ(console.command("vex waits")[0], "0 | has no process");
    console.command("start");
    const Lines rows = console.command("vex waits");
    EXPECT_EQ(rows[0].find("0 | libvexmpi.so is not loaded"), 0u) << rows[0];
    EXPECT_TRUE(console.command("vex waits now")[0].starts_with("0 | the commands that begin"));
    quit(console);
}

} // namespace
