#include "frontend/terminal/sessionlist.h"
#include "tests/support/testing.h"

namespace {

TEST(SessionList, TellsAnAgeInItsTwoLargestUnits) {
    const std::pair<long, const char*> ages[] = {
        {0, "0 s"},           {59, "59 s"},           {60, "1 min"},       {3599, "59 min"},
        {3600, "1 h 00 min"}, {86399, "23 h 59 min"}, {86400, "1 d 00 h"}, {183599, "2 d 02 h"}};
    for (const auto& [seconds, shown] : ages)
        EXPECT_EQ(SessionList::age(seconds), shown);
}

} // namespace
