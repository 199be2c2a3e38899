#include "common/data.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <sstream>
#include <string>
#include <vector>

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
        for (std::size_t i = 0; i < lines.size(); ++i) {
            for (std::size_t j = i + 1; j < lines.size();) {
                if (lines[j].content != lines[i].content) {
                    ++j;
                    continue;
                }
                for (int id : lines[j].clients)
                    lines[i].add(id);
                lines.erase(lines.begin() + static_cast<std::ptrdiff_t>(j));
            }
        }
    }
}

std::string described(int number, const ClientSet& clients, const std::string& content, int min,
                      int max, int state) {
    std::ostringstream out;
    out << number << ' ' << content << ' ' << min << ' ' << max << ' ' << state << ": "
        << clients.str() << '\n';
    return out.str();
}

std::string described(const Data& data) {
    std::string text;
    for (const auto& [number, slot] : data.slots()) {
        for (const auto& line : slot.lines)
            text += described(number, line->clients(), line->getContent(), line->getMinBEId(),
                              line->getMaxBEId(), line->getState());
    }
    return text;
}

std::string described(const Model& model) {
    std::string text;
    for (const auto& [number, lines] : model) {
        for (const ModelLine& l : lines)
            text += described(number, l.clients, l.content, l.min, l.max, l.state);
    }
    return text;
}

struct Mix {
    unsigned seed;
    int texts;    // how many different ones
    int lowestId; // negative ids give lines a rank of their own
    int perMerge; // lines between two merges
};

void foldOneByOne(const Mix& mix) {
    std::mt19937 random(mix.seed);
    const auto pick = [&](int below) {
        return static_cast<int>(random() % static_cast<unsigned>(below));
    };
    // These two have the same key.
    ASSERT_EQ(hashStr("ab"), hashStr("b]"));
    std::vector<std::string> texts = {"ab", "b]", ""};
    while (static_cast<int>(texts.size()) < mix.texts)
        texts.push_back("text " + std::to_string(texts.size()));
    Data kept;
    Model model;
    for (int round = 0; round < 60; ++round) {
        Data arrived;
        for (int i = pick(mix.perMerge); i >= 0; --i) {
            const int number = pick(3) * 1000;
            ModelLine line;
            line.content = texts[static_cast<std::size_t>(pick(mix.texts))];
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
        ASSERT_EQ(described(kept), described(model)) << "round " << round;
    }
}

TEST(Data, MergeEqualsFoldingOneByOne) {
    for (const Mix& mix : {Mix{1, 4, 0, 6}, {2, 40, 0, 60}, {3, 12, -10, 6}, {4, 9, -2, 3}})
        foldOneByOne(mix);
}

void fill(Data& data, int from, int to) {
    for (int i = from; i < to; ++i) {
        Line line(i, Line::EQUAL);
        data.addLine(&line);
    }
}

TEST(Data, TruncateReleasesTheOldestTenth) {
    Data data;
    fill(data, 0, 40);
    // A tenth of nine is none, and so it is while all lines fit.
    for (const auto& [limit, released] : {std::pair{9, 0}, {41, 0}, {25, 2}, {38, 5}, {36, 5}}) {
        data.truncate(limit);
        EXPECT_EQ(data.getTruncated(), released) << limit;
        EXPECT_EQ(data.slots().begin()->first, released);
        EXPECT_EQ(data.numOfLine(), 40);
    }
    // The count outlives the output, so that the next one loses its lines from there on.
    data.clearLine();
    fill(data, 3, 16);
    data.truncate(11);
    EXPECT_EQ(data.slots().size(), 12u);
    EXPECT_FALSE(data.slots().contains(5));
}

TEST(HashStr, IsModuloTwoToThe64) {
    std::uint64_t h = 0;
    for (int i = 0; i < 64; ++i)
        h = h * 5 + 0xfe;
    EXPECT_EQ(hashStr(std::string(64, '\xfe').c_str()), h);
}

} // namespace
