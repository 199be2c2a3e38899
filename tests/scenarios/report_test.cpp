#include "backend/os/childprocess.h"
#include "backend/os/executables.h"
#include "common/descriptor.h"
#include "tests/support/vextest.h"
#include "tests/support/walker.h"

#include <arpa/inet.h>
#include <elf.h>
#include <netinet/in.h>
#include <regex.h>

namespace {

// vex with a report in place of a console.
class ReportTest : public VexTest {
  protected:
    // The status, and the first lines of the report.
    std::pair<int, Lines> report(const Lines& words, std::size_t lines,
                                 const std::string& name = "report.txt") {
        const std::string file = folder.path(name);
        std::filesystem::remove(file);
        Lines all{"--report", file};
        all.insert(all.end(), words.begin(), words.end());
        launch(all);
        const int status = vex->exitStatus();
        expectNothingLeft("");
        std::istringstream text(folder.read(name));
        Lines first(lines);
        for (std::string& line : first)
            std::getline(text, line);
        return {status, first};
    }
    struct Case {
        Lines words, first; // first lines of the report
        int status;
    };
    void expectReports(const std::vector<Case>& cases) {
        for (const Case& each : cases) {
            SCOPED_TRACE(each.words.back());
            Lines words{"-n", "3"};
            words.insert(words.end(), each.words.begin(), each.words.end());
            const auto [status, lines] = report(words, each.first.size());
            EXPECT_EQ(status, each.status) << vex->screen();
            expectMatch(lines, each.first);
        }
    }
    // The debugger of task 1 never prompts.
    std::string sleeps() {
        return script("sleeps",
                      "#!/bin/sh\n[ $VEX_TASK = 1 ] && exec sleep 1000\nexec gdb \"$@\"\n");
    }
    static std::string launcherOf(const std::string& mpi) {
        return mpi == "mpich" ? "mpiexec.mpich -n " : "mpirun.openmpi --oversubscribe -np ";
    }
    void expectMatch(const Lines& lines, const Lines& patterns) {
        for (std::size_t i = 0; i < patterns.size(); ++i) {
            regex_t compiled;
            ASSERT_EQ(
                ::regcomp(&compiled, ("^(" + patterns[i] + ")$").c_str(), REG_EXTENDED | REG_NOSUB),
                0);
            EXPECT_EQ(::regexec(&compiled, lines.at(i).c_str(), 0, nullptr, 0), 0) << lines[i];
            ::regfree(&compiled);
        }
    }
};

const std::string well = "all went well: 3 tasks ended with status 0";

TEST_F(ReportTest, NamesWhoIsAtFault) {
    const std::string halo = program("halo");
    expectReports(
        {{{halo, "--healthy"}, {well, ""}, 0},
         {{halo, "--crash"},
          {"1 of 3 tasks crashed",
           R"([0-9] \| SIGSEGV, Segmentation fault, at address 0x8, in peak \(halo.cpp:[0-9]+\), called by simulate)"},
          4},
         {{"--timeout", "3", halo},
          {"timed out after 3 seconds: what its 3 tasks did then",
           R"([0-9] \| 1 client in .*called by .*)",
           R"([0-9].* \| 2 clients in poll, called by wait_for_message)"},
          5}});
    for (const Lines& wrong :
         {Lines{"--report", "x.pdf", halo}, {"--timeout", "3", halo}, {"--report", "x.txt"}}) {
        launch(wrong);
        EXPECT_EQ(vex->exitStatus(), 2) << vex->screen();
    }
    EXPECT_EQ(report({halo}, 0, "none/report.txt").first, 1);
    EXPECT_TRUE(vex->screen().ends_with(": No such file or directory\n")) << vex->screen();
    // Nobody reads what the tasks say, and not all of the report.
    for (const std::string& file : {folder.path("report.txt"), std::string("-")}) {
        std::filesystem::remove(folder.path("report.txt"));
        const char* const line = VEX_BIN_DIR "/vex --report $0 -n 2 $1 --crash | true; "
                                             "echo status ${PIPESTATUS[0]}";
        Terminal piped({{"bash", "-c", line, file, halo}});
        piped.until("status 4\n");
        EXPECT_EQ(piped.exitStatus(), 0);
        EXPECT_EQ(folder.read("report.txt").find("1 of 2 tasks crashed\n"),
                  file == "-" ? std::string::npos : 0);
    }
}

TEST_F(ReportTest, TellsCrashesFromSignals) {
    const std::string endings = program("endings");
    const Lines stumbled{
        "1 of 3 tasks crashed",
        R"(1 \| SIGSEGV, .* 0x0, in .*stumble.* \(endings.cpp:[0-9]+\), called by main)"};
    // Its prompt comes late behind what it tells of a stop: about when the task is judged by that,
    // or when a question would long be answered.
    const auto late = [this](const std::string& seconds) {
        return script("late" + seconds,
                      "#!/bin/sh\nexec gdb -iex \"python exec('import gdb, time\\nlate = []\\n"
                      "gdb.events.stop.connect(late.append)\\ndef wait():\\n if late:\\n"
                      "  late.clear()\\n  time.sleep(${0##*late})\\n"
                      "gdb.events.before_prompt.connect(wait)')\" \"$@\"\n");
    };
    expectReports({{{endings, "status"}, {"1 of 3 tasks failed", R"(1 \| ended with status 3)"}, 4},
                   {{"--debugger", late("0.25"), endings, "suspended"}, {well}, 0},
                   {{"--debugger", late("6"), endings, "recovers"}, {well}, 0},
                   {{endings, "recovers"}, {well}, 0},
                   {{endings, "storm"}, {well}, 0},
                   {{endings, "pages"}, {well}, 0},
                   {{endings, "reports"}, stumbled, 4},
                   {{endings, "again"}, stumbled, 4},
                   {{endings, "usr1"}, {well}, 0}});
    // What they say is seen as it is said.
    EXPECT_NE(vex->screen().find("1 | 3 signals\n"), std::string::npos) << vex->screen();
}

TEST_F(ReportTest, LeavesWhatRunsAsItWas) {
    const Walker walker;
    auto [status, lines] = report({"--attach", walker.number()}, 2);
    EXPECT_EQ(status, 0) << vex->screen();
    expectMatch(lines, {"what 1 task does", R"(0 \| 1 client in .*)"});
    EXPECT_TRUE(walker.walks());
    // A session of others, whose task has crashed.
    Peer console(beginWith({"-n", "2", program("endings")}));
    console.deaf = true;
    console.command("run again");
    console.send(Command::CLIENT, "0", "shell sleep 1000");
    const auto owner = std::move(vex);
    const std::string session = folder.read("session");
    launch({"--join", std::to_string(std::atoi(session.c_str())), "--report", "-"});
    EXPECT_EQ(vex->exitStatus(), 0) << vex->screen();
    EXPECT_NE(vex->screen().find("1 of 2 tasks crashed\n"), std::string::npos) << vex->screen();
    EXPECT_NE(vex->screen().find("\n0 | not looked at: "), std::string::npos) << vex->screen();
    EXPECT_EQ(console.command("print 6 * 7", "1"), (Lines{"1 | $1 = 42", "READY"}));
    vex = nullptr;
    owner->signal(SIGTERM);
}

TEST_F(ReportTest, SaysWhatDebuggersCouldNotDo) {
    Elf64_Ehdr header{};
    std::memcpy(header.e_ident, ELFMAG, SELFMAG);
    header.e_ident[EI_CLASS] = ELFCLASS64;
    header.e_ident[EI_DATA] = ELFDATA2LSB;
    header.e_ident[EI_VERSION] = EV_CURRENT;
    header.e_type = ET_CORE;
    // Of what is said to follow, there is nothing.
    header.e_phoff = sizeof header;
    header.e_phentsize = sizeof(Elf64_Phdr);
    header.e_phnum = 1;
    const std::string core =
        folder.write("core.4", {reinterpret_cast<const char*>(&header), sizeof header});
    const std::string other = folder.write("core.5", "");
    EXPECT_EQ(report({"--core", folder.path("core.*"), program("halo")}, 0).first, 3);
    std::string text = folder.read("report.txt");
    EXPECT_NE(text.find("\n4 | the debugger could not read the core file\n"), text.npos) << text;
    EXPECT_NE(text.find("\n4 | \"" + core + "\" is not"), text.npos) << text;
    EXPECT_NE(text.find("\n" + other + " is left out: "), text.npos) << text;
    // What gdb says of every core file stands in no report, nor before it.
    const char* const dump = "exec gdb -nx -batch -ex run -ex \"generate-core-file $0\" -ex kill "
                             "--args $1 again >/dev/null 2>&1";
    ChildProcess gdb;
    gdb.start({.argv = {"sh", "-c", dump, folder.path("dead.1"), program("endings")},
               .environment = {{"VEX_TASK", "1"}}});
    ASSERT_TRUE(eventually([&gdb] { return gdb.poll() == ChildProcess::ENDED; }));
    const auto [status, lines] = report({"--core", folder.path("dead.*"), program("endings")}, 2);
    EXPECT_EQ(status, 0);
    expectMatch(lines, {"1 of 1 task crashed", R"(1 \| SIGSEGV, .* 0x0, in .*stumble.*)"});
    for (const char* const raw : {"Core was generated by", "[New LWP", "#0 "})
        EXPECT_EQ(vex->screen().find(raw), std::string::npos) << vex->screen();
    // One that does not answer does not keep the others from it.
    const std::string commands =
        folder.write("commands", "define bt\nshell trap '' INT; sleep 1000\nend\n");
    const std::string hangs =
        script("hangs", "#!/bin/sh\n[ $VEX_TASK != 1 ] || set -- -iex 'source " + commands +
                            "' \"$@\"\nexec gdb \"$@\"\n");
    // Others may need long on a busy machine.
    ::setenv("VEX_REPORT_PATIENCE", "7", 1);
    EXPECT_EQ(report({"-n", "3", "--timeout", "1", "--debugger", hangs, program("halo")}, 0).first,
              5);
    text = folder.read("report.txt");
    EXPECT_NE(text.find("\n1 | no answer to 'bt' in 7 seconds; "), text.npos) << text;
    EXPECT_NE(text.find("2 | #0  "), text.npos) << text;
    // Nor does a program run without the tasks whose debuggers never prompt, here and behind
    // agents.
    const std::string hosts = folder.write("hosts", "node1:2\nnode2\n");
    const Lines agents{"--launch", fakeSsh(), "--hosts", hosts};
    for (const Lines& way : {Lines{"-n", "3"}, agents}) {
        Lines words = way;
        words.insert(words.end(), {"--debugger", sleeps(), program("halo")});
        const auto [missed, told] = report(words, 2);
        EXPECT_EQ(missed, 3) << vex->screen();
        expectMatch(told, {"not run: 1 of 3 tasks has no debugger",
                           "rank 1 is missing: no debugger has come to its prompt in 7 seconds"});
    }
    ::unsetenv("VEX_REPORT_PATIENCE");
}

// The page tells what a user sees who clicks; it fetches nothing by itself, so that is allowed
// first.
TEST_F(ReportTest, AClickShowsARank) {
    const std::string profile = folder.path("profile");
    const struct {
        const char* name;
        Lines options;
    } browsers[] = {
        {"chromium", {"--headless", "--no-sandbox", "--disable-gpu", "--user-data-dir=" + profile}},
        {"google-chrome", {"--headless", "--no-sandbox", "--user-data-dir=" + profile}},
        {"firefox-esr", {"--headless", "--no-remote", "--profile", profile}},
        {"firefox", {"--headless", "--no-remote", "--profile", profile}},
    };
    const auto browser = std::ranges::find_if(
        browsers, [](const auto& each) { return Executables::find(each.name).has_value(); });
    if (browser == std::end(browsers))
        GTEST_SKIP() << "there is no browser here (Debian: chromium, firefox-esr)";
    EXPECT_EQ(report({"-n", "2", program("endings"), "again"}, 0, "report.html").first, 4);
    const Descriptor door(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const place = reinterpret_cast<sockaddr*>(&address);
    ASSERT_EQ(::bind(door.get(), place, size), 0);
    ASSERT_EQ(::listen(door.get(), 1), 0);
    ::getsockname(door.get(), place, &size);
    std::string page = folder.read("report.html");
    const std::string policy = "default-src 'none'; ", end = "</body>";
    ASSERT_NE(page.find(policy), page.npos);
    page.erase(page.find(policy), policy.size());
    page.insert(page.rfind(end), R"(<script>
const rank = document.getElementById('rank'), seen = [];
for (const id of [0, 1]) {
  document.querySelector(`[data-rank="${id}"]`).click();
  seen.push(rank.innerText.includes('stumble'), rank.innerText.includes(`rank ${id} `));
}
document.querySelector('#tree summary').click();
seen.push(document.querySelector('#tree details').open);
new Image().src = 'http://127.0.0.1:)" +
                                     std::to_string(ntohs(address.sin_port)) +
                                     "/' + seen.join();</script>");
    std::filesystem::create_directory(profile);
    Terminal::Start start{{browser->name}, {{"HOME", folder.path()}}};
    start.argv.insert(start.argv.end(), browser->options.begin(), browser->options.end());
    start.argv.push_back("file://" + folder.write("clicked.html", page));
    Terminal shows(start);
    pollfd ready{door.get(), POLLIN, 0};
    ASSERT_EQ(::poll(&ready, 1, Deadline().left()), 1) << shows.screen();
    const Descriptor asks(::accept(door.get(), nullptr, nullptr));
    char text[200] = {};
    EXPECT_GT(::read(asks.get(), text, sizeof text - 1), 0);
    EXPECT_EQ(std::string(text).substr(0, 35), "GET /false,true,true,true,false HTT");
}

// A batch system warns before it kills.
TEST_F(ReportTest, IsWrittenAtAWarning) {
    launch({"--report", folder.path("report.txt"), "-n", "2", program("halo")});
    vex->until("does not settle");
    vex->signal(SIGTERM);
    EXPECT_EQ(vex->exitStatus(), 128 + SIGTERM);
    const std::string text = folder.read("report.txt");
    EXPECT_EQ(text.find("what 2 tasks do\n"), 0u) << text;
    EXPECT_NE(text.find(", called by wait_for_message\n"), text.npos) << text;
    expectNothingLeft("");
    // What was found at fault before that says more, in the report as outside.
    launch({"--report", folder.path("report.json"), "-n", "2", "/bin/sh", "-c",
            "test $VEX_TASK = 1 && exit 3; sleep 1; echo late; sleep 1000"});
    vex->until("late");
    vex->signal(SIGTERM);
    EXPECT_EQ(vex->exitStatus(), 4);
    EXPECT_NE(folder.read("report.json").find("\n\"status\":4,\n"), text.npos);
    expectNothingLeft("");
    // While debuggers start.
    launch({"--report", folder.path("report.txt"), "-n", "2", "--debugger", sleeps(), "true"});
    vex->until("1 of 2 ");
    vex->signal(SIGTERM);
    EXPECT_EQ(vex->exitStatus(), 128 + SIGTERM);
    EXPECT_EQ(folder.read("report.txt").find("not run: 1 of 2 tasks has no debugger\nrank 1 "), 0u);
    expectNothingLeft("");
}

TEST_F(ReportTest, OfAnMpiJobThatCrashes) {
    const std::string segfault = R"( \| SIGSEGV, Segmentation fault, at address 0x0, in )";
    const struct {
        Lines words;
        std::string tasks;
        Lines first;
    } cases[] = {
        {{"faulty", "-", "early"},
         "2",
         {"1 of 2 tasks crashed",
          "1" + segfault + R"(write_beyond \(faulty.cpp:[0-9]+\), called by main)"}},
        {{"faulty", "-", "late", "asserts"},
         "3",
         {"2 of 3 tasks crashed",
          "1" + segfault + R"(write_beyond \(faulty.cpp:[0-9]+\), called by main)",
          R"(2 \| SIGABRT, Aborted, in abort, called by check \(faulty.cpp:[0-9]+\))"}},
        {{"fortran", "crashes"},
         "2",
         {"1 of 2 tasks crashed",
          "1" + segfault + R"(fortran::advance \(fortran.f90:[0-9]+\), called by fortran)"}},
    };
    int tried = 0;
    for (const std::string kind : {"openmpi", "mpich"}) {
        for (auto [words, tasks, first] : cases) {
            words[0] = program(words[0] + "." + kind);
            if (::access(words[0].c_str(), X_OK) != 0) continue;
            ++tried;
            SCOPED_TRACE(words[0] + " " + words.back());
            words.insert(words.begin(), {"--launch", launcherOf(kind) + tasks});
            std::pair<int, Lines> said;
            // On a busy machine, the second crash may come when the first has been looked at.
            for (int attempt = 0;
                 attempt < 3 && (said.second.empty() || said.second[0] != first[0]); ++attempt)
                said = report(words, first.size());
            EXPECT_EQ(said.first, 4) << vex->screen();
            expectMatch(said.second, first);
        }
    }
    if (tried == 0) GTEST_SKIP() << "there is no MPI here (Debian: openmpi-bin, mpich)";
}

TEST_F(ReportTest, OfPythonUnderMpi) {
    const std::string python = "/usr/bin/python3";
    if (std::system((python + " -c 'import mpi4py' 2>/dev/null").c_str()) != 0)
        GTEST_SKIP() << "there is no mpi4py here (Debian: python3-mpi4py)";
    const std::string file = folder.write("step.py", R"(
import ctypes
from mpi4py import MPI
def crash(): ctypes.string_at(0)
if MPI.COMM_WORLD.rank == 1: crash()
MPI.COMM_WORLD.Barrier()
)");
    const auto [status, lines] = report({"--launch", launcherOf("openmpi") + "2", python, file}, 2);
    EXPECT_EQ(status, 4) << vex->screen();
    expectMatch(lines,
                {"1 of 2 tasks crashed", R"(1 \| SIGSEGV, .*, called by crash \(step.py:4\))"});
}

// Those that Python has forked go on as soon as they have debuggers, for which these here wait.
TEST_F(ReportTest, OfWorkersOfPython) {
    const std::string python = "/usr/bin/python3";
    if (::access(python.c_str(), X_OK) != 0) GTEST_SKIP() << "there is no " << python;
    const std::string file = folder.write("pool.py", R"(
import ctypes, multiprocessing, os, sys
def search():
    print("searches", flush=True)
    while True: pass
def crash(): ctypes.string_at(0)
def rest(): pass
def debugger(id):
    tracer = open(f"/proc/{id}/status").read().split("TracerPid:")[1].split()[0]
    try: return open(f"/proc/{tracer}/comm").read() == "gdb\n" and tracer
    except OSError: return False
def work(number):
    while debugger("self") in (False, debugger(os.getppid())): pass
    if number == 1: globals()[sys.argv[1]]()
with multiprocessing.get_context("fork").Pool(2) as pool: pool.map(work, range(2), 1)
)");
    const Lines words{"--forks", "yes", "-n", "1", python, file};
    const auto with = [&words](const std::string& what) {
        Lines all = words;
        all.push_back(what);
        return all;
    };
    auto [status, lines] = report(with("crash"), 2);
    EXPECT_EQ(status, 4) << vex->screen();
    expectMatch(lines, {"1 of 1 task and [2-9] forked processes crashed",
                        R"([12] \| SIGSEGV, .*, called by crash \(pool.py:6\))"});
    // The program ends its workers by a signal.
    std::tie(status, lines) = report(with("rest"), 1);
    EXPECT_EQ(status, 0) << vex->screen();
    expectMatch(lines, {"all went well: 1 task ended with status 0"});
    Lines all{"--report", folder.path("report.txt")};
    std::ranges::copy(with("search"), std::back_inserter(all));
    launch(all);
    vex->until("searches");
    vex->signal(SIGTERM);
    EXPECT_EQ(vex->exitStatus(), 128 + SIGTERM);
    const std::string text = folder.read("report.txt");
    EXPECT_EQ(text.find("what 1 task and "), 0u) << text;
    EXPECT_LT(text.find("search (pool.py:5), called by work (pool.py:14)\n"), text.find("\n\n"))
        << text;
    expectNothingLeft("");
}

// Those that no debugger has followed.
TEST_F(ReportTest, AdvisesToFollowForks) {
    const std::string python = "/usr/bin/python3", advice = ": --forks yes follows them";
    if (::access(python.c_str(), X_OK) != 0) GTEST_SKIP() << "there is no " << python;
    for (const auto& [what, advises] :
         {std::pair("os.fork() or os.abort(); os.wait()", true), {"os.system('false')", false}}) {
        const std::string program = std::string("import os; ") + what + "; os._exit(1)";
        EXPECT_EQ(report({"-n", "1", python, "-c", program}, 0).first, 4) << vex->screen();
        EXPECT_EQ(folder.read("report.txt").find(advice) != std::string::npos, advises) << what;
    }
}

TEST_F(ReportTest, OfAnMpiJob) {
    int tried = 0;
    for (const std::string kind : {"openmpi", "mpich"}) {
        const std::string ring = program("ring." + kind);
        if (::access(ring.c_str(), X_OK) != 0) continue;
        ++tried;
        SCOPED_TRACE(kind);
        const std::string launcher = launcherOf(kind) + "4";
        int status = 0;
        Lines lines;
        // On a busy machine, the job needs longer to begin.
        for (const std::string seconds : {"4", "20"}) {
            std::tie(status, lines) = report({"--timeout", seconds, "--launch", launcher, ring}, 3);
            if (lines[1].starts_with("2 | ")) break;
        }
        EXPECT_EQ(status, 5) << vex->screen();
        expectMatch(lines, {"timed out after (4|20) seconds.*",
                            R"(2 \| 1 client in search, called by go_round)",
                            R"(0:1 3 \| 3 clients in MPI_Recv, called by receive)"});
        std::tie(status, lines) = report({"--launch", launcher, ring, "--abort"}, 2);
        EXPECT_EQ(status, 4) << vex->screen();
        expectMatch(lines, {".*", R"(2 \| called MPI_Abort in search \(ring.cpp:[0-9]+\))"});
        // Not by an error that it handles itself. Open MPI's launcher loses messages.
        std::tie(status, lines) =
            report({"--launch", launcher, program("waiting." + kind), "wrong"}, 2);
        EXPECT_EQ(status, 4) << vex->screen();
        expectMatch(lines, {"1 of 4 tasks made a fatal error in MPI",
                            R"(3 \| aborted in MPI_Send, called by wrong \(waiting.cpp:[0-9]+\))"});
        EXPECT_TRUE(kind == "openmpi" ||
                    folder.read("report.txt").find("\n3 | Abort(") != std::string::npos);
        std::tie(status, lines) = report({"--launch", launcher, ring, "--healthy"}, 1);
        EXPECT_EQ(status, 0) << vex->screen();
        const std::string text = folder.read("report.txt");
        const bool isMpich = kind == "mpich";
        for (const std::string version : {isMpich ? "\nlauncher  HYDRA" : "\nlauncher  mpirun",
                                          isMpich ? "\nmpi       MPICH " : "\nmpi       Open MPI "})
            EXPECT_NE(text.find(version), text.npos) << text;
    }
    if (tried == 0) GTEST_SKIP() << "there is no MPI here (Debian: openmpi-bin, mpich)";
}

} // namespace
