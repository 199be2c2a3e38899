// Batch mode: no prompt; under luma one command line is sent and its end is the end.
#include "tests/support/session.h"

#include <filesystem>

class Batch : public Session {
  protected:
    void launchBatch(bool luma) {
        options = {"-p", home.write("batch", "command_line = print rank\nexe_mode = batch\n")};
        if (luma) options.insert(options.end(), {"-u", "yes"});
        launch("never read\n");
        frontEnd.accept(id);
        if (luma) frontEnd.expectCommand(Command::CLIENT, "print rank");
    }
    const std::string shown = "\x1b[?7h\x1b[?45h" + green + "0:3 | $1 = 5" + eol;
};

TEST_F(Batch, OneCommandUnderLuma) {
    launchBatch(true);
    frontEnd.print(id, {{0, {0, 1, 2, 3}, "$1 = 5"}});
    frontEnd.ready(id);
    // No FILTERED request; the end of the command is the end of all.
    frontEnd.expectCommand(Command::QUIT, "");
    frontEnd.close();
    expectEnd();
    EXPECT_EQ(console->screen(), shown);
    EXPECT_TRUE(std::filesystem::is_directory(home.path(".luma")));
    EXPECT_FALSE(std::filesystem::exists(home.path(".vex")));
}

TEST_F(Batch, WithoutLumaTheConsoleOnlyWatches) {
    launchBatch(false);
    frontEnd.print(id, {{0, {0, 1, 2, 3}, "$1 = 5"}});
    EXPECT_EQ(console->until(eol) + eol, shown);
    EXPECT_FALSE(frontEnd.hasCommand());
    frontEnd.close();
    expectEnd();
    EXPECT_EQ(console->screen().find("(all"), std::string::npos);
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
