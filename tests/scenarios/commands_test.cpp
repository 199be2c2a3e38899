// The commands that act on the console itself: match, option, help, history, and the tab key.
#include "common/catalog.h"
#include "tests/support/session.h"

class Commands : public Session {
  protected:
    using Record = std::vector<Output>;

    void expectAnswers(const std::vector<std::pair<const char*, std::string>>& rows) {
        for (const auto& [line, shown] : rows)
            EXPECT_EQ(answerTo(line), shown) << line;
    }
    /// Runs a client command that prints these records.
    void run(const std::vector<Record>& records) {
        command("where");
        for (const Record& lines : records)
            frontEnd.print(id, lines);
        finish();
    }
    static std::string helpOn(int brief, int detail) {
        return std::string(Catalog::get(brief)) + "\n\n" + Catalog::get(detail);
    }
    void expectTyped(const std::string& keys, const std::string& text) {
        console->type(keys + "\n");
        frontEnd.expectCommand(Command::CLIENT, text);
        finish();
    }
};

TEST_F(Commands, MatchShowsTheKeptOutputAgain) {
    environment["VEX_HISTORY_LINES"] = "10";
    begin();
    const std::string help = helpOn(HELP_MATCH_BRIEF, HELP_MATCH_DETAIL);
    // Nothing is kept: nothing to print, and nothing to notice a mistake at.
    expectAnswers({{"match", ""}, {"match a | grep b", ""}});
    run({{{0, {0, 1, 2}, "0123456789"}, {0, {3}, "012345678x"}}, {{1, {0, 1, 2, 3}, "Two"}}});
    const std::string first = green + "0:2 | 0123456789" + eol;
    const std::string second = darkgreen + "3 | 012345678x" + eol;
    const std::string third = green + "0:3 | Two" + eol;
    expectAnswers({
        {"match", first + second + third},
        {"mat 'TWO'", green + reset + darkgreen + reset + third},
        {"match '^3 ' | match x", green + reset + second + green + reset},
        {"match '(' | match 9", first + darkgreen + reset + green + reset}, // '(' is no stage
        {"match two |", green + reset + help},
        {"match", first + second + third},
    });
    // The next command begins anew. The second text was different when it came; that it leads now
    // does not change its state.
    run({{{0, {0, 1}, "one"}, {0, {2}, "other"}}, {{0, {3, 4}, "other"}}});
    EXPECT_EQ(answerTo("match"), red + "0:1 | one" + eol + red + "2:4 | other" + eol);
    // Of more lines than are kept, the oldest tenth goes.
    Record many;
    for (int i = 0; i < 12; ++i)
        many.push_back({i, {0}, std::to_string(i)});
    run({many});
    EXPECT_TRUE(answerTo("match").starts_with(green + "0 | 1" + eol));
}

TEST_F(Commands, OptionTakesTheFirstRowThatMatches) {
    std::filesystem::create_directory(home.path(".vex"));
    home.write(".vex/conf", "scolor = blue\n#x=1\nscolor = red\necolor = Red\nbroadcast=o\n");
    begin();
    const std::string help = helpOn(HELP_OPTION_BRIEF, HELP_OPTION_DETAIL);
    expectAnswers({
        {"option s", "current color is blue.\n"}, // the first definition
        {"option ec", "current color is green.\n"},
        {"option b", "current broadcast mode is off.\n"},
        {"option broadcast o", "broadcast mode off.\n"},
        {"option ecolor gr", "set color to green.\n"},
        {"option ecolor gra", "set color to gray.\n"},
        {"option ecolor Red", help},
        {"option dcolor reds", help},
        {"option mode", "current dump mode is auto.\n"},
        {"option m e", "Set dump mode to expanded.\n"},
        {"option session 3",
         "current session number is " + std::to_string(frontEnd.session()) + ".\n"},
        {"option", help},
        {"o", "3917-501  Ambiguous command. Error near: o<END>\n"}, // the commands do not
    });
    run({{{0, {0, 1}, "one"}}});
    const std::string gray = "\x1b[1;38m";
    EXPECT_EQ(answerTo("match 1"), gray + reset + gray + "1 | one" + eol);
}

TEST_F(Commands, HelpOnCommandsTopicsAndTheDebuggersWords) {
    begin();
    const std::string list = answerTo("help");
    EXPECT_TRUE(list.starts_with("Commands:\n          help -- "));
    EXPECT_NE(list.find("\n\nTopics:\n       general -- "), std::string::npos);
    EXPECT_TRUE(list.ends_with(std::string("\n\n") + Catalog::get(HELP_EPILOG)));
    expectAnswers({{"help h", helpOn(HELP_HELP_BRIEF, HELP_HELP_DETAIL)},
                   {"help s", helpOn(HELP_SEND_BRIEF, HELP_SEND_DETAIL)},
                   {"help states", helpOn(HELP_STATES_BRIEF, HELP_STATES_DETAIL)},
                   {"help 5", "3917-530  Invalid help topic. Error near: 5<END>\n"}});
    command("help print");
}

TEST_F(Commands, HistoryOfThisSessionAndOfThoseBefore) {
    std::filesystem::create_directory(home.path(".vex"));
    std::string before;
    for (int i = 0; i < 12; ++i)
        before += "print " + std::to_string(i) + "\n";
    before.replace(before.find(" 9"), 1, 1, '\0'); // printed whole
    home.write(".vex/history", before);
    begin();
    expectAnswers({{"  history 2", "print 11\nhistory 2\n"},
                   {"history", before.substr(before.find("print 4")) + "history 2\nhistory\n"},
                   {"history x", "3917-501  Ambiguous command. Error near: x<END>\n"},
                   {"   ", ""},
                   {"history 1", "history 1\n"}});
    // Up past this session's lines, and a search for an older one.
    expectTyped("\x1b[A\x1b[A\x1b[A\x1b[A\x1b[A", "print 11");
    expectTyped("int 7\x12", "print 7");
}

TEST_F(Commands, TheTabKeyKnowsTheLatestOutputAndTheConsolesOwnWords) {
    begin();
    run({{{0, {0}, "at relax_grid.c:17 (rows=relaxed) 9lives x"}}});
    // The newest of the two, so that the first comes again with the next tab.
    expectTyped("print rel\t\t", "print relaxed");
    expectTyped("print 9li\t interru\t", "print 9li interrupt");
    // More words than the pool holds drive out the console's own, which come back with the record.
    std::string words;
    for (int i = 0; i < 500; ++i)
        words += "word" + std::to_string(i) + " ";
    run({{{0, {0}, words}}});
    expectTyped("print FILT\t", "print FILTERED");
}
