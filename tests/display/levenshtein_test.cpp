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

} // namespace
