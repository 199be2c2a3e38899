#include "display/closeness.h"
#include "display/levenshtein.h"
#include "tests/support/testing.h"

namespace {

// By the matrix, of which one row is kept.
int matrixDistance(const std::string& a, const std::string& b) {
    std::vector<int> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (std::size_t i = 0; i < a.size(); ++i) {
        int diagonal = row[0]++;
        for (std::size_t j = 0; j < b.size(); ++j) {
            const int replaced = diagonal + (a[i] == b[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({replaced, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

TEST(Levenshtein, EqualsTheMatrix) {
    std::mt19937 random(7);
    const auto expectExact = [](const std::string& a, const std::string& b) {
        EXPECT_EQ(Levenshtein::Distance(a, b), matrixDistance(a, b)) << a << " / " << b;
        EXPECT_EQ(Levenshtein::Distance(b, a), matrixDistance(a, b)) << a << " / " << b;
    };
    const auto pick = [&](std::size_t below) { return random() % below; };
    const auto text = [&](std::size_t length, std::size_t letters) {
        std::string s(length, '\0');
        for (char& c : s)
            c = static_cast<char>('\xfe' + pick(letters)); // around the sign of a char
        return s;
    };
    // Both ends differ, so that no common head or tail shortens the texts: every length is met.
    for (std::size_t a : {1, 2, 62, 63, 64, 65, 66, 127, 128, 129, 192, 193, 300})
        for (std::size_t b : {1, 63, 64, 65, 128, 129, 257})
            for (std::size_t letters : {2, 4, 30})
                expectExact('<' + text(a - 1, letters) + '1', '>' + text(b - 1, letters) + '2');
    // Texts that are a few edits apart, as lines of output are.
    for (int round = 0; round < 300; ++round) {
        const std::string one = text(200, 3);
        std::string other = one;
        for (std::size_t edits = pick(12); edits > 0; --edits)
            other.replace(pick(180), pick(3), "xy", pick(3));
        expectExact(one, other);
    }
    expectExact("ab", "ba"); // a head that equals the other tail is none
    EXPECT_EQ(Levenshtein::Distance("", text(5000, 20)), 5000);
    EXPECT_EQ(Levenshtein::Distance({"a\0b", 3}, {"a\0c", 3}), 1);
}

TEST(Closeness, JudgesAsTheMatrix) {
    std::mt19937 random(3);
    const auto pick = [&](std::size_t below) { return random() % below; };
    const auto letter = [&](std::size_t letters) {
        return static_cast<char>('\xf8' + pick(letters));
    };
    Closeness closeness;
    std::size_t verdicts[3] = {};
    for (int round = 0; round < 6000; ++round) {
        // Lengths on both sides of what a word holds, its band, and the walk along diagonals.
        const std::size_t letters = 2 + pick(20);
        std::string leader(round % 500 == 0 ? 1250 + pick(100)
                           : pick(4)        ? pick(pick(4) ? 180 : 400)
                                            : pick(12),
                           '\0');
        for (char& c : leader)
            c = letter(letters);
        closeness.lead(leader);
        for (int variant = 0; variant < 4; ++variant) {
            std::string other = leader;
            for (std::size_t edits = pick(leader.size() / 4 + 2); edits > 0; --edits) {
                const std::size_t at = pick(other.size() + 1);
                other.replace(at, pick(2), pick(3), letter(letters));
            }
            const std::size_t distance = static_cast<std::size_t>(matrixDistance(leader, other));
            const std::size_t longer = std::max(leader.size(), other.size());
            const Line::State expected = distance == 0           ? Line::EQUAL
                                         : 5 * distance < longer ? Line::SIMILAR
                                                                 : Line::DIFFERENT;
            ASSERT_EQ(closeness.compare(other), expected) << leader.size() << ' ' << distance;
            ++verdicts[expected];
        }
    }
    EXPECT_GT(*std::min_element(verdicts, verdicts + 3), 1000u);
    // What is left between the ends decides whether texts are compared at all.
    const std::string end(100000, 'e');
    for (const auto& [left, expected] : {std::pair{8192, Line::SIMILAR}, {8193, Line::DIFFERENT}}) {
        const std::string middle(static_cast<std::size_t>(left), 'a');
        const std::string leader = end + middle;
        closeness.lead(leader);
        EXPECT_EQ(closeness.compare(end + std::string(middle.size(), 'b')), expected);
    }
}

} // namespace
