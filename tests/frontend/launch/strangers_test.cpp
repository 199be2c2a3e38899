#include "frontend/launch/strangers.h"
#include "tests/support/testing.h"

namespace {

// Who comes, speaks (in capitals) or goes, by the letter of the address ("." is local), and whom
// that drops, by the place in the order of coming.
TEST(Strangers, MakeRoomForOthers) {
    const struct {
        const char *name, *came, *spoke;
        std::vector<Strangers::Number> dropped;
    } cases[] = {
        {"the oldest silent one of a crowded address", "aaaab", "", {1}},
        {"those that have spoken are no crowd", "aaaaa", "23", {}},
        {"nobody for the sake of another address", "aaabbb", "", {}},
        {"the oldest silent one of the largest address when all is full", "aaabbbcc", "1", {4, 2}},
        {"one that has spoken when all have, not the newest", "aabbbcz", "123456", {3}},
        {"local ones have a room of their own", "aaabbb..", "", {}},
        {"and take none from others", "......", "", {1, 2}},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        Strangers strangers({.local = 4, .remote = 6, .silent = 3});
        std::vector<Strangers::Number> dropped;
        for (const char source : std::string(each.came)) {
            const auto number = strangers.come(source == '.' ? "" : std::string(1, source));
            if (std::string(each.spoke).find(static_cast<char>('0' + number)) != std::string::npos)
                strangers.spoke(number);
            if (const auto surplus = strangers.surplus()) {
                dropped.push_back(*surplus);
                strangers.leave(*surplus);
            }
        }
        EXPECT_EQ(dropped, each.dropped);
        // All from elsewhere can go, nobody else.
        std::size_t left = 0;
        while (const auto next = strangers.next()) {
            strangers.leave(*next);
            ++left;
        }
        const std::string came = each.came;
        if (came.find('.') == came.npos) {
            EXPECT_EQ(left + dropped.size(), came.size());
        }
        EXPECT_EQ(strangers.surplus(), std::nullopt);
    }
}

} // namespace
