#include "tests/support/vextest.h"

namespace {

class ValuesTest : public VexTest {};

TEST_F(ValuesTest, AnExpressionInAllTasks) {
    Peer console(begin(4));
    EXPECT_EQ(console.command("vex values tolerance < 1")[0],
              "0:3 | evaluated without a process: what the program begins with");
    console.command("break does_not_settle");
    console.send(Command::CLIENT, "all", "run");
    while (!contain(console.next(), "Breakpoint 1, does_not_settle (")) {
    }
    console.send(Command::INTERRUPT, "all");
    console.finish();
    console.command("up", "0");
    Lines values = console.command("vex values rank -g R");
    EXPECT_TRUE(contain(values, ", the selected frame"));
    std::erase_if(values, [](const auto& line) { return line.find("evaluated") != line.npos; });
    EXPECT_EQ(values, (Lines{"0:3 | min 0 (0)", "0:3 | max 3 (3)", "0:3 | mean 1.5",
                             "0:3 | sd 1.11803", "0 | 0: 1 client", "1 | 1: 1 client",
                             "2 | 2: 1 client", "3 | 3: 1 client", "READY"}));
    // In a system's function whose frame knows no such name.
    for (const char* line : {"delete", "tbreak write", "signal 0"})
        console.command(line, "R3");
    EXPECT_EQ(console.command("vex values change > 1e9", "R3")[0],
              "2 | evaluated in does_not_settle, the program's innermost frame");
    quit(console);
}

TEST_F(ValuesTest, TaskZeroReadsTheFile) {
    const std::string file = folder.write("in put's $1", "from the file\n");
    Peer console(beginWith({"-n", "2", "--stdin", file, "/bin/cat"}));
    EXPECT_TRUE(contain(console.command("run", "0"), "0 | from the file"));
    EXPECT_TRUE(contain(console.command("run /dev/stdin </dev/null", "1"), "exited normally"));
    EXPECT_FALSE(contain(console.command("run </dev/null", "0"), "from the file"));
    quit(console);
}

} // namespace
