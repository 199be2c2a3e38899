#include "frontend/switchboard/pipeline.h"
#include "tests/support/testing.h"

namespace {

TEST(Pipeline, OnlyABarThatCanBeNothingElseIsAPipe) {
    struct : ProgramLookup {
        bool isProgram(const std::string& name) override {
            return name == "grep" || name == "./my";
        }
    } programs;
    const struct {
        const char *line, *command, *filter;
    } cases[] = {
        {"where | grep main", "where", "grep main"},
        {"  | grep x", "", "grep x"},
        {"where  |  ./my -x | sort", "where", "./my -x | sort"},
        {"where | grep a|sort", "where", "grep a|sort"},
        {"where | grep;ls", "where", "grep;ls"},
        {"print a | b | grep x", "print a | b", "grep x"},
        {"print \"a | grep b\" | grep c", "print \"a | grep b\"", "grep c"},
        {"print 'it\\'s | grep' | grep c", "print 'it\\'s | grep'", "grep c"},
        {"print (a | grep) | grep c", "print (a | grep)", "grep c"},
        {"print x) | grep c", "print x)", "grep c"},
    };
    for (const auto& [line, command, filter] : cases) {
        const auto found = Pipeline::parse(line, programs);
        ASSERT_TRUE(found) << line;
        EXPECT_EQ(found->command, command);
        EXPECT_EQ(found->filter, filter);
    }
    for (const char* line : {"where | nosuch", "print x|grep", "print x |grep", "print x| grep",
                             "break f if a || grep", "print \"a | grep b", "print v[1 | grep]",
                             "print x \\| grep y", "| grep x", "where | ", "where |", "\\", ""})
        EXPECT_FALSE(Pipeline::parse(line, programs)) << line;
}

TEST(Pipeline, OfALongLineFewNamesAreLookedUp) {
    struct : ProgramLookup {
        int calls = 0;
        bool isProgram(const std::string& name) override {
            ++calls;
            return name == "grep";
        }
    } programs;
    const auto bars = [](int count, int names) {
        std::string line = "print x";
        for (int bar = 0; bar < count; ++bar)
            line += " | n" + std::to_string(bar % names);
        return line;
    };
    const struct {
        std::string line;
        bool isPipe;
        int calls;
    } cases[] = {
        {bars(15, 15) + " | grep y", true, 16},
        {bars(16, 16) + " | grep y", false, 16},
        {bars(100'000, 15) + " | grep y", true, 16},
        {bars(100'000, 100'000), false, 16},
        {bars(100'000, 1) + std::string(1'000'000, ' '), false, 1},
    };
    for (const auto& [line, isPipe, calls] : cases) {
        programs.calls = 0;
        EXPECT_EQ(Pipeline::parse(line, programs).has_value(), isPipe) << line.size();
        EXPECT_EQ(programs.calls, calls) << line.size();
    }
}

} // namespace
