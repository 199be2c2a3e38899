#include "tests/support/vextest.h"

namespace {

struct Mpi {
    const char *name, *launcher;
};
constexpr Mpi mpis[] = {{"openmpi", "mpirun.openmpi --oversubscribe -np 4"},
                        {"mpich", "mpiexec.mpich -n 4"}};

// Tasks of a real MPI that wait for each other.
class WaitsTest : public VexTest {
  protected:
    void SetUp() override {
        VexTest::SetUp();
        ::setenv("VEX_LAUNCH_DIR", folder.path("launch").c_str(), 1);
    }
    void TearDown() override { ::unsetenv("VEX_LAUNCH_DIR"); }

    // Each MPI that is here starts four tasks of a program with an argument, and a first console
    // has them run; the answers to `vex waits` of a second one are awaited until they are these.
    // Once they are stopped, the first row begins so.
    void expectWaits(const std::string& name, const std::string& argument, const Lines& expected,
                     const std::string& stopped = "") {
        int tried = 0;
        for (const Mpi& mpi : mpis) {
            const std::string own = program(name + "." + mpi.name);
            if (::access(own.c_str(), X_OK) != 0) continue;
            ++tried;
            SCOPED_TRACE(own + " " + argument);
            const std::string path =
                beginWith({"--trace-mpi", "--launch", mpi.launcher, own, argument});
            Peer first(path), second(path);
            first.send(Command::CLIENT, "all", "run");
            second.deaf = true;
            Lines rows;
            EXPECT_TRUE(eventually([&] { return (rows = waitsOf(second)) == expected; }))
                << testing::PrintToString(rows);
            if (!stopped.empty()) first.send(Command::INTERRUPT, "all");
            EXPECT_TRUE(eventually([&] { return waitsOf(second)[0].starts_with(stopped); }));
            second.send(Command::QUIT, "all");
            EXPECT_TRUE(first.closed());
            killConsole();
            vex->exitStatus();
            expectNothingLeft(path);
        }
        if (tried == 0) GTEST_SKIP() << "there is no MPI here (Debian: openmpi-bin, mpich)";
    }
    // Without how many calls they have made, which is each MPI's own affair.
    static Lines waitsOf(Peer& console) {
        Lines rows = console.command("vex waits");
        std::erase_if(rows, [](const std::string& row) { return row.find("behind") != row.npos; });
        return rows;
    }
};

TEST_F(WaitsTest, AChainLeadsToTheTaskThatComputes) {
    expectWaits("ring", "",
                {"2 | is in no MPI call · 3 wait for it",
                 "0:1 3 | 1 waits for 0 in MPI_Recv (tag 0) · 0 for 3 · 3 for 2 · 2 is in no MPI "
                 "call",
                 "READY"},
                "2 | is in no MPI call: search (ring.cpp:");
}

TEST_F(WaitsTest, ACircleIsADeadlock) {
    expectWaits("waiting", "circle",
                {"0:3 | deadlock: 0 waits for 1 in MPI_Recv (tag 3) · 1 for 2 · 2 for 3 · 3 for 0",
                 "READY"});
}

TEST_F(WaitsTest, ACollectiveCallTellsWhoIsMissing) {
    expectWaits("waiting", "missing",
                {"3 | is in no MPI call · 3 wait for it",
                 "0:2 | 1 waits for 3 in MPI_Barrier · 3 is in no MPI call",
                 "0 2 | in MPI_Barrier on MPI_COMM_WORLD; missing: 1 3",
                 "1 | in MPI_Barrier on a communicator of 2; missing: 3", "READY"});
}

TEST_F(WaitsTest, RequestsAndCommunicatorsAreToldByRanksInTheWorld) {
    expectWaits("waiting", "requests",
                {"0 | is in no MPI call · 3 wait for it",
                 "1:3 | 3 waits for 2 in MPI_Wait (tag 5) · 2 for 1 · 1 for 0 · 0 is in no MPI "
                 "call",
                 "READY"});
}

TEST_F(WaitsTest, TasksThatGoOnAreInNoDeadlock) {
    expectWaits("waiting", "healthy", {"0:3 | goes on with its MPI calls", "READY"});
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
