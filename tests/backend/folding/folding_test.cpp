#include "backend/drivers/gdb.h"
#include "backend/folding/linecutter.h"
#include "backend/folding/safetext.h"
#include "backend/folding/stacktext.h"
#include "backend/folding/statreport.h"
#include "tests/support/testing.h"

namespace {

const Clock::time_point start{};
const auto later = start + std::chrono::milliseconds(50);

using Pieces = std::vector<LineCutter::Piece>;

TEST(LineCutter, CutsWhereverTheReadsFall) {
    const std::string text("one\n\nth\0ree\nfour", 16);
    for (std::size_t size = 1; size <= text.size(); ++size) {
        LineCutter cutter;
        Pieces lines;
        for (std::size_t at = 0; at < text.size(); at += size) {
            for (auto& line : cutter.feed(std::string_view(text).substr(at, size), start))
                lines.push_back(line);
        }
        EXPECT_EQ(lines, (Pieces{{"one"}, {""}, {{"th\0ree", 6}}})) << size;
        EXPECT_EQ(cutter.takePartial(), (LineCutter::Piece{"four", false, false})) << size;
        EXPECT_EQ(cutter.takePartial(), std::nullopt) << size;
    }
}

TEST(LineCutter, WhatFollowsATakenLineGoesOnWithIt) {
    LineCutter cutter;
    cutter.feed("half", start);
    EXPECT_EQ(cutter.takePartial()->text, "half");
    // The newline alone ends what was taken, and so does a terminal's; an empty line is one.
    EXPECT_EQ(cutter.feed("\n\n", start), (Pieces{{"", true, true}, {""}}));
    cutter.feed("half\r", start);
    EXPECT_EQ(cutter.takePartial()->text, "half");
    EXPECT_EQ(cutter.takePartial(), std::nullopt);
    EXPECT_EQ(cutter.feed("\nnext\r\n", start), (Pieces{{"\r", true, true}, {"next\r"}}));
    // A character is not torn, but what never becomes one is shown in the end.
    cutter.feed("na\xc3", start);
    EXPECT_EQ(cutter.takePartial(), (LineCutter::Piece{"na", false, false}));
    EXPECT_EQ(cutter.since(), std::nullopt);
    EXPECT_EQ(cutter.feed("\xaf", start), Pieces());
    EXPECT_EQ(cutter.takePartial(), (LineCutter::Piece{"\xc3\xaf", true, false}));
    EXPECT_EQ(cutter.feed("ve\xe2\x82\nnew", start), (Pieces{{"ve\xe2\x82", true, true}}));
    EXPECT_EQ(cutter.takeRest()->text, "new");
    EXPECT_EQ(cutter.feed("\n", start), (Pieces{{""}}));
    // The line that the cursor stands on is known still, up to a length.
    cutter.feed("text\nQuestion? (y or n) ", start);
    cutter.takePartial();
    EXPECT_EQ(cutter.tail(), "Question? (y or n) ");
    cutter.takeRest();
    EXPECT_EQ(cutter.tail(), "");
    cutter.feed(std::string(100000, 'x') + ">", start);
    EXPECT_EQ(cutter.tail(), std::string(255, 'x') + ">");
}

TEST(LineCutter, HoldsNoMoreOfALineThanItsBound) {
    LineCutter cutter;
    Pieces pieces;
    const std::string wide(LineCutter::maxLine / 4, '.');
    for (int i = 0; i < 10; ++i)
        for (auto& piece : cutter.feed(i < 9 ? wide + "!" : "\n", start))
            pieces.push_back(std::move(piece));
    ASSERT_EQ(pieces.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(pieces[i].goesOn, i > 0);
        EXPECT_EQ(pieces[i].ended, i == 2);
        EXPECT_EQ(pieces[i].text.size(), i < 2 ? LineCutter::maxLine : wide.size() + 9);
    }
}

TEST(LineCutter, TellsSinceWhenALineWaits) {
    LineCutter cutter;
    EXPECT_EQ(cutter.since(), std::nullopt);
    cutter.feed("a", start);
    cutter.feed("b", later);
    EXPECT_EQ(cutter.since(), start);
    EXPECT_EQ(cutter.grownAt(), later);
    cutter.feed("\nc", later);
    EXPECT_EQ(cutter.since(), later);
    cutter.takePartial();
    EXPECT_EQ(cutter.since(), std::nullopt);
    cutter.feed("d\n", later);
    EXPECT_EQ(cutter.since(), std::nullopt);
}

TEST(SafeText, LeavesNoControlBytes) {
    const std::pair<std::string, std::string> cases[] = {
        {"", ""},
        {"plain\ttext ~", "plain\ttext ~"},
        {std::string("\0", 1), "^@"},
        {"\x1b[2J\a\x7f\b", "^[[2J^G^?^H"},
        {"12345678\x1b", "12345678^["},
        {"caf\xc3\xa9 \xe2\x80\x98x\xe2\x80\x99 \xf0\x9f\x98\x80",
         "caf\xc3\xa9 \xe2\x80\x98x\xe2\x80\x99 \xf0\x9f\x98\x80"},
        // Upper control characters: a byte of their own, in what is no UTF-8, and as UTF-8.
        {"\2332J", "M-^[2J"},
        {"\xe9t\xe9", "\xe9t\xe9"},
        {"\xe2\233c", "\xe2M-^[c"},
        {"\xe0\x9b\x9b", "\xe0M-^[M-^["},
        {"\xed\xa0\x80", "\xed\xa0M-^@"},
        {"\xf4\x90\x80\x80", "\xf4M-^PM-^@M-^@"},
        {"\xc0\x9b", "\xc0M-^["},
        {"\xc2\2332J\xc2\xa0", "M-^[2J\xc2\xa0"},
        {"\x90\xc3\x9b", "M-^P\xc3\x9b"},
        // Where returns stand, the last piece counts that is not empty.
        {"10%\r20%\r", "20%"},
        {"10%\r\r\r", "10%"},
        {"\r", ""},
        {"a\rb\a\r", "b^G"},
    };
    for (const auto& [text, safe] : cases) {
        EXPECT_EQ(SafeText::line(text), safe);
        EXPECT_EQ(SafeText::line(safe), safe);
    }
    EXPECT_EQ(SafeText::of("a\rb"), "a^Mb");
    const std::pair<std::string, std::size_t> ends[] = {
        {"", 0},         {"a", 0},        {"\xc3", 1},
        {"\xc3\xa9", 0}, {"\xe2\x82", 2}, {"\xf0\x9f\x98", 3},
        {"\xe0\x80", 0}, {"\xff", 0},     {"\x80\x80\x80\x80", 0},
    };
    for (const auto& [text, bytes] : ends)
        EXPECT_EQ(SafeText::unfinished(text), bytes) << text;
}

using Groups = std::vector<StackTree::RowGroup>;

TEST(StackTree, MergesStacksAndPutsTheOddOnesFirst) {
    StackTree stacks;
    const ClientSet all{0, 1, 2, 3, 4, 5}, most{0, 1, 2, 4, 5};
    stacks.add(3, {{"relax"}, {"simulate"}, {"main"}});
    for (int id : most)
        stacks.add(id, {{"poll"}, {"exchange"}, {"simulate"}, {"main"}});
    EXPECT_EQ(stacks.places(), (Groups{{{"1 client in relax, called by simulate", {3}},
                                        {"5 clients in poll, called by exchange", most}}}));
    EXPECT_EQ(stacks.tree(), (Groups{{{"main", all}},
                                     {{"  simulate", all}},
                                     {{"    relax", {3}}},
                                     {{"    exchange", most}},
                                     {{"      poll", most}}}));
}

TEST(StackTree, CountsThreadsAndToleratesEveryShape) {
    StackTree stacks;
    stacks.add(0, {});
    EXPECT_EQ(stacks.places(), Groups());
    EXPECT_EQ(stacks.tree(), Groups());
    stacks.add(0, {{"main"}});
    stacks.add(0, {{"wait"}, {"worker"}});
    stacks.add(0, {{"wait"}, {"worker"}});
    // Recursion, and the same call in another place, are calls of their own.
    stacks.add(1, {{"f"}, {"f"}, {"main"}});
    stacks.addWithout(2, "no stack: no process");
    EXPECT_EQ(stacks.places(), (Groups{{{"1 client in main", {0}}},
                                       {{"1 client in f, called by f", {1}}},
                                       {{"1 client in wait, called by worker (2 threads)", {0}}},
                                       {{"no stack: no process", {2}}}}));
    EXPECT_EQ(stacks.tree(), (Groups{{{"worker (2 threads)", {0}}},
                                     {{"  wait (2 threads)", {0}}},
                                     {{"main", {0, 1}}},
                                     {{"  f", {1}}},
                                     {{"    f", {1}}}}));
}

// "function, source line, library" of each call, the innermost first; "-" begins another thread
// than the main one.
std::string stacksOf(std::initializer_list<const char*> calls) {
    std::string answer = "thread\t1\n";
    for (std::string call : calls) {
        if (call == "-") {
            answer += "thread\t0\n";
            continue;
        }
        std::ranges::replace(call, ',', '\t');
        answer += "call\t" + call + "\n";
    }
    return answer;
}

TEST(StackText, ShowsWhatTheUserHasWritten) {
    const struct {
        std::string answer, shown;
    } cases[] = {
        // Inside of a receive, whatever it does there; a thread of a library's.
        {stacksOf({"??,,/usr/lib/libuct.so.0", "ucp_worker_progress,,/usr/lib/libucp.so.0",
                   "PMPI_Recv,,/usr/lib/libmpich.so.12", "receive,/src/ring.cpp:9,",
                   "main,ring.cpp:50,", "__libc_start_main,,/lib/libc.so.6", "-",
                   "epoll_wait,../sysdeps/e.c:30,/lib/libc.so.6",
                   "ucs_event_set_wait,,/usr/lib/libucs.so.0", "start_thread,,/lib/libc.so.6"}),
         "1 client in MPI_Recv, called by receive|main|  receive|    MPI_Recv|helper threads: "
         "libucs 1"},
        // A reduction of the program's own stands behind all that has called it.
        {stacksOf({"larger,a.c:1,", "ompi_op_reduce,,/opt/lib/libmpi.so.40",
                   "MPI_Allreduce,,/opt/lib/libmpi.so.40", "main,a.c:9,"}),
         "1 client in larger, called by ompi_op_reduce|main|  MPI_Allreduce|    ompi_op_reduce|"
         "      larger"},
        // The program waits in it once more.
        {stacksOf({"__GI___poll,,/lib/libc.so.6", "larger,a.c:1,",
                   "MPI_Allreduce,,/opt/lib/libmpi.so.40", "main,a.c:9,"}),
         "1 client in poll, called by larger|main|  MPI_Allreduce|    larger|      poll"},
        // As Fortran has it, and linked into the program.
        {stacksOf({"PMPI_Wait,,/opt/lib/libmpi.so.40", "pmpi_wait_,,/opt/lib/libmpi_mpifh.so.40",
                   "MAIN__,a.f90:3,", "main,a.f90:9,"}),
         "1 client in MPI_Wait, called by MAIN__|MAIN__|  MPI_Wait"},
        // Through a wrapper; a call that is left by a jump.
        {stacksOf({"PMPI_Send,,/opt/lib/libmpi.so.40", "mpi_send_,,/home/me/libvexmpi.so",
                   "f,a.f90:3,"}),
         "1 client in MPI_Send, called by f|f|  MPI_Send"},
        {stacksOf({"ompi_mpi_abort,,/opt/lib/libmpi.so.40",
                   "ompi_errhandler_invoke,,/opt/lib/libmpi.so.40", "main,a.c:9,"}),
         "1 client in an MPI call, called by main|main|  an MPI call"},
        {stacksOf({"??,,/lib/libgomp.so.1", "main._omp_fn.0,a.c:5,",
                   "GOMP_parallel,,/lib/libgomp.so.1", "main,a.c:9,", "-", "main._omp_fn.0,a.c:5,",
                   "??,,/lib/libgomp.so.1", "start_thread,,/lib/libc.so.6", "-",
                   "??,,/lib/libgomp.so.1", "start_thread,,/lib/libc.so.6"}),
         "1 client in main._omp_fn.0|1 client in an OpenMP call, called by main._omp_fn.0|main|"
         "  GOMP_parallel|    main._omp_fn.0|      an OpenMP call|main._omp_fn.0|"
         "helper threads: libgomp 1"},
        {stacksOf({"MPIDI_CH3I_Progress,,", "PMPI_Barrier,,", "main,,"}),
         "1 client in MPI_Barrier, called by main|main|  MPI_Barrier"},
        // A function that has the name of one of libc's; a library of the user's own.
        {stacksOf({"wait,a.c:3,", "go,,/home/me/libgo.so", "main,a.c:9,"}),
         "1 client in wait, called by go|main|  go|    wait"},
        // Threads of the program are no helpers, and stand before those that wait; those of a pool
        // are while it has no work.
        {stacksOf({"__futex_abstimed_wait,,/lib/libc.so.6",
                   "___pthread_cond_wait@@GLIBC_2.3.2,,/lib/libc.so.6", "main,a.c:9,", "-",
                   "work,a.c:5,", "start_thread,,/lib/libc.so.6", "clone3,,/lib/libc.so.6", "-",
                   "gomp_barrier_wait,,/lib/libgomp.so.1", "gomp_thread_start,,/lib/libgomp.so.1",
                   "start_thread,,/lib/libc.so.6"}),
         "1 client in work|1 client in pthread_cond_wait, called by main|main|  pthread_cond_wait|"
         "work|helper threads: libgomp 1"},
        // Worked on by the kernel's own code; a stripped program's thread; a name of its own.
        {stacksOf({"clock_gettime,,", "PMPI_Recv,,/opt/lib/libmpi.so.40", "main,a.c:9,", "-",
                   "pause,,/lib/libc.so.6", "??,,", "start_thread,,/lib/libc.so.6", "-",
                   "omp_mine,a.c:3,", "start_thread,,/lib/libc.so.6"}),
         "1 client in MPI_Recv, called by main|1 client in omp_mine|1 client in pause, called by "
         "??|??|  pause|main|  MPI_Recv|omp_mine"},
        // An interpreter stands between the functions that it runs and what they call.
        {"thread\t1\ncall\tread\t\t/lib/libc.so.6\ncall\tfile_read\t\t\t1\n"
         "call\t_PyEval_EvalFrameDefault\t\t\t1\npython\tload (a.py:3)\n"
         "python\t<module> (a.py:9)\ncall\tPy_RunMain\t\t\t1\ncall\t??\t\t/lib/libc.so.6\n",
         "1 client in read, called by load (a.py:3)|<module> (a.py:9)|  load (a.py:3)|    read"},
        // Who has made a library end the program, here by a template of the language's.
        {stacksOf({"__pthread_kill_implementation,,/lib/libc.so.6", "__GI_abort,,/lib/libc.so.6",
                   "__assert_fail_base,,/lib/libc.so.6", "check,a.c:5,", "main,a.c:9,"}),
         "1 client in abort, called by check|main|  check|    abort"},
        {stacksOf({"abort,,/lib/libc.so.6", "std::terminate,,/lib/libstdc++.so.6",
                   "std::vector<int>::at,stl_vector.h:5,", "check,a.c:5,", "main,a.c:9,"}),
         "1 client in abort, called by check|main|  check|    abort"},
        // A thread that the interpreter's own functions keep for themselves; one of the program's.
        {"thread\t1\npython\tsearch (a.py:3)\npython\t<module> (a.py:9)\n"
         "thread\t0\ncall\tsem_wait\t\t/lib/libc.so.6\ncall\t_PyEval_EvalFrameDefault\t\t\t1\n"
         "python\twait (threading.py:320)\tpython\npython\trun (threading.py:975)\tpython\n"
         "call\tclone3\t\t/lib/libc.so.6\n"
         "thread\t0\ncall\tsem_wait\t\t/lib/libc.so.6\n"
         "python\twait (threading.py:320)\tpython\npython\thelp (a.py:7)\n"
         "python\trun (threading.py:975)\tpython\ncall\tclone3\t\t/lib/libc.so.6\n",
         "1 client in search (a.py:3), called by <module> (a.py:9)|"
         "1 client in sem_wait, called by wait (threading.py:320)|<module> (a.py:9)|"
         "  search (a.py:3)|help (a.py:7)|  wait (threading.py:320)|    sem_wait|"
         "helper threads: python 1"},
        // Before main there is nothing else to show.
        {stacksOf({"_dl_start,,/lib64/ld-linux-x86-64.so.2"}), "1 client in _dl_start|_dl_start"},
        // A debugger that tells less.
        {"Thread 1 (LWP 4):\n#0  0x0 in read () from /lib/libc.so.6\n#1  main () at a.c:3\n\n"
         "Thread 2 (LWP 5):\n#0  0x0 in f () from /lib/libucs.so.0\n",
         "1 client in read, called by main|main|  read|helper threads: libucs 1"},
    };
    const Gdb gdb("gdb");
    for (const auto& [answer, shown] : cases) {
        SCOPED_TRACE(answer);
        StatReport report({});
        report.add(StackText{gdb}.parse(0, answer));
        std::string text;
        for (const auto& group : report.rows()) {
            for (const auto& row : group)
                text += (text.empty() ? "" : "|") + row.text;
        }
        EXPECT_EQ(text, shown);
    }
    const StackTree all = StackText{gdb, true, true}.parse(0, cases[0].answer);
    EXPECT_EQ(all.tree()[1][0].text, "  main at ring.cpp:50");
    EXPECT_EQ(all.places().back()[0].text,
              "1 client in epoll_wait at e.c:30, called by ucs_event_set_wait at libucs.so.0");
}

// Jobs as they stood, one stack a task.
TEST(StackText, AJobBeginsWithItsCulprit) {
    const std::string inReceive =
        stacksOf({"ucp_worker_progress,,/usr/lib/libucp.so.0", "PMPI_Recv,,/usr/lib/libmpich.so.12",
                  "receive,ring.cpp:9,", "main,ring.cpp:50,"});
    const std::string inReduction =
        stacksOf({"epoll_wait,,/lib/libc.so.6", "PMPI_Allreduce,,/opt/lib/libmpi.so.40",
                  "agree,sim.cpp:48,", "main,sim.cpp:60,"});
    const std::string top = "call\t_PyEval_EvalFrameDefault\t\t\t1\n",
                      script = "python\t<module> (a.py:9)\ncall\tPy_RunMain\t\t\t1\n",
                      thread = "thread\t1\n";
    const std::string searching = thread + top + "python\tsearch (a.py:3)\n" + script;
    const struct {
        const char* what;
        std::vector<std::string> tasks;
        std::string first;
    } cases[] = {
        {"a hang",
         {inReceive, inReceive, stacksOf({"search,ring.cpp:25,", "main,ring.cpp:50,"}), inReceive},
         "2 | 1 client in search, called by main"},
        {"an abort",
         {inReceive, stacksOf({"PMPI_Abort,,/usr/lib/libmpich.so.12", "search,ring.cpp:24,",
                               "main,ring.cpp:50,"})},
         "1 | 1 client in MPI_Abort, called by search"},
        {"missing in a reduction",
         {inReduction, inReduction,
          stacksOf({"opal_progress,,/lib/libopen-pal.so.40", "PMPI_Waitall,,/opt/lib/libmpi.so.40",
                    "exchange,sim.cpp:36,", "main,sim.cpp:60,"})},
         "2 | 1 client in MPI_Waitall, called by exchange"},
        {"a circle", {inReceive, inReceive}, "0:1 | 2 clients in MPI_Recv, called by receive"},
        {"Fortran",
         {stacksOf({"PMPI_Barrier,,/opt/lib/libmpi.so.40",
                    "pmpi_barrier_,,/opt/lib/libmpi_mpifh.so.40", "f,f.f90:14,", "main,f.f90:3,"}),
          stacksOf({"f::advance,f.f90:24,", "f,f.f90:14,", "main,f.f90:3,"})},
         "1 | 1 client in f::advance, called by f"},
        {"mpi4py",
         {thread +
              "call\topal_progress\t\t/lib/libopen-pal.so.40\ncall\tPMPI_Barrier\t\t/opt/lib/"
              "libmpi.so.40\ncall\t??\t\t/usr/lib/MPI.so\n" +
              top + "python\tagree (a.py:4)\n" + script,
          searching},
         "1 | 1 client in search (a.py:3), called by <module> (a.py:9)"},
        {"workers of multiprocessing",
         {thread +
              "call\tdo_futex_wait\t\t/lib/libc.so.6\ncall\t__new_sem_wait_slow64\t\t/lib/"
              "libc.so.6\n" +
              top + "python\twait (threading.py:320)\n" + script,
          thread + "call\t__GI___libc_read\t\t/lib/libc.so.6\n" + top +
              "python\t_recv (connection.py:378)\n" + script,
          searching},
         "2 | 1 client in search (a.py:3), called by <module> (a.py:9)"},
    };
    const Gdb gdb("gdb");
    for (const auto& [what, tasks, first] : cases) {
        SCOPED_TRACE(what);
        StatReport report({});
        for (int id = 0; id < static_cast<int>(tasks.size()); ++id)
            report.add(StackText{gdb}.parse(id, tasks[static_cast<std::size_t>(id)]));
        const auto row = report.rows().at(0).at(0);
        EXPECT_EQ(row.clients.str() + "| " + row.text, first);
    }
}

} // namespace
