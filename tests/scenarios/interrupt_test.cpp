// Ctrl-C and what can be done behind it.
#include "tests/support/session.h"

using Interrupt = Session;

TEST_F(Interrupt, CtrlCAtThePromptDoesNothing) {
    begin();
    console->type("whe");
    console->until("whe");
    // Not by its key, which also empties the terminal's queues at a time of its own.
    console->signal(SIGINT);
    // Both threads have moved on since, so that the signal has arrived.
    frontEnd.reply(Reply::CLIENT_REMOVE, 3);
    console->until("Client 3 was terminated\n");
    console->type("r");
    console->until("r");
    console->type("e\n");
    frontEnd.expectCommand(Command::CLIENT, "where");
    finish();
}

TEST_F(Interrupt, LinesRefusedBehindIt) {
    begin();
    interrupted();
    const std::string useSend = "3917-503  Use 'send %s' to send secondary prompt messages.";
    const std::string notHere = "3917-500  This command cannot run in interrupt state.";
    const std::pair<const char*, std::string> refused[] = {
        {" print %d", useSend + " Error near: print %d<END>\n"},
        {"match x", notHere + " Error near: match x<END>\n"},
        {"option broadcast on", notHere + " Error near: broadcast on<END>\n"},
        {"option ecolor red", "set color to red.\n"},
        {"send", "3917-501  Ambiguous command. Error near: <END>\n"},
        {"leave now", "3917-540  Extra parameters. Error near: now<END>\n"},
    };
    for (const auto& [line, shown] : refused)
        EXPECT_EQ(answerTo(line, "(all:int) "), shown) << line;
    EXPECT_FALSE(frontEnd.hasCommand());
}

TEST_F(Interrupt, RequestsAndTheirAnswers) {
    const struct {
        const char* line;
        Command::Type sent;
        std::string text;
        Reply::Value value;
        std::string prompt;
    } cases[] = {
        {"inter", Command::INTERRUPT, "", Reply::SUCCESS, "(all:int) "},
        {"on g1", Command::ON, "g1", Reply::ON_INTERRUPT, "(g1:int) "},
        {"on nowhere", Command::ON, "nowhere", Reply::FAILED, "(g1:int) "},
        {"on all", Command::ON, "all", Reply::ON_INTERRUPT, "(all:int) "},
        // With nothing in flight, or nobody who asks, it comes back to normal.
        {"interrupt", Command::INTERRUPT, "", Reply::ON_NORMAL, "(all) "},
        {"send y", Command::PROMPT, "y", Reply::FAILED, "(all) "},
    };
    begin();
    interrupted();
    for (const auto& [line, sent, text, value, next] : cases) {
        ask(line, sent, text);
        const bool failed = value == Reply::FAILED;
        frontEnd.reply(value, failed ? 511 : 0, text.empty() ? "all" : text);
        EXPECT_EQ(prompt(next), failed ? "3917-511  Group not found.\n" : "") << line;
        if (next == "(all) ") interrupted();
    }
    // READY instead of an answer: the members have stopped.
    ask("interrupt", Command::INTERRUPT, "");
    EXPECT_EQ(finish(), "");
    interrupted();
    ask("send yes please", Command::PROMPT, "yes"); // one word
    EXPECT_EQ(finish(), "");
    command("send yes please"); // the clients' own word outside the interrupt state
}

TEST_F(Interrupt, WhatIsPrintedMeanwhileIsKeptUnseen) {
    begin();
    interrupted();
    frontEnd.print(id, {{0, {0, 1}, "unseen"}});
    frontEnd.reply(Reply::CLIENT_REMOVE, 3);
    EXPECT_EQ(console->until("Client 3 was terminated\n"), "");
    enter("leave");
    // The wait for the rest goes on; nothing was sent for it.
    EXPECT_FALSE(frontEnd.hasCommand());
    // It takes effect some time after its echo: what comes before that is kept unseen, too.
    const Deadline deadline;
    for (int line = 1; console->screen().find("2 | seen") == std::string::npos; ++line) {
        ASSERT_GT(deadline.left(), 0);
        frontEnd.print(id, {{line, {2}, "seen"}});
        ::usleep(20000);
    }
    EXPECT_EQ(console->screen().find("unseen"), std::string::npos);
    frontEnd.ready(id);
    EXPECT_EQ(frontEnd.expectFiltered(), "0:2 ");
    frontEnd.success();
    prompt("(all) ");
    // READY that comes while interrupted ends the state. The prompt that stands there is the old
    // one; the next one tells the truth.
    interrupted();
    frontEnd.finish(id);
    for (const char* line : {"", "leave", "interrupt"})
        EXPECT_EQ(answerTo(line), "");
    EXPECT_FALSE(frontEnd.hasCommand());
}

// A line says so when all have stopped, in front of the prompt; of a command of which all was seen,
// and behind `leave`, there is none.
TEST_F(Interrupt, TellsOfWhatWasKeptUnseen) {
    const auto unseen = [this] {
        interrupted();
        frontEnd.print(id, {{0, {0, 1}, "unseen"}});
        frontEnd.reply(Reply::CLIENT_REMOVE, 3);
        console->until("Client 3 was terminated\n");
    };
    begin();
    unseen();
    ask("interrupt", Command::INTERRUPT, "");
    EXPECT_EQ(finish(), "What came in between was not shown; to see it: match\n");
    EXPECT_NE(answerTo("match").find("unseen"), std::string::npos);
    interrupted();
    ask("interrupt", Command::INTERRUPT, "");
    EXPECT_EQ(finish(), "");
    unseen();
    ask("interrupt", Command::INTERRUPT, "");
    frontEnd.success();
    prompt("(all:int) ");
    enter("leave");
    sleepFor(200); // its echo comes before it
    EXPECT_EQ(finish(), "");
}

// Ctrl-C thousands of times, at any moment of a busy exchange: nothing is torn, nothing hangs.
TEST_F(Interrupt, ThousandsOfInterruptsDuringABusyExchange) {
    const auto signals = static_cast<int>(soak("VEX_SOAK_SIGNALS", 6000));
    const int lines = signals / 20;
    std::string script;
    for (int i = 0; i < lines; ++i)
        script += "print\ninterrupt\ngroup g = 1\nleave\n";
    launch(script);
    frontEnd.accept(id);
    // Behind its first command the console is past the time when Ctrl-C gives up connecting.
    frontEnd.expectCommand(Command::CLIENT, "print");
    std::atomic<int> sent = 0;
    std::atomic<bool> over = false;
    std::thread storm([&] {
        for (; !over; ++sent) {
            ::kill(console->pid(), SIGINT);
            std::this_thread::yield();
        }
    });
    int commands = 0;
    std::string failure;
    try {
        for (;; ++commands) {
            // A console that runs without a command of its own (it left the interrupt state) waits
            // for a READY that only an idle front end can tell it is due.
            while (!frontEnd.waitForCommand(std::chrono::milliseconds(2)))
                frontEnd.ready(id);
            const Command next = frontEnd.expectCommand();
            // However fast the exchange is, each of its steps is hit by some.
            while (sent < commands * (signals / lines) && console->running())
                std::this_thread::yield();
            if (next.getType() == Command::CLIENT) {
                EXPECT_STREQ(next.getContent(), "print");
                frontEnd.print(id, {{0, {0}, "out"}});
                frontEnd.ready(id);
            } else {
                EXPECT_TRUE(next.getType() == Command::INTERRUPT ||
                            next.getType() == Command::GROUP);
                frontEnd.success();
            }
        }
    } catch (const BrokenConnection&) { // a send, after the script's end
    } catch (const std::runtime_error& error) {
        failure = error.what();
    }
    over = true;
    storm.join();
    EXPECT_EQ(console->exitStatus(), 0) << failure;
    EXPECT_GT(commands, lines / 4) << failure;
    EXPECT_GT(sent, signals / 5);
}

// 2,000 clients are shown one by one, and a line takes its time; of long lines the first write that
// Ctrl-C meets is the last one. Nor does it wait for verdicts, of which two lines of a megabyte
// would need very many steps.
TEST_F(Interrupt, EndsWhatIsBeingShown) {
    ClientSet all;
    all.insertRange(0, 1999);
    std::vector<Output> many, wide;
    for (int i = 0; i < 400; ++i)
        many.push_back({i, all, "line " + std::to_string(i) + "."});
    for (int i = 0; i < 40; ++i)
        wide.push_back({i, {0}, "line " + std::to_string(i) + "." + std::string(300000, 'x')});
    const std::string a(1000000, 'a'), b(1000000, 'b');
    const struct {
        std::vector<Output> lines;
        const char* mode;
        std::string shown, unshown;
    } cases[] = {
        {{{0, {0}, a + "."}, {0, {1}, "." + b}}, "auto", "", "never"},
        {wide, "auto", "| line 2.", "| line 30."},
        {many, "expanded", "0 | line 399.", "1999 | line 399."},
    };
    begin();
    for (const auto& [lines, mode, shown, unshown] : cases) {
        answerTo(std::string("option mode ") + mode);
        command("run");
        frontEnd.print(id, lines);
        if (!shown.empty()) console->until(shown);
        console->signal(SIGINT);
        const std::string rest = prompt("(all:int) ");
        EXPECT_TRUE(shown.empty() || rest.ends_with("\x1b[00m\n"));
        EXPECT_EQ(rest.find(unshown), rest.npos);
        enter("leave");
        finish();
    }
    // What was not shown has been kept.
    EXPECT_NE(answerTo("match '^1999 ' | match 399").find("1999 | line 399."), std::string::npos);
}
