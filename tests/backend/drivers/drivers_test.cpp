#include "backend/drivers/gdb.h"
#include "backend/drivers/lldb.h"
#include "backend/drivers/promptmatcher.h"
#include "tests/support/testing.h"

#include <span>

namespace {

using Pieces = std::vector<PromptMatcher::Piece>;

const std::string prompt = "\1nonce\n";

// All pieces of a text that arrives in chunks of one size, with neighbouring stretches joined.
Pieces inChunks(const std::string& text, std::size_t size) {
    PromptMatcher matcher(prompt);
    Pieces all;
    for (std::size_t at = 0; at < text.size(); at += size) {
        for (const auto& piece : matcher.feed(std::string_view(text).substr(at, size))) {
            if (all.empty() || all.back().mark != PromptMatcher::NONE) all.emplace_back();
            all.back().text += piece.text;
            all.back().mark = piece.mark;
        }
    }
    if (const std::string rest = matcher.rest(); !rest.empty())
        all.push_back({rest, PromptMatcher::NONE});
    return all;
}

using enum PromptMatcher::Mark;

TEST(PromptMatcher, FindsPromptsHoweverTheyAreCut) {
    const std::pair<std::string, Pieces> cases[] = {
        {"a\n" + prompt, {{"a\n", PROMPT}}},
        {prompt + prompt, {{"", PROMPT}, {"", PROMPT}}},
        {"no newline" + prompt + "b", {{"no newline", PROMPT}, {"b", NONE}}},
        // Beginnings that come to nothing.
        {"\1non" + prompt, {{"\1non", PROMPT}}},
        {"\1\1\1" + prompt, {{"\1\1\1", PROMPT}}},
        {"\1nonce \n", {{"\1nonce \n", NONE}}},
        {"a\1nonce+\nb\1nonce-\n" + prompt, {{"a", RUNS}, {"b", STANDS}, {"", PROMPT}}},
        {"\1nonce+\1nonce-x\1nonce++\n", {{"\1nonce+\1nonce-x\1nonce++\n", NONE}}},
    };
    for (const auto& [text, pieces] : cases)
        for (std::size_t size = 1; size <= text.size(); ++size)
            EXPECT_EQ(inChunks(text, size), pieces) << text << " by " << size;
}

TEST(PromptMatcher, KeepsBackOnlyWhatMayBecomeAPrompt) {
    PromptMatcher matcher(prompt);
    EXPECT_EQ(matcher.feed("text\1no"), (Pieces{{"text", NONE}}));
    EXPECT_EQ(matcher.feed("t"), (Pieces{{"\1not", NONE}}));
    EXPECT_TRUE(matcher.feed("\1").empty());
    EXPECT_EQ(matcher.rest(), "\1");
    EXPECT_EQ(matcher.rest(), "");
}

using enum Driver::StackLine::Kind;

struct Call {
    const char *line, *function, *place;
};

void expectRead(const Driver& debugger, std::span<const Call> calls) {
    for (const auto& [line, function, place] : calls) {
        SCOPED_TRACE(line);
        const auto said = debugger.parseStackLine(line);
        EXPECT_EQ(said.kind, CALL);
        EXPECT_EQ(said.function, function);
        EXPECT_EQ(said.place, place);
    }
}

// The lines are those of gdb 13.
TEST(Gdb, FindsFunctionsInStackLines) {
    const Call calls[] = {
        {"#0  relax () at /src/examples/halo.cpp:150", "relax", "halo.cpp:150"},
        {"#12 0x00007e96 in main (argc=..., argv=...) at halo.cpp:186", "main", "halo.cpp:186"},
        {"#3  0x0000a1ca in __poll (fds=..., n=1) from /lib/x86_64/libc.so.6", "__poll",
         "libc.so.6"},
        {"#4  0x00007ffff7d2a1ca in ?? ()", "??", ""},
        {"#5  <signal handler called>", "<signal handler called>", ""},
        {"#1  (anonymous namespace)::step (x=...) at a b/c.cpp:3", "(anonymous namespace)::step",
         "c.cpp:3"},
        {"#1  ns::(anonymous namespace)::Box<int (*)(int)>::put(int) const (this=...) at b.h:9",
         "ns::(anonymous namespace)::Box<int (*)(int)>::put", "b.h:9"},
        {"#2  std::function<void (int)>::operator()(int) const (this=...) at f.h:1",
         "std::function<void (int)>::operator()", "f.h:1"},
        {"#2  operator<< (out=..., value=...) at o.cpp:7", "operator<<", "o.cpp:7"},
        {"#2  Set<int>::operator-> (this=...) at o.cpp:8", "Set<int>::operator->", "o.cpp:8"},
        {"#2  cooperator (a=...) at o.cpp:9", "cooperator", "o.cpp:9"},
        {"#2  0x1 in operator new (size=...) at n.cpp:9", "operator new", "n.cpp:9"},
        {"call\tns::f<int>(int)\t/a/f.h:3\t", "ns::f<int>", "f.h:3"},
        {"call\t??\t\t/usr/lib/libx.so.2", "??", "libx.so.2"},
    };
    const Gdb gdb("gdb");
    expectRead(gdb, calls);
    EXPECT_EQ(gdb.parseStackLine("Thread 2 (Thread 0x7ff (LWP 12) \"a (b)\"):").kind, THREAD);
    for (const char* line : {"", "#", "#x", "#1", "#1 ", "#1  0x12", "No threads.", "Thread 2 left",
                             "(More stack frames follow...)"})
        EXPECT_EQ(gdb.parseStackLine(line).kind, OTHER) << line;
}

TEST(Gdb, SaysWhereATaskHasStopped) {
    const Gdb gdb("gdb");
    const std::pair<const char*, const char*> lines[] = {
        {"search (token=20) at ring.cpp:23", "search ring.cpp:23"},
        {"0x00007ffff7e8 in ns::f<int, long> (a=1) at /src/f.h:3", "ns::f<int, long> f.h:3"},
        {"Breakpoint 1, main (argc=1, argv=0x7ffe) at a.c:7", "main a.c:7"},
        {"Thread 1 \"ring\" hit Breakpoint 2, search (token=20) at ring.cpp:23",
         "search ring.cpp:23"},
        {"#0  0x1 in search (token=20) at ring.cpp:23", "search ring.cpp:23"},
        {"#1  0x1 in go_round (healthy=false) at ring.cpp:41", " "},
        {"0x00007ffff7 in poll () from /lib/libc.so.6", " "},
        {"we are (nearly) at the end", " "},
        {"", " "},
    };
    for (const auto& [line, stop] : lines) {
        const auto parsed = gdb.parseStop(line);
        EXPECT_EQ(parsed.function + " " + parsed.place, stop) << line;
    }
}

TEST(Gdb, KnowsWhatWaitsForAnAnswer) {
    const Gdb gdb("gdb");
    for (const char* tail : {"Quit anyway? (y or n) ", "(y or [n]) ", ">", "  >",
                             "--Type <RET> for more, q to quit, c to continue without paging--"})
        EXPECT_TRUE(gdb.asks(tail)) << tail;
    for (const char* tail : {"", "a >", "--Type <RET> for more", "rank: "})
        EXPECT_FALSE(gdb.asks(tail)) << tail;
}

TEST(Gdb, LeavesCodeAddressesOutOfItsFrameLinesOnly) {
    const std::pair<const char*, const char*> cases[] = {
        {"#1  0x00007f3c2a8e71b4 in f (p=0x55d0c0ffee00) at a.c:3",
         "#1  f (p=0x55d0c0ffee00) at a.c:3"},
        {"#12 0x00007f3c2a8e71b4 in ?? ()", "#12 ?? ()"},
        {"0x00007f3c2a8e71b4 in poll () from /lib/libc.so.6", "poll () from /lib/libc.so.6"},
        {"Run till exit from #0  0x00007f3c2a8e71b4 in f (x=1) at a.c:3",
         "Run till exit from #0  f (x=1) at a.c:3"},
        {"#0  f (p=0x0) at a.c:3", "#0  f (p=0x0) at a.c:3"},
        {"$1 = (int *) 0x00007f3c2a8e71b4", "$1 = (int *) 0x00007f3c2a8e71b4"},
        {"0x12 in it (", "0x12 in it ("},
        {"0x00007f3c2a8e71b4 in range", "0x00007f3c2a8e71b4 in range"},
        {"#", "#"},
        {"#1", "#1"},
        {"#1 ", "#1 "},
        {"Run till exit from ", "Run till exit from "},
        {"", ""},
    };
    for (const auto& [line, shown] : cases) {
        EXPECT_EQ(Gdb("gdb", Driver::Subject::PROCESS).shown(line), shown);
        EXPECT_EQ(Gdb("gdb").shown(line), line);
    }
}

TEST(Driver, KnowsWhatLetsTheTaskRun) {
    const Gdb gdb("gdb");
    const Lldb lldb("lldb");
    for (const char* line : {"c", "continue 3", "r", "ni", "fin", "call f(3)", "until"})
        EXPECT_TRUE(gdb.letsRun(line)) << line;
    for (const char* line : {"", "list", "print x", "where", "info line", "break f", "fr"})
        EXPECT_FALSE(gdb.letsRun(line)) << line;
    for (const char* line : {"c 2", "r", "s", "stepi", "u", "adv 3", "j 3", "sig 0", "k", "det"})
        EXPECT_TRUE(gdb.leavesPlace(line)) << line;
    for (const char* line : {"call f(3)", "source a", "delete", "kill-all", "x/3i $pc", "si_t"})
        EXPECT_FALSE(gdb.leavesPlace(line)) << line;
    for (const char* line : {"c", "process launch", "thread step-over", "expression f()", "finish"})
        EXPECT_TRUE(lldb.letsRun(line)) << line;
    for (const char* line :
         {"thread backtrace all", "process status", "thread", "bt", "frame variable"})
        EXPECT_FALSE(lldb.letsRun(line)) << line;
}

TEST(Lldb, ReadsTheLinesOfABacktraceAndKnowsWhatAsks) {
    const Call calls[] = {
        {"  * frame #0: 0x00005555555551f1 f`main at f.c:7:5", "main", "f.c:7"},
        {"    frame #12: 0x1 libc.so.6`__GI___wait4(pid=2, usage=0x0) at wait4.c:30:10",
         "__GI___wait4", "wait4.c:30"},
        {"    frame #4: 0x0000555555555121 f`_start + 33", "_start", "f"},
        {"    frame #2: 0x1 a`V<int, A<int>>::at(this=0x1, n=(unsigned)3) at v.h:3:1 [opt]",
         "V<int, A<int>>::at", "v.h:3"},
        {"    frame #3: 0x1 a`main [inlined] solve(x=1) at s.cpp:9", "solve", "s.cpp:9"},
        {"    frame #5: 0x00007fffffffe6dc", "??", ""},
    };
    const Lldb lldb("lldb");
    expectRead(lldb, calls);
    for (const char* line :
         {"* thread #1, name = 'f', stop reason = 1.1", "  thread #2, name = 'f'"})
        EXPECT_EQ(lldb.parseStackLine(line).kind, THREAD) << line;
    EXPECT_EQ(lldb.parseStackLine("error: invalid process").kind, OTHER);
    for (const char* tail : {"Quit? [Y/n] ", "> ", ">>> ", "  3: "})
        EXPECT_TRUE(lldb.asks(tail)) << tail;
    for (const char* tail : {"", "a > ", "x 3: ", "rank: "})
        EXPECT_FALSE(lldb.asks(tail)) << tail;
}

TEST(Driver, IsChosenByTheNameOfTheProgram) {
    for (const char* path : {"lldb", "/usr/bin/lldb-14"})
        EXPECT_EQ(makeDriver(path)->name(), "lldb");
    for (const char* path : {"gdb", "/x/lldb/gdb-12"})
        EXPECT_EQ(makeDriver(path)->name(), "gdb");
}

TEST(Drivers, CoreFilesAreOnlyLookedAt) {
    const struct {
        const char* debugger;
        std::vector<const char*> refused, taken;
    } cases[] = {
        {"gdb",
         {"run", "r", " \tc 3", "s", "stepi", "step 2", "tar extended :1", "target remote :1",
          "kill", "reverse-step", "until", "at 7", "run&", "c&"},
         {"", "list", "set var x = 1", "show args", "info registers", "x/4i $pc", "p rank", "stack",
          "target core x", "frame 2", "up", "startup", "thread apply all where"}},
        {"lldb",
         {"run", "s", "process launch -- x", "process attach -p 1", "thread step-in", "finish"},
         {"bt", "process status", "thread list", "frame select 1", "print x", "settings show"}},
    };
    for (const auto& [debugger, refused, taken] : cases) {
        const auto driver = makeDriver(debugger, Driver::Subject::CORE);
        for (const char* line : refused)
            EXPECT_NE(driver->refusal(line), "") << line;
        for (const char* line : taken)
            EXPECT_EQ(driver->refusal(line), "") << line;
        EXPECT_EQ(makeDriver(debugger)->refusal("run"), "");
    }
}

} // namespace
