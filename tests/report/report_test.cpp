#include "report/findings.h"
#include "report/tasklog.h"
#include "report/textform.h"
#include "report/wholefile.h"
#include "tests/support/tempdir.h"
#include "tests/support/testing.h"

namespace {

ClientSet upTo(int last) { return ClientSet({ClientSet::Range{0, last}}); }

// What gdb prints of the end of a task, and what the log makes of it.
TEST(TaskLog, ReadsWhatBecomesOfTasks) {
    using Task = TaskLog::Task;
    struct Case {
        Lines said;
        Task task;
        Lines output;
    };
    const Case cases[] = {
        {{"Starting program: /x", "a", "", "b"}, {}, {"a", "", "b"}},
        {{"a", "[Inferior 1 (process 7) exited normally]"}, {Task::ENDED, "", "", 0, false}, {"a"}},
        {{"[Inferior 2 (process 7) exited with code 013]"}, {Task::ENDED, "", "", 11, false}, {}},
        {{"a", "", "Program received signal SIGSEGV, Segmentation fault.", "f () at a.c:3",
          "3\t*p"},
         {Task::STOPPED, "SIGSEGV", "Segmentation fault", 0, false},
         {"a"}},
        {{"", "Thread 2 \"a\" received signal SIGABRT, Aborted."},
         {Task::STOPPED, "SIGABRT", "Aborted", 0, false},
         {}},
        {{"Program received signal SIGUSR1, User defined signal 1.", "f ()", "Continuing.",
          "[Inferior 1 (process 7) exited normally]"},
         {Task::ENDED, "", "", 0, false},
         {}},
        {{"Program terminated with signal SIGKILL, Killed.", "The program no longer exists."},
         {Task::KILLED, "SIGKILL", "Killed", 0, false},
         {}},
        {{"During startup program exited with code 127."}, {Task::ENDED, "", "", 127, false}, {}},
        {{"Program received signal SIGSEGV: Segmentation fault - invalid memory reference."},
         {},
         {"Program received signal SIGSEGV: Segmentation fault - invalid memory reference."}},
        {{"it has called MPI_Abort and is kept from ending", "f ()"},
         {Task::STOPPED, "", "", 0, true},
         {}},
        {{"Thread pool received signal", "Program received signal"},
         {},
         {"Thread pool received signal", "Program received signal"}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.said.back());
        TaskLog log(2);
        for (const std::string& line : each.said)
            log.add({1, 2}, line); // 2 was forked
        const Task& task = log.of(1);
        EXPECT_EQ(task, each.task);
        EXPECT_EQ(log.of(0), Task{});
        const auto output = log.lastLines();
        EXPECT_EQ(output.empty() ? Lines{} : output[0].lines, each.output);
    }
}

TEST(TaskLog, KeepsTheLastLinesOfEach) {
    TaskLog log(3);
    for (int i = 0; i < 30; ++i)
        log.add(upTo(2), "line " + std::to_string(i));
    log.add({1}, "own");
    const auto parts = log.lastLines();
    ASSERT_EQ(parts.size(), 2u);
    EXPECT_EQ(parts[0].clients, (ClientSet{0, 2}));
    EXPECT_EQ(parts[0].lines.front(), "line 10");
    EXPECT_EQ(parts[1].lines.back(), "own");
    EXPECT_EQ(parts[1].lines.size(), 20u);
}

// Four tasks that have said and were asked this.
struct Story {
    const char* name;
    std::vector<Row> said;
    Findings found{4};
    Lines first; // lines of the report
    int status;
};

Transcript stacksOf(const std::vector<Row>& rows) {
    Transcript stacks;
    stacks.add(rows);
    return stacks;
}

const Row segfault{{2}, "Program received signal SIGSEGV, Segmentation fault."};
const std::vector<Row> hang = {{{2}, "1 client in search, called by go_round"},
                               {{0, 1, 3}, "3 clients in MPI_Recv, called by receive"},
                               {upTo(3), "main"},
                               {{2}, "  search"},
                               {{0, 1, 3}, "  receive"},
                               {upTo(3), "helper threads: libucs 1"}};

std::vector<Story> stories() {
    std::vector<Story> all;
    const auto add = [&all](const char* name, std::vector<Row> said, Lines first,
                            int status) -> Findings& {
        all.push_back({name, std::move(said), Findings(4), std::move(first), status});
        all.back().found.clients = upTo(3);
        return all.back().found;
    };
    all.reserve(40);
    add("all end", {{upTo(3), "[Inferior 1 (process 7) exited normally]"}},
        {"all went well: 4 tasks ended with status 0"}, 0);
    add("a status",
        {{{0, 1, 2}, "[Inferior 1 (process 7) exited normally]"},
         {{3}, "[Inferior 1 (process 9) exited with code 03]"}},
        {"1 of 4 tasks failed", "3 | ended with status 3"}, 4);
    Findings& crash = add("a crash", {segfault},
                          {"1 of 4 tasks crashed", "2 | SIGSEGV, Segmentation fault, at address "
                                                   "0x8, in peak (a.cpp:168), called by simulate"},
                          4);
    crash.crashed = {2};
    crash.signals[2] = SignalFacts::of("vex-signal 11 1 0x8");
    crash.fullStacks = stacksOf({{{2}, "#0  peak (slab=0x0) at ../a.cpp:168"},
                                 {{2}, "        most = 1"},
                                 {{2}, "#1  0x0000555 in simulate () at a.cpp:194"}});
    Findings& worker = add("a crash of a forked process",
                           {{{5}, segfault.text},
                            {{4},
                             "[Inferior 1 (process 8) exited with "
                             "code 01]"}},
                           {"1 of 4 tasks and 2 forked processes crashed",
                            "5 | SIGSEGV, Segmentation fault, in work (a.cpp:3)"},
                           4);
    worker.crashed = {5};
    worker.fullStacks = stacksOf({{{5}, "#0  work () at a.cpp:3"}});
    // Programs know of those that they end.
    Findings& ended_workers = add("forked processes that end",
                                  {{{4}, "Program terminated with signal SIGTERM, Terminated."},
                                   {{5}, "[Inferior 1 (process 8) exited with code 01]"},
                                   {upTo(3), "[Inferior 1 (process 7) exited normally]"}},
                                  {"all went well: 4 tasks ended with status 0"}, 0);
    Findings& missed =
        add("forked processes that are waited for",
            {{{4}, "Program terminated with signal SIGTERM, Terminated."},
             {{5}, "Program terminated with signal SIGKILL, Killed."}},
            {"timed out after 1 second: what its 4 tasks and 2 forked processes did then",
             "5 | ended by SIGKILL, Killed", "2 | 1 client in search, called by go_round"},
            5);
    missed.timedOut = true;
    missed.timeout = 1;
    missed.stat = hang;
    for (Findings* const each : {&worker, &ended_workers, &missed}) {
        each->forked = {4, 5};
        each->log.grow(6);
    }
    // In the debugger's words, and in the system's.
    Findings& words =
        add("one signal", {{{2}, "Program received signal SIGFPE, Arithmetic exception."}},
            {"2 of 4 tasks crashed", "2:3 | SIGFPE, Floating point exception, in f (a.c:1)"}, 4);
    words.crashed = {2, 3};
    words.signals[3] = SignalFacts::of("vex-signal 8 1 0x0");
    words.fullStacks = stacksOf({{{2, 3}, "#0  f () at a.c:1"}});
    Findings& part = add("a rank without a debugger", {},
                         {"not run: 1 of 5 tasks has no debugger", "rank 4 is missing: why"}, 3);
    part.toRun = true;
    part.missing = {{{4}, "why"}};
    add("no task", {}, {"not looked at: no task was found", ""}, 3).clients = {};
    add("tasks that are lost", {}, {"4 of 4 tasks failed", "0:3 | was lost with its debugger"}, 4)
        .lost = upTo(3);
    // Below the functions of a script, as stat shows them.
    Findings& script = add("a crash below Python", {segfault},
                           {"1 of 4 tasks crashed", "2 | SIGSEGV, Segmentation fault, in string_at "
                                                    "(c.py:519), called by crash (ring.py:13)"},
                           4);
    script.crashed = {2};
    script.fullStacks = stacksOf({{{2}, "#0  __strlen () at ../sysdeps/x86_64/strlen.S:79"},
                                  {{2}, "#1  0x1 in ?? () from /usr/lib/_ctypes.so"}});
    script.stat = {{upTo(3), "<module> (ring.py:29)"},   {{2}, "  crash (ring.py:13)"},
                   {{2}, "    string_at (c.py:519)"},    {{2}, "      __strlen"},
                   {{0, 1, 3}, "  receive (ring.py:9)"}, {{2}, "work (ring.py:3)"}};
    // By the same road, with arguments and addresses of their own; and by another one.
    Findings& groups =
        add("equal crashes", {{upTo(3), "Program received signal SIGABRT, Aborted."}},
            {"4 of 4 tasks crashed", "3 | SIGABRT, Aborted, in abort, called by other (a.cpp:5)",
             "0:2 | SIGABRT, Aborted, in abort, called by check (a.cpp:9)"},
            4);
    groups.crashed = upTo(3);
    groups.fullStacks = stacksOf(
        {{{0, 1, 2}, "#0  __pthread_kill_implementation (signo=6) at ./nptl/pthread_kill.c:44"},
         {{3}, "#0  0x1 in raise () from /lib/libc.so.6"},
         {upTo(3), "#1  0x2 in abort () from /lib/libc.so.6"},
         {upTo(3),
          "#2  0x3 in malloc_printerr (str=0x1 \"double free\") at ./malloc/malloc.c:5662"},
         {{0}, "#3  check (x=1) at a.cpp:9"},
         {{1, 2}, "#3  check (x=2) at a.cpp:9"},
         {{3}, "#3  other () at a.cpp:5"}});
    // A handler that ends the task: what stood there when the signal came.
    Findings& handled =
        add("a handler that ends the task", {{{2}, "[Inferior 1 (process 7) exited with code 01]"}},
            {"1 of 4 tasks crashed", "2 | SIGBUS, Bus error, in f (a.cpp:1)"}, 4);
    handled.passed = {2};
    handled.signals[2] = SignalFacts::of("vex-signal 7 0 0x8");
    handled.fullStacks = stacksOf({{{2}, "#0  f () at a.cpp:1"}});
    // Handlers that raise their signal again, fail themselves, and say where the processor does
    // not.
    Findings& again =
        add("handlers that end their tasks by signals", {{upTo(2), segfault.text}},
            {"3 of 4 tasks crashed",
             "2 | SIGSEGV, Segmentation fault, in h (b.c:9), called by <signal handler "
             "called>",
             "0:1 | SIGSEGV, Segmentation fault, at address 0x8, in f (a.c:1)"},
            4);
    const std::vector<Row> fault{{upTo(2), "#0  0x1 in f () at a.c:1"}};
    again.noteCrash(upTo(2), {{upTo(2), "vex-signal 11 1 0x8"}}, fault);
    again.passed = upTo(2);
    again.noteCrash({0}, {{{0}, "vex-signal 11 -6 0x0"}}, {{{0}, fault[0].text}});
    again.noteCrash({1, 2}, {{{1}, "vex-signal 6 -6 0x0"}, {{2}, "vex-signal 11 128 0x0"}},
                    {{{1, 2}, "#0  h () at b.c:9"},
                     {{1, 2}, "#1  <signal handler called>"},
                     {{1}, "#2  0x1 in f () at a.c:1"},
                     {{2}, "#2  g () at a.c:9"}});
    again.crashed = upTo(2);
    Findings& survived =
        add("a handler that goes on", {{upTo(3), "[Inferior 1 (process 7) exited normally]"}},
            {"all went well: 4 tasks ended with status 0"}, 0);
    survived.passed = {2};
    survived.fullStacks = handled.fullStacks;
    Findings& hung = add("a hang", {},
                         {"timed out after 20 seconds: what its 4 tasks did then",
                          "2 | 1 client in search, called by go_round",
                          "0:1 3 | 3 clients in MPI_Recv, called by receive"},
                         5);
    hung.timedOut = true;
    hung.timeout = 20;
    hung.stat = hang;
    Findings& early = add("a task that has ended before the others",
                          {{{1}, "[Inferior 1 (process 7) exited normally]"}},
                          {"timed out after 1 second: what its 4 tasks did then",
                           "1 | has ended with status 0, the others have not",
                           "2 | 1 client in search, called by go_round"},
                          5);
    early.timedOut = true;
    early.timeout = 1;
    early.stat = hang;
    Findings& waits = add(
        "who waits", {},
        {"what 4 tasks do", "1 | waits for 0", "2 | 1 client in search, called by go_round"}, 0);
    waits.ran = false;
    waits.waits = {{{0}, "has no process"}, {{1}, "waits for 0"}};
    waits.stat = hang;
    Findings& kept =
        add("an abort that is kept", {{{1}, "MPI_Abort: the task is kept from ending"}},
            {"1 of 4 tasks called MPI_Abort", "1 | called MPI_Abort in search (ring.cpp:25)"}, 4);
    kept.crashed = {1};
    kept.fullStacks = stacksOf({{{1}, "#0  0x1 in PMPI_Abort () from /lib/libmpi.so.40"},
                                {{1}, "#1  search () at ring.cpp:25"}});
    Findings& erring = add("an error in MPI",
                           {{{2}, "The task made a fatal error in MPI and is kept from ending: w"}},
                           {"1 of 4 tasks made a fatal error in MPI",
                            "2 | aborted in MPI_Send, called by exchange (f.c:41)"},
                           4);
    erring.crashed = {2};
    erring.fullStacks = stacksOf({{{2}, "#0  0x1 in MPIR_Err_return_comm () from /lib/libmpich.so"},
                                  {{2}, "#1  0x1 in PMPI_Send () from /lib/libmpich.so.12"},
                                  {{2}, "#2  exchange () at f.c:41"}});
    Findings& told = add("one that has ended the job", {},
                         {"1 of 4 tasks made a fatal error in MPI",
                          "2 | made a fatal error in MPI, which ended the job"},
                         4);
    told.addLauncherLine("[a:7] *** reported by process [1425932289,2]");
    told.cut = true;
    Findings& locked = add("deadlocks", {},
                           {"what 4 tasks do", "0 | deadlock: a", "1 | deadlock: b",
                            "2 | deadlock: c", "3:9 | deadlock: 7 more"},
                           0);
    locked.ran = false;
    locked.waits = {{{0}, "deadlock: a"},
                    {{1}, "deadlock: b"},
                    {{2}, "deadlock: c"},
                    {{3}, "deadlock: d"},
                    {upTo(9), "deadlock: 6 more"}};
    locked.waits[4].clients.erase(upTo(3));
    Findings& ended =
        add("an abort that ends the job",
            {{{1}, "Abort(7) on node 1 (rank 1 in comm 0): application called"}},
            {"1 of 4 tasks called MPI_Abort", "1 | called MPI_Abort, which ended the job"}, 4);
    ended.cut = true;
    add("a lost debugger", {{{0, 1, 3}, "[Inferior 1 (process 7) exited normally]"}},
        {"1 of 4 tasks failed", "2 | was lost with its debugger"}, 4)
        .lost = {2};
    add("a warning", {}, {"what 4 tasks do"}, 143).signal = SIGTERM;
    Findings& mute = add("a debugger that does not answer", {}, {"what 4 tasks do"}, 3);
    mute.ran = false;
    mute.silent = {1};
    Findings& halves = add("a look that was cut", {},
                           {"the session ended before all was found out about its 4 tasks"}, 1);
    halves.ran = false;
    halves.cut = true;
    add("what no message of MPI's is",
        {{{1}, "application called MPI_Abort(" + std::string(1000000, 'x')},
         {{2}, "MPI_ABORT was invoked on rank 77"},
         {upTo(3), "[Inferior 1 (process 7) exited normally]"}},
        {"all went well: 4 tasks ended with status 0"}, 0);
    add("a lost job", {}, {"the job was ended before its 4 tasks had ended", ""}, 4).cut = true;
    return all;
}

TEST(Report, NamesTheCulpritFirst) {
    for (Story& story : stories()) {
        SCOPED_TRACE(story.name);
        for (const Row& row : story.said)
            story.found.log.add(row.clients, row.text);
        Report report;
        story.found.conclude(report);
        EXPECT_EQ(report.exitStatus(), story.status);
        std::istringstream text(TextForm::of(report));
        for (const std::string& expected : story.first) {
            std::string line;
            std::getline(text, line);
            EXPECT_EQ(line, expected);
        }
    }
}

TEST(WholeFile, IsThereAsAWholeOrNotAtAll) {
    TempDir folder;
    const std::string path = folder.write("report.txt", "before");
    std::filesystem::create_symlink(path, folder.path("link"));
    WholeFile(folder.path("link")).write("now");
    EXPECT_EQ(folder.read("report.txt"), "now");
    EXPECT_TRUE(std::filesystem::is_symlink(folder.path("link")));
    for (const std::string& bad : {folder.path("none/report.txt"), folder.path("")})
        EXPECT_THROW(WholeFile{bad}, std::system_error) << bad;
    const WholeFile file(path);
    rlimit limit{};
    ASSERT_EQ(::getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit low{10, limit.rlim_max};
    const auto before = std::signal(SIGXFSZ, SIG_IGN);
    ::setrlimit(RLIMIT_FSIZE, &low);
    EXPECT_THROW(file.write(std::string(100, 'x')), std::system_error);
    ::setrlimit(RLIMIT_FSIZE, &limit);
    std::signal(SIGXFSZ, before);
    EXPECT_EQ(folder.read("report.txt"), "now");
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.path("")), {}), 2);
}

} // namespace
