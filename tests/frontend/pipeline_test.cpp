#include "frontend/pipeline.h"

#include <gtest/gtest.h>

namespace {

TEST(Pipeline, OnlyABarThatCanBeNothingElseIsAPipe) {
    const auto isProgram = [](const std::string& name) { return name == "grep" || name == "./my"; };
    const struct {
        const char* line;
        const char* command;
        const char* filter;
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
        {"where | nosuch", nullptr, nullptr},
        {"print x|grep", nullptr, nullptr},
        {"print x |grep", nullptr, nullptr},
        {"print x| grep", nullptr, nullptr},
        {"break f if a || grep", nullptr, nullptr},
        {"print \"a | grep b", nullptr, nullptr},
        {"print v[1 | grep]", nullptr, nullptr},
        {"print x \\| grep y", nullptr, nullptr},
        {"| grep x", nullptr, nullptr},
        {"where | ", nullptr, nullptr},
        {"where |", nullptr, nullptr},
        {"\\", nullptr, nullptr},
        {"", nullptr, nullptr},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.line);
        const auto found = Pipeline::parse(each.line, isProgram);
        ASSERT_EQ(found.has_value(), each.command != nullptr);
        if (!found) continue;
        EXPECT_EQ(found->command, each.command);
        EXPECT_EQ(found->filter, each.filter);
    }
}

} // namespace
