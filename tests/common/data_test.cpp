#include "common/data.h"
#include "common/frame.h"
#include "common/unixsock.h"
#include "tests/support/testing.h"

namespace {

// A line by the letter of its rules, one client at a time.
struct ModelLine {
    ClientSet clients;
    std::string content;
    int min = 0, max = 0;
    Line::State state = Line::EQUAL;

    void add(int id) {
        clients.insert(id);
        if (max < id)
            max = id;
        else if (min > id)
            min = id;
    }
};

using Model = std::map<int, std::vector<ModelLine>>;

void merge(Model& model) {
    for (auto& [number, lines] : model) {
        std::stable_sort(lines.begin(), lines.end(),
                         [](const ModelLine& a, const ModelLine& b) { return a.min < b.min; });
        for (std::size_t i = 0; i < lines.size(); ++i)
            for (std::size_t j = i + 1; j < lines.size(); ++j) {
                if (lines[j].content != lines[i].content) continue;
                for (int id : lines[j].clients)
                    lines[i].add(id);
                lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(j--));
            }
    }
}

std::string described(const Data& data) {
    std::ostringstream out;
    for (const auto& [number, slot] : data.slots())
        for (const Line& l : slot.lines)
            out << number << ' ' << l.getContent() << ' ' << l.getMinBEId() << ' ' << l.getMaxBEId()
                << ' ' << l.getState() << ": " << l.clients().str() << '\n';
    return out.str();
}

std::string described(const Model& model) {
    std::ostringstream out;
    for (const auto& [number, lines] : model)
        for (const auto& [clients, content, min, max, state] : lines)
            out << number << ' ' << content << ' ' << min << ' ' << max << ' ' << state << ": "
                << clients.str() << '\n';
    return out.str();
}

TEST(Data, MergeEqualsFoldingOneByOne) {
    ASSERT_EQ(hashStr("ab"), hashStr("b]"));
    ASSERT_EQ(hashStr("\xfe"), 0xfeu); // bytes have no sign
    const struct {
        unsigned seed, texts; // how many different ones
        int lowestId;         // negative ids give lines a rank of their own
        unsigned perMerge;    // lines between two merges
    } mixes[] = {{1, 4, 0, 6}, {2, 40, 0, 60}, {3, 12, -10, 6}, {4, 9, -2, 3}};
    for (const auto& mix : mixes) {
        std::mt19937 random(mix.seed);
        const auto pick = [&](unsigned below) { return static_cast<int>(random() % below); };
        Data kept;
        Model model;
        for (int round = 0; round < 60; ++round) {
            Data arrived;
            for (int i = pick(mix.perMerge); i >= 0; --i) {
                const int number = pick(3) * 1000, text = pick(mix.texts);
                ModelLine line;
                // The first two have the same key.
                if (text < 2)
                    line.content = text == 0 ? "ab" : "b]";
                else
                    line.content = std::string(static_cast<std::size_t>(text - 2), 'x');
                line.state = static_cast<Line::State>(pick(3));
                Line real(number, line.state);
                for (int n = pick(4); n > 0; --n) {
                    const int id = mix.lowestId + pick(20);
                    line.add(id);
                    real.addBE(id);
                }
                real.setContent(line.content);
                real.generateKey();
                arrived.addLine(&real);
                model[number].push_back(line);
            }
            // Lines of one record come slot by slot, in the order in which they were added.
            kept.addData(&arrived);
            if (pick(4) == 0) continue;
            kept.merge();
            merge(model);
            ASSERT_EQ(described(kept), described(model)) << mix.seed << " round " << round;
        }
    }
}

// Long texts and sets over the ends of what is read at once.
TEST(Data, IsReadInPieces) {
    std::mt19937 random(5);
    const auto pick = [&](unsigned below) { return static_cast<int>(random() % below); };
    Data sent;
    for (int number = 0; number < 12; ++number) {
        Line line(number, Line::EQUAL);
        for (int i = 0, at = 0; i < 40000; ++i)
            line.addBE(number % 3 == 0 ? at += 1 + pick(3) : number % 3 == 1 ? i : i * 1000);
        line.setContent(std::string(static_cast<std::size_t>(pick(2) ? pick(900000) : 80), 'x'));
        line.generateKey();
        sent.addLine(&line);
    }
    int length = 0;
    const auto body = sent.pack(&length);
    const std::string frame = Frame::wrap(body.get(), length) + "behind";
    int ends[2];
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    UnixSocket near(ends[0]), far(ends[1]);
    std::thread writer([&] {
        for (std::size_t at = 0; at < frame.size();) {
            const std::size_t size = std::min<std::size_t>(frame.size() - at, 1 + random() % 70000);
            near.write(frame.data() + at, static_cast<int>(size));
            at += size;
        }
    });
    Data arrived;
    arrived.recv(&far);
    char rest[6];
    far.read(rest, sizeof rest);
    writer.join();
    EXPECT_EQ(std::string(rest, sizeof rest), "behind");
    EXPECT_EQ(described(arrived), described(sent));
}

TEST(Data, TruncateReleasesTheOldestTenth) {
    Data data;
    const auto fill = [&](int from, int to) {
        for (Line line(from, Line::EQUAL); from < to; line = Line(++from, Line::EQUAL))
            data.addLine(&line);
    };
    fill(0, 40);
    // A tenth of nine is none, and so it is while all lines fit.
    for (const auto& [limit, released] : {std::pair{9, 0}, {41, 0}, {25, 2}, {38, 5}, {36, 5}}) {
        data.truncate(limit);
        EXPECT_EQ(data.getTruncated(), released) << limit;
        EXPECT_EQ(data.slots().begin()->first, released);
        EXPECT_EQ(data.numOfLine(), 40);
    }
    // The count outlives the output, so that the next one loses its lines from there on.
    data.clearLine();
    fill(3, 16);
    data.truncate(11);
    EXPECT_EQ(data.slots().size(), 12u);
    EXPECT_FALSE(data.slots().contains(5));
}

// What the console keeps: records of so many lines each, behind the number that truncate has left.
TEST(Data, BoundKeepsTwiceAsManySlots) {
    std::mt19937 random(3);
    const auto pick = [&](int below) { return static_cast<int>(random() % unsigned(below)); };
    Data data, byTheTenth;
    int end = 0, last = 0;
    for (int round = 0; round < 400; ++round) {
        if (round == 300) {
            // The next output is not kept whole because much was released of this one.
            data.clearLine();
            end = 0;
        }
        for (int lines = pick(round % 10 ? 30 : 400); lines > 0; --lines) {
            last = end;
            for (Data* each : {&data, &byTheTenth})
                each->addLine(Line(last, Line::EQUAL));
            end += pick(20) ? 1 : 50;
        }
        data.truncate(40);
        data.bound(40);
        for (int before = -1; round < 300 && before != byTheTenth.getTruncated();) {
            const bool once = before == -1;
            before = byTheTenth.getTruncated();
            if (once || byTheTenth.slots().size() > 80) byTheTenth.truncate(40);
        }
        ASSERT_LE(data.slots().size(), 80u);
        if (round >= 300) continue;
        ASSERT_EQ(data.getTruncated(), byTheTenth.getTruncated()) << round;
        ASSERT_EQ(data.slots().size(), byTheTenth.slots().size()) << round;
    }
    EXPECT_EQ(data.slots().rbegin()->first, last);
    // However large the numbers are.
    for (int i = 0; i < 100; ++i)
        data.addLine(Line(i * 20000000, Line::EQUAL));
    data.bound(40);
    EXPECT_EQ(data.slots().begin()->first, 20 * 20000000);
}

} // namespace
