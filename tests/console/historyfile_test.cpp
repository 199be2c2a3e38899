#include "console/historyfile.h"
#include "tests/support/tempdir.h"

namespace {

namespace fs = std::filesystem;

class HistoryOnDisk : public testing::Test {
  protected:
    TempDir dir;
    const std::string path = dir.path("history");
    const HistoryFile history{path};

    void SetUp() override {
        if (::getuid() == 0) GTEST_SKIP() << "nothing is forbidden to root";
    }
    static std::string numbered(int from, int to) {
        std::string text;
        for (int i = from; i < to; ++i)
            text += "line " + std::to_string(i) + "\n";
        return text;
    }
    // A mode that the user gave it, which stays.
    void fill(const std::string& text, mode_t mode = 0640) {
        dir.write("history", text);
        ::chmod(path.c_str(), mode);
    }
    // What the file holds after one more write to it.
    std::string with(const std::string& line) {
        history.write(line);
        return content();
    }
    std::string content() const { return dir.read("history"); }
    // The directory holds the history file and nothing besides.
    void expectNoLeftovers(std::ptrdiff_t files = 1, mode_t mode = 0640) const {
        EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), {}), files);
        EXPECT_EQ(fs::status(path).permissions(), fs::perms(mode));
    }
    // Runs the action in this many processes at once.
    static void inProcesses(int count, const std::function<void(int)>& action) {
        std::vector<pid_t> children;
        for (int i = 0; i < count; ++i) {
            children.push_back(::fork());
            if (children.back() != 0) continue;
            action(i);
            ::_exit(0);
        }
        for (int status = -1; const pid_t child : children)
            EXPECT_TRUE(::waitpid(child, &status, 0) == child && status == 0) << status;
    }
};

TEST_F(HistoryOnDisk, SwingsBetween801And1001Lines) {
    fill(numbered(0, 1000));
    EXPECT_EQ(with("a\n"), numbered(0, 1000) + "a\n");
    EXPECT_EQ(with("b\n"), numbered(201, 1000) + "a\nb\n");
    // One line of 255 characters counts as two, as reads of 255 bytes would have it.
    const std::string wide = std::string(255, 'w') + "\n";
    fill(numbered(0, 999) + wide);
    EXPECT_EQ(with("a\n"), numbered(200, 999) + wide + "a\n");
    expectNoLeftovers();
    fill("a\n\nc");
    EXPECT_EQ(history.tail(2), "\nc");
    EXPECT_EQ(history.tail(9), "a\n\nc");
    EXPECT_EQ(with("d\n"), "a\n\nc\nd\n");
}

TEST_F(HistoryOnDisk, ALinkStaysALinkAndWhatIsNewIsPrivate) {
    for (const mode_t mask : {0, 0777}) {
        fs::remove(path);
        const mode_t before = ::umask(mask);
        history.write("secret\n");
        ::umask(before);
        EXPECT_EQ(content(), "secret\n");
        expectNoLeftovers(1, 0600);
    }
    const std::string link = dir.path("link 'with \"quotes\" and $(blanks)");
    fill(numbered(0, 1001));
    fs::create_symlink("history", link);
    HistoryFile(link).write("a\n");
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(content(), numbered(201, 1001) + "a\n");
    expectNoLeftovers(2);
}

TEST_F(HistoryOnDisk, AFullDiskAndAReadOnlyDirectoryLoseNoLine) {
    const auto within = [&](rlim_t limit, const char* line) {
        inProcesses(1, [&](int) {
            ::signal(SIGXFSZ, SIG_IGN);
            const rlimit both{limit, limit};
            ::setrlimit(RLIMIT_FSIZE, &both);
            history.write(line);
        });
        return content();
    };
    const std::string few = numbered(0, 10), many = numbered(0, 1001);
    fill(few);
    EXPECT_EQ(within(few.size() + 3, "too long\n"), few); // no part of it stays
    EXPECT_EQ(within(few.size() + 3, "ab\n"), few + "ab\n");
    fill(many);
    EXPECT_EQ(within(5000, "a\n"), many); // the trimmed file does not fit
    // Where no new file can be made, the old one is rewritten.
    ::chmod(dir.path().c_str(), 0500);
    EXPECT_EQ(within(5000, "a\n"), many);
    EXPECT_EQ(with("a\n"), numbered(201, 1001) + "a\n");
    EXPECT_EQ(with("b\n"), numbered(201, 1001) + "a\nb\n");
    ::chmod(dir.path().c_str(), 0700);
    expectNoLeftovers();
}

TEST_F(HistoryOnDisk, OnlyARegularFileThatNobodyElseMayWriteIsTouched) {
    ::alarm(30); // a FIFO may hang it
    ::mkfifo(dir.path("fifo").c_str(), 0640);
    ::chmod(dir.write("open", "old\n").c_str(), 0646);
    fs::create_directory(dir.path("shared"));
    dir.write("shared/history", "old\n");
    ::chmod(dir.path("shared").c_str(), 0707);
    fs::create_symlink("shared/history", dir.path("link"));
    for (const char* name : {"fifo", "open", "shared/history", "link"}) {
        const HistoryFile other(dir.path(name));
        const fs::perms mode = fs::status(dir.path(name)).permissions();
        other.write("new\n");
        EXPECT_EQ(other.tail(9), "") << name;
        EXPECT_EQ(other.countLines(), 0) << name;
        EXPECT_EQ(fs::status(dir.path(name)).permissions(), mode) << name;
    }
    EXPECT_EQ(dir.read("open") + dir.read("shared/history"), "old\nold\n");
    fill("old\n", 0200); // may only be written
    history.write("new\n");
    fs::permissions(path, fs::perms(0600));
    EXPECT_EQ(content(), "old\nnew\n");
    ::alarm(0);
}

TEST_F(HistoryOnDisk, ConsolesThatTrimAtOnceLoseAndTearNothing) {
    const auto lineOf = [](int console, int i) {
        return "console " + std::to_string(console) + std::string(200, static_cast<char>('a' + i)) +
               "\n";
    };
    for (int round = 0; round < 12; ++round) {
        fill(numbered(0, 996 + round));
        inProcesses(3, [&](int console) {
            for (int i = 0; i < 8; ++i)
                history.write(lineOf(console, i));
        });
        const std::string text = content();
        for (int console = 0; console < 3; ++console) {
            std::size_t at = 0;
            for (int i = 0; i < 8; ++i) {
                const std::string line = "\n" + lineOf(console, i);
                at = text.find(line, at);
                ASSERT_NE(at, std::string::npos) << "round " << round << line;
                ASSERT_EQ(text.find(line, at + 1), std::string::npos);
            }
        }
        // The old lines end where they ended, and are whole.
        ASSERT_NE(text.find("line " + std::to_string(995 + round) + "\n"), std::string::npos);
        ASSERT_TRUE(text.starts_with("line "));
        expectNoLeftovers();
    }
}

} // namespace
