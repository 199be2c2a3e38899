// Batch mode: no prompt; under luma one command line is sent and its end is the end.
#include "tests/support/session.h"

using Batch = Session;

TEST_F(Batch, OneCommandUnderLumaWithoutItTheConsoleOnlyWatches) {
    for (const bool luma : {true, false}) {
        options = {"-p", home.write("batch", "command_line = print rank\nexe_mode = batch\n")};
        if (luma) options.insert(options.end(), {"-u", "yes"});
        launch("never read\n");
        frontEnd.accept(id);
        if (luma) frontEnd.expectCommand(Command::CLIENT, "print rank");
        frontEnd.print(id, {{0, {0, 1, 2, 3}, "$1 = 5"}});
        console->until(eol);
        if (luma) {
            frontEnd.ready(id);
            // No FILTERED request; the end of the command is the end of all.
            frontEnd.expectCommand(Command::QUIT, "");
        }
        EXPECT_FALSE(frontEnd.hasCommand());
        frontEnd.close();
        expectEnd();
        EXPECT_EQ(console->screen(), "\x1b[?7h\x1b[?45h" + green + "0:3 | $1 = 5" + eol);
        EXPECT_TRUE(std::filesystem::is_directory(home.path(luma ? ".luma" : ".vex")));
        EXPECT_EQ(std::filesystem::exists(home.path(".vex")), !luma);
    }
}

TEST_F(Batch, LumaAtThePromptHasNoExit) {
    options = {"-u", "yes"};
    begin();
    EXPECT_EQ(answerTo("exit"), "");
    for (const char* line : {"match x", "stat", "option mode"}) {
        command(line);
        finish();
    }
}
