#include "console/cline.h"
#include "console/readline.h"
#include "console/term.h"
#include "tests/support/editorscreen.h"
#include "tests/support/testing.h"

namespace {

const std::string up = "\x1b[A", down = "\x1b[B";

// A pool of three words, walked to its end.
std::string complete(std::string prefix, int state) {
    static const char* const words[] = {"print", "printf", "set print pretty"};
    static std::size_t next;
    static std::string wanted;
    if (state == 0) {
        next = 0;
        wanted = std::move(prefix);
    }
    while (next < std::size(words)) {
        const std::string word = words[next++];
        if (word.starts_with(wanted)) return word;
    }
    return "";
}

// An editor before a screen, which follows it from key to key.
class Editor {
  public:
    Readline::Line line;
    std::string entered;

    explicit Editor(int bytes = 1024, int historyLines = 200)
        : line(bytes, historyLines, complete) {
        line.start();
    }
    Editor& type(const std::string& typed) {
        std::size_t at = 0;
        while (at < typed.size())
            press(term.getKey([&] { return static_cast<unsigned char>(typed[at++]); }));
        return *this;
    }
    // The line with a bar at the cursor.
    std::string state() const {
        std::string text = line.text();
        return text.insert(static_cast<std::size_t>(line.getCursor()), "|");
    }
    std::string history() const {
        return printed([this] { line.dumpHistory(); });
    }

  private:
    EditorScreen screen;

    void press(int key) {
        const bool ended = line.handleKey(key);
        ASSERT_TRUE(screen.follows(line)) << line.text();
        if (!ended) return;
        entered = line.text();
        line.finish();
        line.start();
        screen = {};
    }
};

struct Case {
    std::string typed;
    const char* state;
};

TEST(Editing, KeysInLineOut) {
    const Case cases[] = {
        {"abc\x01\x04", "|bc"},                // Ctrl-D
        {"\x04\x7f\x0b\x02\x06\x01\x05", "|"}, // nothing to act on
        {"abc\x02\x02\x06\x7fX\xc3\xa4", "aX\xc3\xa4|c"},
        {"abc\x1b[D\x1b[3~", "ab|"},
        {"abc\x1b[H\x1b[C\x0b", "a|"}, // Ctrl-K
        {"abc\x1bOH\x1bOFx", "abcx|"},
        {"abc\x02\x02\x15", "|"},                 // Ctrl-U
        {"abc\x01\x1b[2~X\x1b[2~Y", "XY|bc"},     // overwrite, and back to insert
        {"a\rb\x1b[5~\x1b[6~\x03\x1b?c", "abc|"}, // ignored
        // The forms in which terminals send their keys, and what is none of them.
        {"ab\x1bODX\x1b[0DY\x1b[1~Z\x1b[4~!\x1bOw?", "ZaYXb!?|"},
        {"ab\x1bxy\x1b[xy\x1b[3xz\x1b[F~", "abyyz~|"},
        // Completion.
        {"pri\t\t\t\t", "print|"},
        {"pri\t x\x1b[D\x1b[D\t", "print| x"},
        {"a,b:pri\t)", "a,b:print)|"},
        {"\t", "|"},
        {"pri\x02\t", "pr|i"},
        {"pri(x\x01\x06\x06\x06\t", "print|(x"},
        {"se\t\t", "se|"},
        {"pri\tx\t", "printx|"}, // a run of tabs ends with another key
    };
    for (const auto& [typed, state] : cases)
        EXPECT_EQ(Editor().type(typed).state(), state) << typed;
    EXPECT_EQ(Editor().type("  \t x\x01\n").entered, "   x"); // whole, wherever the cursor is
    // A completion that does not fit is dropped whole, and the word with it.
    EXPECT_EQ(Editor(10).type("abcd pri\t").state(), "abcd |");
    EXPECT_EQ(Editor(11).type("abcd pri\t").state(), "abcd print|");
}

TEST(Editing, TheBufferHolds1023Characters) {
    Editor editor;
    EXPECT_EQ(editor.type(std::string(1022, 'x') + "yz").state().substr(1020), "xxy|");
    EXPECT_EQ(editor.type("\x01z\x1b[2~z").state().substr(0, 4), "z|xx");
    EXPECT_EQ(editor.type("\x05\x7fw\n").entered, "z" + std::string(1021, 'x') + "w");
    // Also as history, and as what an earlier session left.
    EXPECT_EQ(editor.type(up).line.getLength(), 1023);
    editor.type("\n");
    editor.line.recall(std::string(1024, 'r'));
    editor.line.recall(std::string(1023, 's'));
    EXPECT_EQ(editor.history().find('r'), std::string::npos);
    EXPECT_NE(editor.history().find(std::string(1023, 's') + '\n'), std::string::npos);
}

TEST(Editing, RecallingLines) {
    const Case cases[] = {
        {up + up + up + up, "one|"},
        {"draft" + up + down + down, "draft|"},
        {"\x10\x10\x0e", "three|"},                  // Ctrl-P, Ctrl-N
        {up + "!" + up + "?" + down, "three!|"},     // edits stay in the history
        {up + "!" + up + "?" + down + up, "two?|"},  //
        {up + "!\x15", "three|"},                    // Ctrl-U takes them back
        {up + "!" + up + down + "?\x15", "three!|"}, // to where they were stored
        {up + "\x01\x0b" + up + down, "three|"},     // an emptied line is not stored
        {"draft" + up + down + "!\x15", "draft|"},
        // Ctrl-R searches backwards.
        {"  \x12", "  |"},
        {"t\x12\x12\x12", "t|"}, // past the top to the line being typed
        {"t\x12\x12\x12\x12", "three|"},
        {"zz\x12\x12", "zz|"},
        {"t\x12 \x12", "three |"}, // another key begins a new search
        {"o\x12\x1b[A", "one|"},   // the recalled line is where it stands
    };
    for (const auto& [typed, state] : cases)
        EXPECT_EQ(Editor().type("one\n  \ntwo\n\nthree\n" + typed).state(), state) << typed;
    // The recalled line keeps its old text: it was entered, not stored where it stood.
    Editor editor;
    EXPECT_EQ(editor.type("one\n\ntwo\nthree\n" + up + up + "2\n").entered, "two2");
    EXPECT_EQ(editor.history(), "one\ntwo\nthree\ntwo2\n\n");
    // A full list drops its oldest line.
    Editor small(64, 3);
    EXPECT_EQ(small.type("a\nb\nc\nd\n").history(), "c\nd\n\n");
    EXPECT_EQ(small.type(up + up + up).state(), "c|");
}

// Empties the pool of everything that was in it, and fills it with these words.
void poolOf(std::initializer_list<const char*> words) {
    static int fillers = 0;
    for (int i = 0; i < 400; ++i)
        Readline::addContext("~" + std::to_string(fillers++));
    for (const char* word : words)
        Readline::addContext(word);
}

// What the tab key offers for a prefix, press by press.
std::string offered(const std::string& prefix, int presses) {
    std::string words;
    for (int i = 0; i < presses; ++i)
        words += Readline::generateVariable(prefix, i) + "|";
    return words;
}

TEST(Completion, OldestFirst) {
    poolOf({"printf", "print", "  set print pretty ", "Print", " \t", "", "run"});
    EXPECT_EQ(offered("pri", 3), "printf|print||");
    EXPECT_EQ(offered("set", 2), "set print pretty ||");
    // A hit on the newest entry goes on with the oldest.
    EXPECT_EQ(offered("run", 3), "run|run|run|");
    poolOf({"printf", "print"});
    EXPECT_EQ(offered("pri", 5), "printf|print|printf|print|printf|");
    // Behind the end a cycle offers nothing more.
    poolOf({"a1", "b"});
    EXPECT_EQ(offered("a", 4), "a1||||");
}

TEST(Completion, TheWordAddedAgainKeepsItsPlace) {
    poolOf({"w1", "w2", "w3", "w1", "x"});
    // Three of 400 are left behind 397 others; one more drops the oldest, added again or not.
    for (int i = 0; i < 396; ++i)
        Readline::addContext("y" + std::to_string(i));
    EXPECT_EQ(offered("w", 4), "w1|w2|w3||");
    Readline::addContext("y0");
    Readline::addContext("z");
    EXPECT_EQ(offered("w", 3), "w2|w3||");
    Readline::addContext("w1");
    EXPECT_EQ(offered("w", 4), "w3|w1|w3|w1|"); // the newest now
}

} // namespace
