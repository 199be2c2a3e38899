#include "frontend/launch/strangers.h"
#include "tests/support/testing.h"

namespace {

// Who comes, speaks (in capitals) or goes, by the letter of the address ("." is local), and whom
// that drops, by the place in the order of coming.
TEST(Strangers, MakeRoomForOthers) {
    const struct {
        const char* name;
        std::string came, spoke;
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
        for (const char source : each.came) {
            const auto number = strangers.come(source == '.' ? "" : std::string(1, source));
            if (each.spoke.find(std::to_string(number)) != each.spoke.npos) strangers.spoke(number);
            if (const auto surplus = strangers.surplus()) {
                dropped.push_back(*surplus);
                strangers.leave(*surplus);
            }
        }
        EXPECT_EQ(dropped, each.dropped);
        // All from elsewhere can go, nobody else.
        std::size_t gone = dropped.size();
        for (; const auto next = strangers.next(); ++gone)
            strangers.leave(*next);
        if (each.came.find('.') == each.came.npos) {
            EXPECT_EQ(gone, each.came.size());
        }
        EXPECT_EQ(strangers.surplus(), std::nullopt);
    }
}

} // namespace
