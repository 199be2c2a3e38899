#include "common/command.h"
#include "common/data.h"
#include "common/frame.h"
#include "common/reply.h"
#include "common/unixsock.h"
#include "tests/support/deadline.h"
#include "tests/support/processes.h"
#include "tests/support/tempdir.h"
#include "tests/support/terminal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <poll.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

using Lines = std::vector<std::string>;

// A console of which only the connection exists.
class Peer {
  public:
    explicit Peer(const std::string& path) {
        if (socket.connect(path.c_str(), 20) != 0) throw std::runtime_error("nobody listens");
    }

    // Waits for the number; the debuggers have prompted then.
    void begin() {
        awaitBytes();
        socket.read(&id, sizeof id);
    }
    void send(Command::Type type, const std::string& group, const std::string& text = "") {
        Command command;
        command.init(id, group, type, text.c_str(), text.empty() ? 0 : -1);
        command.send(&socket);
    }
    // The next record, as text: "READY", "REPLY -1 511", or the lines of a TEXT record, each as
    // "0:3 | content".
    Lines next() {
        Data pieces;
        return next(pieces);
    }
    // All that comes until READY, or until another record that ends a wait: the lines, then the
    // other records. Slow clients send the same line later; it counts once.
    Lines untilReady() {
        Data pieces;
        Lines others;
        for (;;) {
            const Lines some = next(pieces);
            const bool ready = some == Lines{"READY"};
            if (!ready && !(some.size() == 1 && some[0].starts_with("REPLY"))) continue;
            others.push_back(some[0]);
            if (!ready && !some[0].starts_with("REPLY -1")) continue;
            pieces.merge();
            Lines all = textOf(pieces);
            all.insert(all.end(), others.begin(), others.end());
            return all;
        }
    }
    Lines command(const std::string& text, const std::string& group = "all") {
        send(Command::CLIENT, group, text);
        return finish();
    }
    // The answer to a command or an interrupt, and FILTERED as a console does it.
    Lines finish() {
        Lines answer = untilReady();
        if (answer.back() == "READY") {
            GroupCommand filtered;
            filtered.setOpType(GroupCommand::ASSIGN);
            filtered.setBase("FILTERED");
            int length = 0;
            const auto body = filtered.pack(&length);
            Command command;
            command.init(id, "all", Command::GROUP, body.get(), length);
            command.send(&socket);
            EXPECT_EQ(next(), Lines{"REPLY 0 0"});
        }
        return answer;
    }
    bool closed() {
        try {
            for (;;)
                next();
        } catch (const BrokenConnection&) {
            return true;
        }
    }

  private:
    UnixSocket socket;
    int id = 0;

    // Adds the lines of a TEXT record to those before.
    Lines next(Data& pieces) {
        awaitBytes();
        int kind = 0;
        socket.read(&kind, sizeof kind);
        if (kind == KIND_REPLY) {
            Reply reply;
            reply.recv(&socket);
            return {"REPLY " + std::to_string(reply.getRetValue()) + " " +
                    std::to_string(reply.getErrCode())};
        }
        Data data;
        data.recv(&socket);
        if (data.getType() == Data::READY) return {"READY"};
        pieces.addData(&data);
        return textOf(data);
    }
    static Lines textOf(const Data& data) {
        Lines lines;
        for (const auto& [number, slot] : data.slots()) {
            for (const auto& line : slot.lines)
                lines.push_back(line->clients().str() + "| " + line->getContent());
        }
        return lines;
    }
    void awaitBytes() {
        pollfd ready{socket.getFd(), POLLIN, 0};
        if (::poll(&ready, 1, Deadline().left()) != 1) throw std::runtime_error("no answer");
    }
};

// vex with real debuggers, on a terminal, its console being a program that does nothing.
class VexTest : public testing::Test {
  protected:
    TempDir folder;
    std::unique_ptr<Terminal> vex;
    const std::string mark = "VEX_TEST=" + folder.path();
    long long socketTime = 1; // of the session begun last

    void SetUp() override {
        if (::getuid() == 0) GTEST_SKIP() << "vex refuses root; run as an ordinary user";
    }

    static std::string program(const std::string& name) {
        return std::string(VEX_BIN_DIR) + "/" + name;
    }
    std::string script(const std::string& name, const std::string& text) {
        const std::string path = folder.write(name, text);
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
        return path;
    }
    void launch(const Lines& arguments) {
        Terminal::Start start;
        start.argv = {program("vex")};
        start.argv.insert(start.argv.end(), arguments.begin(), arguments.end());
        start.environment["VEX_TEST"] = folder.path();
        vex = std::make_unique<Terminal>(start);
    }
    // Starts n clients of the example; gives the socket's path.
    std::string begin(int n, const Lines& more = {}) {
        Lines arguments{"-n", std::to_string(n)};
        arguments.insert(arguments.end(), more.begin(), more.end());
        arguments.push_back(program("halo"));
        return beginWith(arguments);
    }
    // Starts a session of any kind.
    std::string beginWith(const Lines& more) {
        const std::string file = folder.path("session");
        const std::string console =
            script("console", "#!/bin/sh\necho $2 > " + file + ".new\nmv " + file + ".new " + file +
                                  "\nexec sleep 1000\n");
        Lines arguments{"--console", console};
        arguments.insert(arguments.end(), more.begin(), more.end());
        launch(arguments);
        const Deadline deadline;
        while (folder.read("session").empty() && deadline.left() > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        const std::string path =
            "/tmp/.vexsock." + std::to_string(std::atoi(folder.read("session").c_str()));
        socketTime = timeOf(path);
        return path;
    }
    // When a file was made or changed last, in ns; 0: there is none.
    static long long timeOf(const std::string& path) {
        struct stat status {};
        if (::stat(path.c_str(), &status) == -1) return 0;
        return status.st_ctim.tv_sec * 1000000000LL + status.st_ctim.tv_nsec;
    }
    // The living processes that descend from this test's vex, itself included.
    std::vector<pid_t> living() const {
        std::vector<pid_t> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::ifstream file(entry.path() / "environ", std::ios::binary);
            const std::string all{std::istreambuf_iterator<char>(file), {}};
            if (all.find(mark) != std::string::npos)
                found.push_back(std::atoi(entry.path().filename().c_str()));
        }
        return found;
    }
    pid_t consolePid() const {
        for (pid_t id : living()) {
            std::ifstream file("/proc/" + std::to_string(id) + "/comm");
            std::string name;
            std::getline(file, name);
            if (name == "sleep") return id;
        }
        return -1;
    }
    static std::vector<pid_t> tasksOf(pid_t launcher, const std::string& name) {
        std::vector<pid_t> found = Processes::descendants(launcher);
        std::erase_if(found, [&name](pid_t id) { return Processes::name(id) != name; });
        return found;
    }
    // A real console ends when its connection does; this one is made to.
    void killConsole() const {
        const Deadline deadline;
        pid_t id = -1;
        while ((id = consolePid()) == -1 && deadline.left() > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        if (id > 0) ::kill(id, SIGKILL);
    }
    void expectNothingLeft(const std::string& path) const {
        const Deadline deadline;
        while (!living().empty() && deadline.left() > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        EXPECT_TRUE(living().empty());
        // The number may have gone to a session of another test.
        if (!path.empty()) {
            EXPECT_NE(timeOf(path), socketTime) << path;
        }
    }
    // Runs the example until it stands still: one task computes, the others wait for messages.
    static void runIntoTheHang(Peer& console, int n) {
        console.send(Command::CLIENT, "all", "run");
        for (int told = 0; told < n;) {
            for (const std::string& line : console.next())
                told += line.find("still waits") != std::string::npos ||
                        line.find("does not settle") != std::string::npos;
        }
    }
};

TEST_F(VexTest, ASessionWithRealDebuggers) {
    const std::string path = begin(4);
    struct stat status {};
    ASSERT_EQ(::stat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600u);
    Peer console(path);
    console.begin();
    EXPECT_EQ(console.command("print 6 * 7"), (Lines{"0:3 | $1 = 42", "READY"}));
    // The empty line repeats the last command.
    EXPECT_EQ(console.command("echo x\\n", "2"), (Lines{"2 | x", "READY"}));
    console.send(Command::CLIENT, "2", "");
    EXPECT_EQ(console.finish(), (Lines{"2 | x", "READY"}));
    console.command("break simulate");
    const Lines run = console.command("run");
    EXPECT_NE(std::find_if(run.begin(), run.end(),
                           [](const std::string& line) {
                               return line.find("Breakpoint 1, simulate") != std::string::npos;
                           }),
              run.end());
    EXPECT_EQ(console.command("print rank"),
              (Lines{"0 | $2 = 0", "1 | $2 = 1", "2 | $2 = 2", "3 | $2 = 3", "READY"}));
    // No second line is waited for.
    EXPECT_EQ(console.command("echo x\\", "1"), (Lines{"1 | x", "READY"}));
    EXPECT_EQ(console.command("echo x\\\\", "1"), (Lines{"1 | x", "READY"}));
    EXPECT_EQ(console.command("nosuch", "1"),
              (Lines{"1 | Undefined command: \"nosuch\".  Try \"help\".", "READY"}));
    // The debugger's own quit is the normal end.
    console.send(Command::CLIENT, "3", "quit");
    EXPECT_EQ(console.finish(), (Lines{"REPLY 5 3", "READY"}));
    console.send(Command::CLIENT, "all", "quit");
    Lines end = console.untilReady();
    std::sort(end.begin(), end.end() - 1); // in the order in which they went
    EXPECT_EQ(end, (Lines{"REPLY 5 0", "REPLY 5 1", "REPLY 5 2", "REPLY -1 803"}));
    EXPECT_TRUE(console.closed());
    killConsole();
    EXPECT_EQ(vex->exitStatus(), 0);
    expectNothingLeft(path);
}

TEST_F(VexTest, AnInterruptStopsWhoComputesAndWhoWaits) {
    Peer console(begin(4));
    console.begin();
    for (int round = 0; round < 3; ++round) {
        if (round == 0)
            runIntoTheHang(console, 4);
        else
            console.send(Command::CLIENT, "all", "continue");
        console.send(Command::INTERRUPT, "all");
        console.finish();
        EXPECT_EQ(console.command("print ntasks").back(), "READY");
    }
    EXPECT_EQ(console.command("print 1").size(), 2u);
    console.send(Command::QUIT, "all");
    killConsole();
    vex->exitStatus();
}

// What the debugger itself waits for; the program, which waits too, is told once and only then.
TEST_F(VexTest, AnInterruptStopsWhatTheDebuggerRunsForIt) {
    Peer console(begin(2));
    console.begin();
    for (const char* text : {"shell sleep 100", "!sleep 100; sleep 100", "pipe print 1 | sleep 100",
                             "make -f /dev/null --eval 'x:;@sleep 100' x"}) {
        SCOPED_TRACE(text);
        console.send(Command::CLIENT, "all", text);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        console.send(Command::INTERRUPT, "all");
        EXPECT_EQ(console.finish().back(), "READY");
    }
    console.command("break simulate");
    console.command("run");
    console.send(Command::CLIENT, "all", "continue");
    console.send(Command::INTERRUPT, "all");
    console.finish();
    for (const std::string& line : console.command("info proc status")) {
        EXPECT_TRUE(line.find("Pnd:") == std::string::npos || line.ends_with("0000")) << line;
    }
    EXPECT_EQ(console.command("print 1").size(), 2u);
    console.send(Command::QUIT, "all");
    killConsole();
    vex->exitStatus();
}

// More clients than the user's limit has room for; what they run keeps that limit.
TEST_F(VexTest, ALowLimitOfOpenFilesIsNoObstacle) {
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit low{24, limit.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &low), 0);
    const std::string path = begin(10);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);
    Peer console(path);
    console.begin();
    EXPECT_EQ(console.command("shell ulimit -Sn"), (Lines{"0:9 | 24", "READY"}));
    console.send(Command::QUIT, "all");
    killConsole();
    vex->exitStatus();
}

TEST_F(VexTest, TheProgramWritesWhereItsCommandLineSays) {
    const std::string both = folder.write("both", "echo out\necho err >&2\n");
    Peer console(beginWith({"-n", "1", "/bin/sh"}));
    console.begin();
    const std::string file = folder.path("file");
    const struct {
        std::string redirection, filed;
        bool out, err;
    } cases[] = {
        {"", "", true, true},
        {" >" + file, "out\n", false, true},
        {" 2>" + file, "err\n", true, false},
        {" >" + file + " 2>&1", "out\nerr\n", false, false},
        {" </dev/null", "", true, true},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.redirection);
        folder.write("file", "");
        const Lines lines = console.command("run " + both + each.redirection);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "0 | out"), each.out);
        EXPECT_EQ(std::count(lines.begin(), lines.end(), "0 | err"), each.err);
        EXPECT_EQ(folder.read("file"), each.filed);
    }
    console.send(Command::QUIT, "all");
    killConsole();
    vex->exitStatus();
}

TEST_F(VexTest, NothingIsLeftBehind) {
    std::unique_ptr<Peer> console;
    const struct {
        const char* name;
        std::function<void()> end;
        int status;
        bool removesItsFile = true;
    } ways[] = {
        {"kquit", [&] { console->send(Command::QUIT, "all"); }, 0},
        {"SIGTERM", [&] { vex->signal(SIGTERM); }, 128 + SIGTERM},
        {"SIGHUP", [&] { vex->hangUp(); }, 128 + SIGHUP},
        {"SIGKILL", [&] { vex->signal(SIGKILL); }, 128 + SIGKILL, false},
        {"the last console is killed",
         [&] {
             killConsole();
             console.reset();
         },
         0},
    };
    for (const auto& way : ways) {
        SCOPED_TRACE(way.name);
        std::filesystem::remove(folder.path("session"));
        const std::string path = begin(3);
        console = std::make_unique<Peer>(path);
        console->begin();
        runIntoTheHang(*console, 3);
        const pid_t sleeper = consolePid();
        ASSERT_GT(sleeper, 0);
        way.end();
        ::kill(sleeper, SIGKILL);
        EXPECT_EQ(vex->exitStatus(), way.status);
        expectNothingLeft(way.removesItsFile ? path : "");
        if (!way.removesItsFile) ::unlink(path.c_str());
        console.reset();
    }
}

TEST_F(VexTest, TheLastConsoleDoesNotEndTheSessionOfAnother) {
    const std::string path = begin(2);
    Peer first(path);
    first.begin();
    auto second = std::make_unique<Peer>(path);
    second->begin();
    second->send(Command::CLIENT, "1", "run");
    second.reset();
    // What it started stays busy.
    EXPECT_EQ(first.command("print 1").back(), "REPLY -1 519");
    EXPECT_EQ(first.command("print 1", "0").back(), "READY");
    first.send(Command::QUIT, "all");
    EXPECT_TRUE(first.closed());
    killConsole();
    EXPECT_EQ(vex->exitStatus(), 0);
    expectNothingLeft(path);
}

TEST_F(VexTest, AStartThatHangsCanBeGivenUp) {
    const std::string debugger = script("debugger", "#!/bin/sh\nsleep 1000\n");
    const std::string path = begin(3, {"--debugger", debugger});
    Peer console(path);
    vex->signal(SIGUSR1);
    EXPECT_TRUE(console.closed());
    vex->until("vex: the start was given up\n");
    killConsole();
    EXPECT_EQ(vex->exitStatus(), 1);
    expectNothingLeft(path);
}

TEST_F(VexTest, DebuggersThatDieDuringTheStartAreReported) {
    const std::string debugger = script("debugger", "#!/bin/sh\necho my last words\n");
    const std::string path = begin(2, {"--debugger", debugger});
    vex->until("vex: 0:1 | my last words\n");
    vex->until("vex: 0:1 | the debugger ended during the start\n");
    killConsole();
    EXPECT_EQ(vex->exitStatus(), 1);
    expectNothingLeft(path);
}

// A process that is there before the session and after it; counts on its standard output.
class Walker {
  public:
    explicit Walker(const Lines& arguments = {}) {
        if (::pipe2(ends, O_CLOEXEC) == -1) throw std::runtime_error("no pipe");
        id = ::fork();
        if (id == 0) {
            ::dup2(ends[1], 1);
            std::string name = std::string(VEX_BIN_DIR) + "/steadily";
            Lines words = arguments;
            std::vector<char*> argv{name.data()};
            for (std::string& word : words)
                argv.push_back(word.data());
            argv.push_back(nullptr);
            ::execv(argv[0], argv.data());
            ::_exit(127);
        }
        ::close(ends[1]);
    }
    ~Walker() {
        ::kill(id, SIGKILL);
        ::waitpid(id, nullptr, 0);
        ::close(ends[0]);
    }
    Walker(const Walker&) = delete;
    Walker& operator=(const Walker&) = delete;

    pid_t pid() const { return id; }
    std::string number() const { return std::to_string(id); }
    // Whether it counts: what it has said so far is thrown away, then it must say more, for so long
    // that all its threads have come by every place where a breakpoint can be left.
    bool walks() const {
        char text[65536];
        for (int lines = 0; lines < 20; ++lines) {
            pollfd ready{ends[0], POLLIN, 0};
            if (::poll(&ready, 1, 5000) != 1 || ::read(ends[0], text, sizeof text) <= 0)
                return false;
        }
        return Processes::lives(id);
    }

  private:
    int ends[2];
    pid_t id;
};

TEST_F(VexTest, WhatItAttachedToRunsOnWithoutBreakpoints) {
    std::unique_ptr<Peer> console;
    const auto kquit = [&] { console->send(Command::QUIT, "all"); };
    const auto freeRun = [&] { console->send(Command::CLIENT, "all", "continue"); };
    const struct {
        const char* name;
        Lines walker;
        std::function<void()> before, end;
    } cases[] = {
        {"idle, kquit", {}, [] {}, kquit},
        {"idle, SIGKILL", {}, [] {}, [&] { vex->signal(SIGKILL); }},
        {"running, kquit", {"threads"}, freeRun, kquit},
        {"running, SIGTERM", {"threads"}, freeRun, [&] { vex->signal(SIGTERM); }},
        {"running, SIGKILL", {"threads"}, freeRun, [&] { vex->signal(SIGKILL); }},
        {"running, SIGINT blocked, kquit", {"deaf"}, freeRun, kquit},
        {"with a question, kquit",
         {},
         [&] { console->send(Command::CLIENT, "all", "commands"); },
         kquit},
        {"the debuggers' own quit",
         {"threads"},
         [] {},
         [&] { console->send(Command::CLIENT, "all", "quit"); }},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        const Walker walkers[2]{Walker(each.walker), Walker(each.walker)};
        std::filesystem::remove(folder.path("session"));
        const std::string path =
            beginWith({"--attach", walkers[0].number() + "," + walkers[1].number()});
        console = std::make_unique<Peer>(path);
        console->begin();
        // The first one steps on its breakpoint all the time, and goes on.
        console->command("break step");
        console->command("ignore 1 1000000");
        each.before();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        const pid_t sleeper = consolePid();
        each.end();
        ::kill(sleeper, SIGKILL);
        vex->exitStatus();
        expectNothingLeft("");
        ::unlink(path.c_str());
        for (const Walker& walker : walkers)
            EXPECT_TRUE(walker.walks());
        console.reset();
    }
}

// The launchers of the MPI libraries that this system has, each with the example built for it.
struct Mpi {
    const char* program;
    Lines launcher;
};
const Mpi mpis[] = {
    {"ring.openmpi", {"mpirun.openmpi", "--oversubscribe", "-np", "2"}},
    {"ring.mpich", {"mpiexec.mpich", "-n", "2"}},
};

TEST_F(VexTest, AttachesToTheTasksOfAnMpiJob) {
    int tried = 0;
    for (const Mpi& mpi : mpis) {
        SCOPED_TRACE(mpi.program);
        if (::access(program(mpi.program).c_str(), X_OK) != 0) continue;
        ++tried;
        Terminal::Start start;
        start.argv = {"/usr/bin/env"};
        start.argv.insert(start.argv.end(), mpi.launcher.begin(), mpi.launcher.end());
        start.argv.push_back(program(mpi.program));
        Terminal job(start);
        // Time for MPI_Init, behind which a task knows its rank.
        const Deadline deadline;
        while (deadline.left() > 0 && tasksOf(job.pid(), mpi.program).size() < 2)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ASSERT_EQ(tasksOf(job.pid(), mpi.program).size(), 2u) << job.screen();
        std::this_thread::sleep_for(std::chrono::seconds(1));
        std::filesystem::remove(folder.path("session"));
        const std::string path = beginWith({"--mpi", std::to_string(job.pid())});
        Peer console(path);
        console.begin();
        EXPECT_EQ(console.command("print rank"), (Lines{"0 | $1 = 0", "1 | $1 = 1", "READY"}));
        console.command("print lost = 0");
        console.send(Command::QUIT, "all");
        killConsole();
        EXPECT_EQ(vex->exitStatus(), 0);
        // Released, they come to their end.
        EXPECT_EQ(job.exitStatus(), 0);
    }
    if (tried == 0) GTEST_SKIP() << "there is no MPI here (Debian: openmpi-bin, mpich)";
}

TEST_F(VexTest, AttachesToWhatAnAttachFileNames) {
    const Walker first, second;
    const std::string file = folder.write(
        "attach.cfg", "5100\n4\n2 0 127.0.0.1 localhost " + second.number() + " 1 /bin/x \n" +
                          "0 0 127.0.0.1 localhost " + first.number() + " 1 /bin/x \n" +
                          "1 0 127.0.0.1 localhost -1 1 /bin/x \n" +
                          "3 0 198.51.100.7 elsewhere 77 1 /bin/x \n");
    Peer console(beginWith({"--attach-config", file}));
    vex->until("vex: task 1 is left out: it has no process\n");
    vex->until("vex: task 3 is left out: it runs on elsewhere\n");
    console.begin();
    EXPECT_EQ(console.command("python print(gdb.selected_inferior().pid)"),
              (Lines{"0 | " + first.number(), "1 | " + second.number(), "READY"}));
    console.send(Command::QUIT, "all");
    killConsole();
    vex->exitStatus();
}

TEST_F(VexTest, SaysWhatIsWrongAndWhatToDo) {
    const Walker walker;
    const std::string number = walker.number();

    const std::string text = folder.write("text", "no program");
    const struct {
        Lines arguments;
        const char* message;
    } cases[] = {
        {{}, "program is required"},
        {{"-n", "0", "true"}, "Value 0 not in range 1 to 4096"},
        {{"-n", "2", "./nosuch"}, "cannot find the program './nosuch': No such file or directory"},
        {{"nosuch-program"}, "neither here nor in PATH"},
        {{text}, "chmod +x"},
        {{folder.path()}, "is a directory"},
        {{"--debugger", "nosuch-debugger", "true"}, "apt-get install gdb"},
        {{"--console", "/nosuch", "true"}, "cannot find the console program '/nosuch'"},
        {{"--attach", number + "," + number}, "is named twice"},
        {{"--attach", number, "true"}, "No program can be given"},
        {{"--attach", number, "-n", "2"}, "excludes"},
        {{"--attach", number + ",x"}, "x"},
        {{"--attach", "4194304"}, "there is no such process"},
        {{"--attach", "1"}, "it belongs to root. Run vex as root."},
        {{"--attach-config", "/nosuch"}, "/nosuch"},
    };
    for (const auto& each : cases) {
        launch(each.arguments);
        EXPECT_NE(vex->exitStatus(), 0) << each.message;
        EXPECT_NE(vex->screen().find(each.message), std::string::npos) << each.message << "\n"
                                                                       << vex->screen();
    }
    launch({"--version"});
    EXPECT_EQ(vex->exitStatus(), 0);
    EXPECT_EQ(vex->screen(), "vex " VEX_VERSION "\n");
}

} // namespace
