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

} // namespace
