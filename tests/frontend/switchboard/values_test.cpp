#include "tests/frontend/switchboard/switchboardtest.h"

namespace {

class ValuesTest : public SwitchboardTest {};

TEST_F(ValuesTest, RowsBecomeGroupsOfTheNameGiven) {
    const struct {
        std::string text, typed;
    } lines[] = {
        {"vex values a[1]  -g\tROW ", "type 0 vex-values a[1]"},
        {"vex values a -gx", "type 0 vex-values a -gx"},
        {"vex values -g", "type 0 vex-values -g"},
        {"vex values a -g 1x",
         "1 0@0 '1x' is no name for groups: letters, digits and _, a letter first / 1 FAILED"},
        {"vex values  -g x", "type 0 vex-values -g x"},
        {"vex values", "1 0@0 what is to be evaluated? vex values EXPR [-g NAME] / 1 FAILED"},
    };
    for (const auto& [text, typed] : lines) {
        EXPECT_EQ(types(1, "0", text), typed) << text;
        answers({0}, "value\t\t1\t\ttrue\n");
        filtered();
        pass(1s);
    }
    types(1, "all", "vex values a -g ROW");
    answers({0, 2}, "value\t1.0\t1\t\t1\n");
    answers({1}, "value\t\t1\t\ttrue\n");
    answers({3}, "4");
    filtered();
    EXPECT_EQ(board.groups().members("ROW1", 1)->str(), "0 2 ");
    EXPECT_EQ(board.groups().members("ROW3", 1)->str(), "1 ");
    EXPECT_FALSE(board.groups().members("ROW1", 2));
    // Those of stat stay, and its own go.
    types(1, "all", "vex stat -i");
    answers({0, 1, 2, 3}, "#0  f () at f.c:1\n");
    filtered();
    types(1, "1", "vex values a -g ROW");
    answers({1}, "4");
    EXPECT_EQ(board.groups().members("ROW1", 1)->str(), "1 ");
    EXPECT_FALSE(board.groups().members("ROW2", 1));
    EXPECT_EQ(board.groups().members("PLACE1", 1)->str(), "0:3 ");
}

} // namespace
