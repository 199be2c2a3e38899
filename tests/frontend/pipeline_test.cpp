#include "frontend/pipeline.h"

#include <gtest/gtest.h>

namespace {

TEST(Pipeline, OnlyABarThatCanBeNothingElseIsAPipe) {
    const auto isProgram = [](const std::string& name) { return name == "grep" || name == "./my"; };
    const struct {
        std::string line, command = "", filter = ""; // no command: no pipe
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
        {"where | nosuch"},
        {"print x|grep"},
        {"print x |grep"},
        {"print x| grep"},
        {"break f if a || grep"},
        {"print \"a | grep b"},
        {"print v[1 | grep]"},
        {"print x \\| grep y"},
        {"| grep x"},
        {"where | "},
        {"where |"},
        {"\\"},
        {""},
    };
    for (const auto& [line, command, filter] : cases) {
        const auto found = Pipeline::parse(line, isProgram);
        EXPECT_EQ(found ? found->command : "", command) << line;
        EXPECT_EQ(found ? found->filter : "", filter) << line;
    }
}

} // namespace
