#include "frontend/gdb.h"

#include <gtest/gtest.h>

namespace {

// The lines are those of gdb 13.
TEST(Gdb, FindsFunctionsInStackLines) {
    const struct {
        const char* line;
        const char* function;
        const char* place;
    } cases[] = {
        {"#0  relax () at /src/examples/halo.cpp:150", "relax", "halo.cpp:150"},
        {"#12 0x0000555555557e96 in main (argc=..., argv=...) at halo.cpp:186", "main",
         "halo.cpp:186"},
        {"#3  0x00007ffff7d2a1ca in __poll (fds=..., nfds=1) from /lib/x86_64/libc.so.6", "__poll",
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
    };
    const Gdb gdb("gdb");
    for (const auto& each : cases) {
        SCOPED_TRACE(each.line);
        const auto found = gdb.parseStackLine(each.line);
        EXPECT_EQ(found.kind, Debugger::StackLine::CALL);
        EXPECT_EQ(found.function, each.function);
        EXPECT_EQ(found.place, each.place);
    }
    EXPECT_EQ(gdb.parseStackLine("Thread 2 (Thread 0x7ffff (LWP 12) \"a (b)\"):").kind,
              Debugger::StackLine::THREAD);
    for (const char* line : {"", "#", "#x", "#1", "#1 ", "#1  0x12", "No threads.", "Thread 2 left",
                             "(More stack frames follow...)"}) {
        SCOPED_TRACE(line);
        EXPECT_EQ(gdb.parseStackLine(line).kind, Debugger::StackLine::OTHER);
    }
}

} // namespace
