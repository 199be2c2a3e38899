#include "frontend/lldb.h"

#include <gtest/gtest.h>

namespace {

TEST(LldbTest, ReadsTheLinesOfABacktrace) {
    const struct {
        const char* line;
        Debugger::StackLine::Kind kind;
        const char *function, *place;
    } cases[] = {
        {"* thread #1, name = 'f', stop reason = breakpoint 1.1", Debugger::StackLine::THREAD, "",
         ""},
        {"  thread #2, name = 'f'", Debugger::StackLine::THREAD, "", ""},
        {"  * frame #0: 0x00005555555551f1 f`main at f.c:7:5", Debugger::StackLine::CALL, "main",
         "f.c:7"},
        {"    frame #12: 0x00007ffff7ea5bd3 libc.so.6`__GI___wait4(pid=28210, usage=0x0) at "
         "wait4.c:30:10",
         Debugger::StackLine::CALL, "__GI___wait4", "wait4.c:30"},
        {"    frame #4: 0x0000555555555121 f`_start + 33", Debugger::StackLine::CALL, "_start",
         "f"},
        {"    frame #2: 0x1 a`std::vector<int, std::allocator<int>>::at(this=0x1, n=(unsigned)3) "
         "at "
         "v.h:3:1 [opt]",
         Debugger::StackLine::CALL, "std::vector<int, std::allocator<int>>::at", "v.h:3"},
        {"    frame #3: 0x1 a`main [inlined] solve(x=1) at s.cpp:9", Debugger::StackLine::CALL,
         "solve", "s.cpp:9"},
        {"    frame #5: 0x00007fffffffe6dc", Debugger::StackLine::CALL, "??", ""},
        {"error: invalid process", Debugger::StackLine::OTHER, "", ""},
    };
    const Lldb lldb("lldb");
    for (const auto& each : cases) {
        const auto said = lldb.parseStackLine(each.line);
        EXPECT_EQ(said.kind, each.kind) << each.line;
        EXPECT_EQ(said.function, each.function) << each.line;
        EXPECT_EQ(said.place, each.place) << each.line;
    }
    for (const char* tail : {"Quit? [Y/n] ", "> ", ">>> ", "  3: "})
        EXPECT_TRUE(lldb.asks(tail)) << tail;
    for (const char* tail : {"", "a > ", "x 3: ", "rank: "})
        EXPECT_FALSE(lldb.asks(tail)) << tail;
}

TEST(LldbTest, IsChosenByTheNameOfTheProgram) {
    const struct {
        const char *path, *name;
    } cases[] = {
        {"lldb", "lldb"}, {"/usr/bin/lldb-14", "lldb"}, {"gdb", "gdb"}, {"/x/lldb/gdb-12", "gdb"}};
    for (const auto& each : cases)
        EXPECT_EQ(makeDebugger(each.path)->name(), each.name);
}

} // namespace
