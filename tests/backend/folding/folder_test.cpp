#include "backend/folding/folder.h"
#include "display/parser.h"
#include "tests/support/testing.h"

using namespace std::chrono_literals;

namespace {

const Clock::time_point start{};

// The lines as "number@clients text", with slashes between them.
std::string shown(const Folder::Lines& lines) {
    std::string all;
    for (const auto& line : lines.lines)
        all += (all.empty() ? "" : " / ") + std::to_string(line.number) + "@" + line.clients.str() +
               line.text;
    return all;
}

struct FolderTest : testing::Test {
    Folder folder;
    void says(const ClientSet& clients, const Lines& lines, Clock::time_point now = start) {
        for (const int id : clients)
            for (const std::string& line : lines)
                folder.add(id, line, now);
    }
    std::string take() { return shown(folder.take()); }
};

TEST_F(FolderTest, AnExtraLineOfOneClientShiftsNothing) {
    says({0, 2}, {"a", "b", "c"});
    says({1}, {"a", "warning", "b", "c"});
    says({3}, {"a", "notice", "b"});
    EXPECT_EQ(take(), "0@0:3 a / 1@1 warning / 1@3 notice / 2@0:3 b / 3@0:2 c");
    // Variants share a number, by their smallest clients, whoever was faster.
    says({3, 1}, {"rank 31", "same"});
    says({0}, {"rank 0", "same"});
    EXPECT_EQ(take(), "4@0 rank 0 / 4@1 3 rank 31 / 5@0:1 3 same");
    EXPECT_EQ(take(), "");
}

TEST_F(FolderTest, TheSlowFindTheirPlaceInWhatWasSent) {
    says({0, 1}, {"a", "b", "c", "d"});
    says({2}, {"a"});
    EXPECT_EQ(take(), "0@0:2 a / 1@0:1 b / 2@0:1 c / 3@0:1 d");
    // What has no equal shares the number of the line before it; what is behind all goes there.
    says({2}, {"odd", "c", "new"});
    says({0}, {"new"});
    EXPECT_EQ(take(), "0@2 odd / 2@2 c / 4@0 2 new");
    // A line that was sent under that number cannot stand there again: the rest goes behind.
    says({3}, {"a", "odd", "b"});
    EXPECT_EQ(take(), "0@3 a / 5@3 odd / 6@3 b");
}

TEST_F(FolderTest, NothingGoesOutFarBehindWhatWasSent) {
    Lines many;
    for (int i = 0; i <= 1001; ++i)
        many.push_back("line " + std::to_string(i));
    says({0}, many);
    folder.take();
    says({1}, {"line 0"});
    says({2}, {"line 1"});
    EXPECT_EQ(take(), "1@2 line 1 / 1002@1 line 0");
    says({3}, {"line 1000"}); // too far ahead
    EXPECT_EQ(take(), "1003@3 line 1000");
}

TEST_F(FolderTest, MoreOfAHalfLineStandsBehindIt) {
    folder.add(0, "ha", start, Folder::HALF);
    folder.add(0, "lf", start, Folder::HALF_REST);
    folder.add(1, "half", start);
    EXPECT_EQ(take(), "0@0:1 half");
    says({1}, {"x", "y"});
    EXPECT_EQ(take(), "1@1 x / 2@1 y");
    folder.add(0, " more", start, Folder::REST);
    says({0}, {"x"});
    folder.add(1, " more", start, Folder::REST); // of no half line
    EXPECT_EQ(take(), "0@0  more / 1@0 x / 3@1  more");
    // Where others share its number, too, theirs stay in their order.
    says({7, 8}, {"begin", "end"});
    folder.add(1, "begin", start, Folder::HALF);
    EXPECT_EQ(take(), "4@1 7:8 begin / 5@7:8 end");
    says({2, 3}, {"begin", "odd", "end"});
    folder.add(1, "odd", start, Folder::REST);
    EXPECT_EQ(take(), "4@2:3 begin / 4@1:3 odd / 5@2:3 end");
}

TEST_F(FolderTest, WaitsForThoseWhoComeAndForNobodyElse) {
    folder.await({0, 1, 2});
    says({0}, {"a", "b"});
    EXPECT_EQ(folder.due(), start + 200ms);
    says({1}, {"a"}, start + 150ms);
    EXPECT_EQ(folder.due(), start + 350ms);
    says({2}, {"a"}, start + 160ms);
    EXPECT_EQ(folder.due(), start + 180ms);
    EXPECT_EQ(shown(folder.takeDue(start + 180ms)), "0@0:2 a");
    for (int i = 1; i < 9; ++i)
        says({i == 2 ? 9 : i}, {"b"}, start + 100ms * i);
    EXPECT_EQ(folder.due(), start + 1s);
    // What has only just begun stays.
    says({0}, {"begun", "c"}, start + 950ms);
    EXPECT_EQ(shown(folder.takeDue(start + 1s)), "1@0:1 3:9 b");
    folder.answered(1);
    folder.answered(2);
    EXPECT_EQ(folder.due(), start + 970ms);
    EXPECT_EQ(shown(folder.takeDue(start + 1s)), "2@0 begun / 3@0 c");
    EXPECT_EQ(folder.due(), std::nullopt);
    // While others still come, a later line has a second of its own.
    const auto later = start + 10s;
    for (const int id : {0, 1, 2, 9, 8})
        says({id}, {"d"}, later + 100ms * (id % 7 * 2));
    says({0, 1}, {"e"}, later + 850ms);
    EXPECT_EQ(shown(folder.takeDue(later + 1s)), "4@0:2 8:9 d");
    says({2}, {"e"}, later + 1100ms);
    EXPECT_EQ(folder.due(), later + 1120ms);
    EXPECT_EQ(shown(folder.takeDue(later + 1120ms)), "5@0:2 e");
}

TEST_F(FolderTest, RowsStandBehindWhatClientsSaid) {
    folder.addRow({0, 1}, "1 client here", start);
    folder.addRow({2}, "1 client there", start, true);
    folder.addRow({0, 2}, "main", start);
    says({3}, {"said"});
    EXPECT_EQ(take(), "0@3 said / 1@0:1 1 client here / 1@2 1 client there / 2@0 2 main");
    says({0}, {"next"});
    const Data record = Folder::record(folder.take(), 7, "where");
    EXPECT_EQ(record.getConsoleID(), 7);
    EXPECT_EQ(record.numOfLine(), 4);
    EXPECT_EQ(record.numOfBE(), 1);
}

// Clients that say 100 common lines and, somewhere before them, lines of their own.
TEST_F(FolderTest, ManyExtraLinesCostNoMoreThanThemselves) {
    std::mt19937 random(5);
    std::geometric_distribution<int> own(0.98);
    int extras = 0;
    for (int id = 0; id < 64; ++id) {
        for (int i = 0; i < 100; ++i) {
            for (int left = own(random); left > 0; --left)
                says({id}, {"extra " + std::to_string(++extras)});
            says({id}, {"common " + std::to_string(i)});
        }
    }
    EXPECT_EQ(folder.take().lines.size(), static_cast<std::size_t>(100 + extras));
    EXPECT_GT(extras, 40);
}

// --- whatever is said, however it is cut into records, the console shows it as it was said

using Spoken = std::map<int, Lines>;

// What printed or kept output says of each client.
Spoken read(const std::string& output) {
    Spoken spoken;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        const std::size_t bar = line.find("| ");
        std::istringstream ids(line.substr(0, bar));
        for (std::string run; ids >> run;) {
            const std::size_t colon = run.find(':');
            const int first = std::stoi(run);
            const int last = colon == std::string::npos ? first : std::stoi(run.substr(colon + 1));
            for (int id = first; id <= last; ++id)
                spoken[id].push_back(line.substr(bar + 2));
        }
    }
    return spoken;
}

// Clients follow a program, each in its own time, with lines left out, lines of their own, and
// lines without end.
class World {
  public:
    World(unsigned seed, int steps) : random(seed), count(2 + pick(12)), texts(1 + pick(40)) {
        const int slow = pick(3) == 0 ? pick(count) : -1;
        for (int step = 0; step < steps && !testing::Test::HasFailure(); ++step) {
            now += std::chrono::milliseconds(pick(20));
            const int id = pick(count);
            if (id == slow && pick(50) != 0) continue;
            speak(id);
            const auto due = folder.due();
            if (due && *due <= now) show(folder.takeDue(now));
            if (pick(60) == 0) show(folder.take());
            if (pick(30) == 0) folder.await({pick(count)});
            if (pick(30) == 0) folder.answered(pick(count));
        }
        show(folder.take());
        EXPECT_TRUE(folder.empty());
        EXPECT_EQ(displayed, said);
        EXPECT_EQ(read(printed([&] { dump(kept, Parser::COLLAPSED); })), said);
    }

  private:
    std::mt19937 random;
    Clock::time_point now{};
    Folder folder;
    int count, texts;
    Spoken said, displayed;
    std::map<int, int> position, lastNumber;
    std::set<int> halves;
    Data kept;
    int highest = -1;

    int pick(int below) { return std::uniform_int_distribution<int>(0, below - 1)(random); }

    void speak(int id) {
        const int kind = pick(20);
        if (kind == 0) {
            folder.add(id, "half", now, Folder::HALF);
            said[id].push_back("half");
            halves.insert(id);
        } else if (halves.contains(id) && pick(2) == 0) {
            const std::string rest = "extra " + std::to_string(pick(3));
            const bool left = displayed[id].size() == said[id].size();
            const bool again = pick(3) == 0;
            folder.add(id, rest, now, again ? Folder::HALF_REST : Folder::REST);
            if (left)
                said[id].push_back(rest);
            else
                said[id].back() += rest;
            if (!again) halves.erase(id);
        } else if (kind == 1) {
            ClientSet several;
            const std::string text = "all " + std::to_string(pick(texts));
            for (int i = 0; i < count; ++i) {
                if (pick(2) == 0) continue;
                several.insert(i);
                line(i, text);
            }
            folder.add(several, text, now);
        } else {
            const std::string text =
                kind == 2   ? "rank " + std::to_string(id)
                : kind == 3 ? "extra " + std::to_string(pick(texts))
                            : "step " + std::to_string((position[id] += pick(9) ? 1 : 2) %
                                                       (texts < 20 ? texts : 5000));
            // Some say much at a time.
            for (int i = pick(200) == 0 ? pick(1500) : 0; i >= 0; --i) {
                const std::string each = text + (i % 7 ? "/" + std::to_string(i) : "");
                folder.add(id, each, now);
                line(id, each);
            }
        }
    }
    void line(int id, const std::string& text) {
        said[id].push_back(text);
        halves.erase(id);
    }

    static void dump(Data& data, Parser::Mode mode) {
        Parser parser;
        parser.setPlain();
        parser.dump(&data, mode, nullptr);
    }

    void show(Folder::Lines lines) {
        if (lines.empty()) return;
        int slot = -1, smallest = -1;
        std::set<std::string> inSlot;
        ClientSet clientsInSlot;
        for (const auto& line : lines.lines) {
            EXPECT_GE(line.number, slot);
            EXPECT_GE(line.number, highest - 1000);
            if (line.number != slot) {
                inSlot.clear();
                smallest = -1;
            }
            slot = line.number;
            EXPECT_TRUE(inSlot.insert(line.text).second) << line.text;
            if (slot > highest) {
                EXPECT_GT(line.clients.front(), std::exchange(smallest, line.clients.front()));
            }
            for (const int id : line.clients) {
                EXPECT_GE(line.number, lastNumber.try_emplace(id, -1).first->second);
                lastNumber[id] = line.number;
            }
        }
        highest = std::max(highest, slot);
        int length = 0;
        const auto packed = Folder::record(std::move(lines), 1, "cmd").pack(&length);
        Data record;
        record.unpack(packed.get(), length);
        const auto mode = static_cast<Parser::Mode>(pick(3));
        for (auto& [id, spoken] : read(printed([&] { dump(record, mode); })))
            displayed[id].insert(displayed[id].end(), spoken.begin(), spoken.end());
        kept.addData(&record);
        kept.merge();
        for (const auto& [id, before] : displayed) {
            ASSERT_LE(before.size(), said[id].size());
            ASSERT_TRUE(std::equal(before.begin(), before.end(), said[id].begin())) << id;
        }
    }
};

TEST(Folding, WhatNamesAClientIsWhatItSaidInItsOrder) {
    const long steps = soak("VEX_TEST_STEPS", 10000);
    for (int seed = 0; seed * 500 < steps; ++seed) {
        SCOPED_TRACE(seed);
        const World played(static_cast<unsigned>(seed), 500);
        if (testing::Test::HasFailure()) return;
    }
}

} // namespace
