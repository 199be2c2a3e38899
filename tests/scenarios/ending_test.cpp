// Every way out: what is sent, how soon it ends, and the terminal as it was found.
#include "tests/support/session.h"

class Ending : public Session {
  protected:
    void question(const std::string& line, const std::string& what) {
        EXPECT_EQ(answerTo(line, "(y/n) "), "Really want to quit (" + what + ")? ");
    }
    void kquit() {
        question("kquit", "all processes");
        console->type("Yes\n");
        frontEnd.expectCommand(Command::QUIT, "");
    }
    void expectEndSoon(int status = 0) {
        const auto start = std::chrono::steady_clock::now();
        expectEnd(status);
        // Within a second, with room for a sanitizer's own end and for other tests.
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    }
};

TEST_F(Ending, AQuestionTakesOnlyAYes) {
    begin();
    for (const char* no : {"n", "", "no, y", "?"}) {
        question("k", "all processes");
        EXPECT_EQ(answerTo(no), "") << no;
        question("e", "current console only");
        EXPECT_EQ(answerTo(no), "") << no;
    }
    EXPECT_FALSE(frontEnd.hasCommand());
    // The end comes also when the front end never closes.
    kquit();
    expectEnd();
}

TEST_F(Ending, AScriptAnswersQuestionsAndItsEndLeavesWithoutOne) {
    const struct {
        const char* script;
        int commands;
    } scripts[] = {{"", 0}, {"\n \n", 0}, {"where\nlast", 2}, {"kquit\nn\nexit\ny\nwhere\n", 0}};
    for (const auto& [script, commands] : scripts) {
        SCOPED_TRACE(script);
        launch(script);
        frontEnd.accept(id);
        for (int i = 0; i < commands; ++i) {
            frontEnd.expectCommand(Command::CLIENT);
            frontEnd.finish(id);
        }
        frontEnd.expectClosed();
        expectEndSoon();
        EXPECT_EQ(console->screen().find("Really") == std::string::npos, script[0] != 'k');
    }
}

TEST_F(Ending, AClosedTerminalEndsAlsoAConsoleThatIgnoresHangUps) {
    for (const int status : {128 + SIGHUP, 0}) {
        if (status == 0) ignored = {SIGHUP};
        begin();
        frontEnd.watch(-1, nullptr);
        console->hangUp();
        frontEnd.expectClosed();
        EXPECT_EQ(console->exitStatus(), status);
    }
}

TEST_F(Ending, WhateverEndsItTheTerminalIsAsItWasFound) {
    const std::function<void()> atQuestion = [this] { question("kquit", "all processes"); },
                                running = [this] { command("run"); },
                                terminated = [this] { console->signal(SIGTERM); };
    const struct {
        const char* name;
        std::function<void()> go;
        int status = 0; // 0: the front end goes
    } ways[] = {
        {"SIGTERM at the prompt", terminated, 128 + SIGTERM},
        {"SIGHUP", [this] { console->signal(SIGHUP); }, 128 + SIGHUP},
    // A sanitizer has handlers of its own.
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
        {"SIGSEGV", [this] { console->signal(SIGSEGV); }, 128 + SIGSEGV},
#endif
        {"SIGTERM while a command runs", [&] { running(), terminated(); }, 128 + SIGTERM},
        {"SIGQUIT from the keyboard", [this] { console->type("\x1c"); }, 128 + SIGQUIT},
        {"a failed assertion", [this] { frontEnd.raw(std::string(4, '\x7f')); }, 128 + SIGABRT},
        {"behind kquit", [this] { kquit(); }},
        {"exit", [this] { question("exit", "current console only"), console->type("y\n"); }},
        {"in the middle of a line", [this] { console->type("whe"), console->until("whe"); }},
        {"at a question", atQuestion},
        {"while a command runs", running},
        {"while a group request is open", [this] { enter("group"); }},
        {"interrupted", [this] { interrupted(); }},
        {"within a record", [this] { frontEnd.raw(std::string(3, '\0')); }},
    };
    for (const auto& [way, go, status] : ways) {
        SCOPED_TRACE(way);
        begin();
        EXPECT_NE(console->settings().c_lflag, console->initialSettings().c_lflag);
        go();
        if (status == 0) frontEnd.close();
        expectEndSoon(status);
    }
}
