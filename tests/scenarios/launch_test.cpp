#include "backend/wire/agentrecord.h"
#include "backend/wire/handshake.h"
#include "backend/wire/noderecords.h"
#include "backend/wire/rendezvous.h"
#include "common/descriptor.h"
#include "tests/support/vextest.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/un.h>

namespace {

// vex with tasks that a launcher starts.
class LaunchTest : public VexTest {
  protected:
    void SetUp() override {
        VexTest::SetUp();
        ::setenv("VEX_LAUNCH_DIR", folder.path("launch").c_str(), 1);
        ::unsetenv("VEX_LAUNCH_TCP");
    }
    void TearDown() override {
        ::unsetenv("VEX_LAUNCH_DIR");
        ::unsetenv("VEX_LAUNCH_TCP");
    }

    // Starts tasks `first` to n - 1 of a job, as PMI has it, when the file "go" is there; others
    // find their way by the copy that it leaves.
    std::string handMade(int n, int first = 1) {
        return script("starter", "#!/bin/sh\ncp $3 " + folder.path("copy.new") + "\nmv " +
                                     folder.path("copy.new") + " " + folder.path("copy") +
                                     "\nuntil [ -e " + folder.path("go") +
                                     " ]; do sleep 0.05; done\nr=" + std::to_string(first) +
                                     "\nwhile [ $r -lt " + std::to_string(n) +
                                     " ]; do PMI_SIZE=" + std::to_string(n) +
                                     " PMI_RANK=$r \"$@\" & r=$((r + 1)); done\nwait\n");
    }
    std::size_t rendezvousFiles() const {
        std::error_code fault;
        return static_cast<std::size_t>(
            std::distance(std::filesystem::directory_iterator(folder.path("launch"), fault), {}));
    }
};

TEST_F(LaunchTest, AnMpiJobFromItsStartToItsEnd) {
    const struct {
        const char *launcher, *program, *options;
        bool tcp;
    } launchers[] = {
        {"mpirun.openmpi", "ring.openmpi", " --oversubscribe -np 3", false},
        {"mpiexec.mpich", "ring.mpich", " -n 3", true},
    };
    int tried = 0;
    for (const auto& each : launchers) {
        SCOPED_TRACE(each.launcher);
        if (::access(program(each.program).c_str(), X_OK) != 0) continue;
        ++tried;
        for (const bool killed : {false, true}) {
            if (each.tcp) ::setenv("VEX_LAUNCH_TCP", "1", 1);
            const std::string path = beginWith(
                {"--launch", std::string(each.launcher) + each.options, program(each.program)});
            Peer console(path);
            EXPECT_EQ(rendezvousFiles(), 0u);
            EXPECT_EQ(console.command("vex who")[2].find("2 | rank 2  host "), 0u);
            EXPECT_EQ(console.command("show environment VEX_TASK"),
                      (Lines{"0 | VEX_TASK = 0", "1 | VEX_TASK = 1", "2 | VEX_TASK = 2", "READY"}));
            EXPECT_EQ(console.command("show environment VEX_NTASKS"),
                      (Lines{"0:2 | VEX_NTASKS = 3", "READY"}));
            console.command("break search");
            // One task computes, the others wait for it.
            console.send(Command::CLIENT, "all", "run");
            while (!contain(console.next(), ", search (token=20)")) {
            }
            console.send(Command::INTERRUPT, "all");
            EXPECT_EQ(console.finish().back(), "READY");
            EXPECT_EQ(console.command("print rank"),
                      (Lines{"0 | $1 = 0", "1 | $1 = 1", "2 | $1 = 2", "READY"}));
            for (const std::string& line : console.command("vex who")) {
                EXPECT_TRUE(line == "READY" || line.ends_with(each.program)) << line;
            }
            if (killed) {
                vex->signal(SIGKILL); // its terminal's hang-up ends the console
            } else {
                // The others go on, though a launcher ends a job when one of its tasks ends so.
                console.send(Command::CLIENT, "1", "quit");
                EXPECT_EQ(console.finish(), (Lines{"REPLY 5 1", "READY"}));
                EXPECT_EQ(console.command("print 1"), (Lines{"0 2 | $2 = 1", "READY"}));
                console.send(Command::QUIT, "all");
                EXPECT_TRUE(console.closed());
                killConsole();
            }
            const int status = vex->exitStatus();
            EXPECT_TRUE(killed || status == 0) << status;
            expectNothingLeft(path);
        }
    }
    if (tried == 0) GTEST_SKIP() << "there is no MPI here (Debian: openmpi-bin, mpich)";
}

TEST_F(LaunchTest, ATaskThatEndsTheJobIsHeardAndSoIsItsLauncher) {
    for (const auto& [launcher, own] : std::map<std::string, std::string>{
             {"mpirun.openmpi --oversubscribe -np 3", "ring.openmpi"},
             {"mpiexec.mpich -n 3", "ring.mpich"}}) {
        SCOPED_TRACE(own);
        if (::access(program(own).c_str(), X_OK) != 0) continue;
        Peer console(beginWith({"--launch", launcher, program(own)}));
        console.send(Command::CLIENT, "all", "run --abort");
        // It is kept from that at first; the others wait.
        while (!contain(console.next(), "1 | The task calls MPI_Abort and is kept from ending"))
            continue;
        console.send(Command::INTERRUPT, "all");
        EXPECT_EQ(console.finish().back(), "READY");
        console.send(Command::CLIENT, "all", "continue");
        Lines said = console.untilReady();
        if (said.back() == "READY") {
            // The launcher has killed all tasks before it ended an agent.
            const Lines more = console.untilReady();
            said.insert(said.end(), more.begin(), more.end());
        }
        EXPECT_EQ(said.back(), "REPLY -1 803") << testing::PrintToString(said);
        killConsole();
        EXPECT_EQ(vex->exitStatus(), 0);
        // Who of the two comes first is open.
        const std::string told = "launcher: (ended with status 7: it has ended the job)";
        EXPECT_TRUE(contain(said, told) || vex->screen().find(told) != std::string::npos);
        // MPICH's tasks tell of it themselves.
        EXPECT_TRUE(own != "ring.mpich" || contain(said, "1 | Abort(7) on node 1"));
        expectNothingLeft(socketPath);
    }
}

TEST_F(LaunchTest, HostsOfAFile) {
    const std::string hosts = folder.write("hosts", "# all\nnode1:2\nnode2\n");
    std::filesystem::create_directory(folder.path("here"));
    const std::string path = beginWith({"--launch", fakeSsh(), "--hosts", hosts, program("halo")});
    Peer console(path);
    EXPECT_EQ(console.command("show environment VEX_NTASKS"),
              (Lines{"0:2 | VEX_NTASKS = 3", "READY"}));
    // They stand where vex was started, not in the home directory.
    EXPECT_EQ(console.command("pwd"),
              (Lines{"0:2 | Working directory " + std::filesystem::current_path().string() + ".",
                     "READY"}));
    // The logins are under way at the same time.
    std::istringstream log(folder.read("hosts.log"));
    EXPECT_EQ((std::multiset<std::string>(std::istream_iterator<std::string>(log), {})),
              (std::multiset<std::string>{"node1", "node1", "node2"}));
    // The secret is in no command line.
    for (pid_t id : living()) {
        EXPECT_EQ(ProcessTree::fileOf(id, "cmdline").find("secret"), std::string::npos);
    }
    vex->signal(SIGTERM);
    EXPECT_TRUE(console.closed());
    expectEnd(128 + SIGTERM);
}

// Each task has the process that the launcher has started as its debugger's parent, and all have
// one agent; each of these may be killed.
TEST_F(LaunchTest, TasksOfAHostShareOneAgent) {
    folder.write("go", "");
    for (const bool nodeKilled : {false, true}) {
        SCOPED_TRACE(nodeKilled);
        const std::string path = beginWith({"--launch", handMade(4, 0), program("halo")});
        Peer console(path);
        const std::vector<pid_t> nodes = named("vexagent-node", living());
        const std::vector<pid_t> keepers = named("vexagent", living());
        EXPECT_EQ(nodes.size(), 1u);
        EXPECT_EQ(keepers.size(), 4u);
        EXPECT_EQ(named("gdb", living()).size(), 4u);
        const pid_t first = ProcessTree::parentOf(nodes.at(0));
        std::map<std::string, pid_t> keeperOf;
        for (const pid_t each : keepers) {
            EXPECT_GT(childOf(each, "gdb"), 0);
            keeperOf[ProcessTree::variable(each, "PMI_RANK").value_or("")] = each;
        }
        // What has left its parent, its session and its terminal goes all the same.
        for (const char* client : {"1", "2"})
            console.command("shell setsid tail -f /dev/null </dev/null >/dev/null 2>&1 &", client);
        EXPECT_TRUE(eventually([this] { return named("tail", living()).size() == 2; }));
        if (nodeKilled) {
            kill(nodes);
            expectEnd(0);
            continue;
        }
        kill({keeperOf["1"]});
        EXPECT_EQ(console.next(), (Lines{"REPLY 5 1"}));
        EXPECT_TRUE(eventually([this] { return named("tail", living()).size() == 1; }));
        EXPECT_EQ(console.command("print 1"), (Lines{"0 2:3 | $1 = 1", "READY"}));
        EXPECT_EQ(named("gdb", living()).size(), 3u);
        // The one that has started the node's agent is no more than the others.
        if (first != keeperOf["1"]) {
            kill({first});
            console.next();
        }
        EXPECT_EQ(named("vexagent-node", living()), nodes);
        quit(console);
    }
}

// Where their socket is somebody else's, agents find their way by themselves.
TEST_F(LaunchTest, ANodesNameMayBeTaken) {
    const std::string path = beginWith({"--launch", handMade(2, 0), program("halo")});
    await("copy");
    std::istringstream in(folder.read("copy"));
    const std::string name = Rendezvous::parse(in).nodeName;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path + 1, sizeof address.sun_path - 1);
    const Descriptor taken(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(::bind(taken.get(), reinterpret_cast<sockaddr*>(&address),
                     static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size())),
              0);
    ASSERT_EQ(::listen(taken.get(), 2), 0);
    folder.write("go", "");
    const std::string no = AgentRecord{AgentRecord::REFUSED, ""}.frames();
    for (int task = 0; task < 2; ++task) {
        const Descriptor keeper(::accept(taken.get(), nullptr, nullptr));
        char join[64];
        EXPECT_GT(::read(keeper.get(), join, sizeof join), 0);
        EXPECT_EQ(::write(keeper.get(), no.data(), no.size()), static_cast<ssize_t>(no.size()));
    }
    Peer console(path);
    EXPECT_EQ(named("vexagent-node", living()).size(), 2u);
    EXPECT_EQ(console.command("print 1"), (Lines{"0:1 | $1 = 1", "READY"}));
    quit(console);
}

// A peer of the agents' port, with a connection of its own.
class Stranger {
  public:
    explicit Stranger(int port) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(static_cast<in_port_t>(port));
        if (::connect(socket.getFd(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            throw std::runtime_error("nobody listens");
    }

    void send(const std::string& bytes) {
        socket.write(bytes.data(), static_cast<int>(bytes.size()));
    }
    AgentChallenge introduce(const AgentHello& hello) {
        send(hello.record().frames());
        const auto body = Frame::recv(&socket);
        return AgentChallenge::of(AgentRecord::unpack({body.data(), body.size()}));
    }
    // Does as an agent does.
    void hello(const std::string& secret, int rank, int size) {
        const AgentHello hello{.nonce = "once", .host = "elsewhere"};
        const AgentChallenge challenge = introduce(hello);
        const auto proof = [&](Handshake::Side side) {
            return Handshake::proof(side, secret, hello.record().body, challenge.nonce);
        };
        EXPECT_EQ(challenge.proof == proof(Handshake::FRONT_END), size > 0);
        send(AgentRecord{AgentRecord::PROOF, proof(Handshake::AGENT)}.frames());
        send(NodeRecords::tasks({{rank, size, 1}}).frames());
    }
    // Whether the other side hangs up, after whatever it had to say.
    bool dropped() {
        const Deadline deadline;
        while (readable(deadline)) {
            char buffer[4096];
            if (::recv(socket.getFd(), buffer, sizeof buffer, 0) <= 0) return true;
        }
        return false;
    }
    bool readable(const Deadline& deadline = Deadline()) const {
        pollfd ready{socket.getFd(), POLLIN, 0};
        return ::poll(&ready, 1, deadline.left()) == 1;
    }

  private:
    UnixSocket socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

TEST_F(LaunchTest, OnlyAgentsOfThisLaunchComeIn) {
    const std::string path = beginWith({"--launch", handMade(2), "--forks", "no", program("halo")});
    await("copy");
    EXPECT_EQ(rendezvousFiles(), 1u);
    std::istringstream in(folder.read("copy"));
    const Rendezvous where = Rendezvous::parse(in);

    // Who does not know the secret has only what others have said: that is no proof a second time,
    // nor is the front end's own.
    const AgentHello overheard{.nonce = "once", .host = "elsewhere"};
    Stranger agent(where.port), replayed(where.port), reflected(where.port);
    const AgentChallenge first = agent.introduce(overheard), second = replayed.introduce(overheard),
                         third = reflected.introduce(overheard);
    EXPECT_NE(first.nonce, second.nonce);
    const std::string heard =
        Handshake::proof(Handshake::AGENT, where.secret, overheard.record().body, first.nonce);
    replayed.send(AgentRecord{AgentRecord::PROOF, heard}.frames());
    reflected.send(AgentRecord{AgentRecord::PROOF, third.proof}.frames());
    EXPECT_TRUE(replayed.dropped());
    EXPECT_TRUE(reflected.dropped());

    Stranger silent(where.port), huge(where.port), wrong(where.port), lying(where.port);
    huge.send(std::string("\x00\x10\x00\x00", 4));
    wrong.hello(std::string(where.secret.size(), 'f'), 0, -1);
    lying.send(std::string("\0\0\0\x08\0\0\0\x01\0\0\0\x01", 12));
    EXPECT_TRUE(huge.dropped());
    EXPECT_TRUE(wrong.dropped());
    EXPECT_TRUE(lying.dropped());

    Stranger task(where.port);
    task.hello(where.secret, 0, 2);
    EXPECT_TRUE(task.readable());
    const std::pair<int, int> places[] = {{0, 2}, {2, 2}, {-2, 2}, {1, 3}};
    for (const auto& [rank, size] : places) {
        Stranger impostor(where.port);
        impostor.hello(where.secret, rank, size);
        EXPECT_TRUE(impostor.dropped());
        vex->until("was refused: it says that it is rank " + std::to_string(rank) + " of " +
                   std::to_string(size));
    }
    EXPECT_TRUE(silent.dropped());

    folder.write("go", "");
    task.send(NodeRecords::started({{0}, false, false, false, ""}).frames());
    Peer console(path);
    EXPECT_EQ(rendezvousFiles(), 0u);
    EXPECT_THROW(Stranger{where.port}, std::runtime_error);
    EXPECT_EQ(console.command("print 1", "1"), (Lines{"1 | $1 = 1", "READY"}));
    // One that talks nonsense is gone; the session goes on with the rest.
    task.send(NodeRecords::lines(0, {}, {{{0}, {"hello"}}}).frames());
    EXPECT_EQ(console.next(), (Lines{"0 | hello"}));
    task.send(std::string("\x7f\xff\xff\xff", 4));
    EXPECT_EQ(console.next(), (Lines{"REPLY 5 0"}));
    EXPECT_TRUE(task.dropped());
    EXPECT_EQ(console.command("print 2"), (Lines{"1 | $2 = 2", "READY"}));
    quit(console);
}

// Somebody else may have got the front end's port, on another machine that has its address.
TEST_F(LaunchTest, AnAgentObeysNobodyButItsFrontEnd) {
    const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    socklen_t size = sizeof address;
    ASSERT_EQ(::listen(listener.get(), 1), 0); // on a port of the system's choice
    ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
    const std::string rendezvous = folder.write(
        "rendezvous", "address 127.0.0.1\nport " + std::to_string(ntohs(address.sin_port)) +
                          "\nsecret S\nrank 0\nsize 1\nend .\n");
    ::chmod(rendezvous.c_str(), 0600);
    Terminal agent({{program("vexagent"), "--rendezvous", rendezvous}});
    const Descriptor peer(::accept(listener.get(), nullptr, nullptr));
    DebuggerStart start;
    start.argv = {"/bin/touch", folder.path("obeyed")};
    start.prompt = start.terminal = start.inputTerminal = start.process = "x";
    const std::string lies = AgentChallenge{"n", std::string(32, 'x')}.record().frames() +
                             NodeRecords::start({start, {{0, 0}}}).frames();
    EXPECT_EQ(::send(peer.get(), lies.data(), lies.size(), MSG_NOSIGNAL),
              static_cast<ssize_t>(lies.size()));
    agent.until("another program listens there, not the front end");
    EXPECT_EQ(agent.exitStatus(), 1);
    EXPECT_FALSE(std::filesystem::exists(folder.path("obeyed")));
}

TEST_F(LaunchTest, FailuresSayWhyAndWhatToDo) {
    const std::string shouting = script("shouting", "#!/bin/sh\necho no slots for you\nexit 3\n");
    const std::string hosts = folder.write("hosts", "node1\n");
    const std::string big =
        script("big", "#!/bin/sh\nOMPI_COMM_WORLD_RANK=0 OMPI_COMM_WORLD_SIZE=131073 \"$@\"\n");
    const struct {
        Lines arguments;
        Lines texts;
    } cases[] = {
        {{"--launch", "nosuchlauncher -np 4"}, {"cannot find the launcher 'nosuchlauncher'"}},
        {{"--launch", shouting + " -np 4"},
         {"vex: launcher: no slots for you", "the launcher ended with status 3",
          "What it said stands above; options of its own go into --launch."}},
        {{"--launch", shouting, "--hosts", hosts},
         {"launcher: node1: no slots for you", "for host node1 ended with status 3"}},
        {{"--launch", "env"}, {"does not tell its tasks their ranks"}},
        {{"--launch", big}, {"the job has 131073 tasks; a session has 1 to 131072 of them."}},
        {{"--launch", fakeSsh()}, {"ssh needs the hosts of the tasks: --hosts FILE"}},
        {{"--launch", "env", "--hosts", folder.path("none")}, {"cannot read the host file"}},
        {{"--debugger", "nosuchdebugger", "--launch", "env PMI_RANK=0 PMI_SIZE=1"},
         {"vex: 0 | cannot start the debugger: cannot find the debugger 'nosuchdebugger'. Install",
          "no debugger is left"}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.texts[0]);
        Lines arguments = each.arguments;
        arguments.push_back(program("halo"));
        launch(arguments);
        EXPECT_EQ(vex->exitStatus(), 1);
        for (const std::string& text : each.texts)
            EXPECT_NE(vex->screen().find(text), std::string::npos) << vex->screen();
        expectNothingLeft("");
        EXPECT_EQ(rendezvousFiles(), 0u);
    }
}

// While the launcher waits, for an allocation, say, the user gives up, or the session is killed.
TEST_F(LaunchTest, AStartThatDoesNotEndLeavesNothing) {
    for (const bool killed : {false, true}) {
        std::filesystem::remove(folder.path("copy"));
        const std::string path = beginWith({"--launch", handMade(2), program("halo")});
        await("copy");
        EXPECT_EQ(rendezvousFiles(), 1u);
        if (killed) {
            ASSERT_GT(sessionPid(), 0);
            ::kill(sessionPid(), SIGKILL);
        } else {
            vex->signal(SIGUSR1);
            vex->until("the start was given up");
        }
        expectEnd(killed ? 128 + SIGKILL : 1);
        EXPECT_EQ(rendezvousFiles(), 0u);
    }
}

} // namespace
