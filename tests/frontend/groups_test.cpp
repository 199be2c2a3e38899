#include "common/catalog.h"
#include "frontend/groups.h"

#include <gtest/gtest.h>

namespace {

constexpr int console = 1;

struct Operation {
    GroupCommand::Type type;
    std::string base;
    ClientSet ids;
    std::vector<std::string> names = {};
};

class GroupsTest : public testing::Test {
  protected:
    Groups groups{8};

    Reply apply(const Operation& what, int from = console, const std::string& current = "all") {
        GroupCommand command;
        command.setOpType(what.type);
        command.setBase(what.base);
        for (const std::string& name : what.names)
            command.addOperand(name);
        if (!what.ids.empty()) command.addOperands(what.ids);
        return groups.apply(command, from, current);
    }
    std::string members(const std::string& name, int from = console) {
        const auto ids = groups.members(name, from);
        return ids ? ids->str() : "none";
    }
    std::string list(const std::string& name = "") {
        return apply({GroupCommand::QUERY, name, {}}).getRetInfo();
    }
};

TEST_F(GroupsTest, AnswersByTheTable) {
    const auto assign = GroupCommand::ASSIGN, add = GroupCommand::ADD, drop = GroupCommand::DELETE;
    const struct {
        Operation what;
        int error; // 0: SUCCESS
        std::string members;
    } steps[] = {
        {{assign, "g", {1, 3, 5}}, 0, "1 3 5 "},
        {{add, "g", {4}}, 0, "1 3:5 "},
        {{assign, "h", {0}, {"g"}}, 0, "0:1 3:5 "},
        {{drop, "h", {0, 7}, {"2"}}, 0, "1 3:5 "},
        {{add, "new", {2}, {"7"}}, 0, "2 7 "},
        // Refused, and nothing changes.
        {{assign, "g", {8}}, CMD_GROUP_CLIENT_ID, "1 3:5 "},
        {{assign, "g", {-1, 2}}, CMD_GROUP_CLIENT_ID, "1 3:5 "},
        {{drop, "g", {1, 99}}, CMD_GROUP_CLIENT_ID, "1 3:5 "},
        {{assign, "g", {}, {"nosuch"}}, CMD_GROUP_NOT_FOUND, "1 3:5 "},
        {{assign, "g", {}, {"8"}}, CMD_GROUP_NOT_FOUND, "1 3:5 "},
        {{assign, "g", {}}, CMD_GROUP_ADD_EMPTY, "1 3:5 "},
        {{add, "empty", {}}, CMD_GROUP_ADD_EMPTY, "none"},
        {{drop, "nosuch", {1}}, CMD_GROUP_NOT_FOUND, "none"},
        {{assign, "all", {1}}, CMD_GROUP_PREDEFINED, "0:7 "},
        {{drop, "FILTERED", {1}}, CMD_GROUP_PREDEFINED, "none"},
        {{assign, "3", {1}}, CMD_GROUP_NUMBER, "3 "},
        {{assign, "3x", {1}}, CMD_GROUP_NUMBER, "none"},
        {{assign, "", {1}}, CMD_GROUP_NAME, "none"},
        // The last member leaves: the group is deleted.
        {{drop, "g", {}, {"all"}}, CMD_GROUP_DELETE_EMPTY, "none"},
    };
    for (const auto& step : steps) {
        const Reply reply = apply(step.what);
        SCOPED_TRACE(step.what.base + " " + std::to_string(step.error));
        EXPECT_EQ(reply.getRetValue(), step.error == 0 ? Reply::SUCCESS : Reply::FAILED);
        EXPECT_EQ(reply.getErrCode(), step.error);
        if (step.error == CMD_GROUP_ADD_EMPTY || step.error == CMD_GROUP_DELETE_EMPTY) {
            EXPECT_EQ(reply.getRetInfo(), step.what.base);
        }
        EXPECT_EQ(members(step.what.base), step.members);
    }
}

TEST_F(GroupsTest, ListsReadably) {
    EXPECT_EQ(list(), "all (8): 0:7\n");
    apply({GroupCommand::ASSIGN, "odd", {1, 3, 5, 7}});
    apply({GroupCommand::ASSIGN, "FILTERED", {2, 3}});
    EXPECT_EQ(list(), "all (8): 0:7\nFILTERED (2): 2:3\nodd (4): 1 3 5 7\n");
    EXPECT_EQ(list("odd"), "odd (4): 1 3 5 7\n");
    EXPECT_EQ(list("6"), "6 (1): 6\n");
    EXPECT_EQ(apply({GroupCommand::QUERY, "nosuch", {}}).getErrCode(), CMD_GROUP_NOT_FOUND);
    EXPECT_EQ(apply({GroupCommand::QUERY, "06", {}}).getErrCode(), CMD_GROUP_NOT_FOUND);
}

TEST_F(GroupsTest, FilteredBelongsToEachConsoleAndNeverFails) {
    const auto filter = [this](const ClientSet& ids, int from, const std::string& current) {
        return apply({GroupCommand::ASSIGN, "FILTERED", ids}, from, current).getRetValue();
    };
    EXPECT_EQ(filter({1, 2, 99}, 1, "all"), Reply::SUCCESS);
    EXPECT_EQ(filter({5}, 2, "all"), Reply::SUCCESS);
    EXPECT_EQ(members("FILTERED", 1), "1:2 ");
    EXPECT_EQ(members("FILTERED", 2), "5 ");
    EXPECT_EQ(members("FILTERED", 3), "none");
    // Nobody spoke: a console that stands in it keeps its ground.
    EXPECT_EQ(filter({}, 1, "FILTERED"), Reply::SUCCESS);
    EXPECT_EQ(members("FILTERED", 1), "1:2 ");
    EXPECT_EQ(filter({}, 1, "all"), Reply::SUCCESS);
    EXPECT_EQ(members("FILTERED", 1), "none");
    groups.removeConsole(2);
    EXPECT_EQ(members("FILTERED", 2), "none");
}

TEST_F(GroupsTest, TheDeadLeaveTheirGroups) {
    apply({GroupCommand::ASSIGN, "pair", {2, 3}});
    apply({GroupCommand::ASSIGN, "FILTERED", {3}});
    groups.removeClient(3);
    EXPECT_EQ(members("all"), "0:2 4:7 ");
    EXPECT_EQ(members("pair"), "2 ");
    EXPECT_EQ(members("FILTERED"), "none");
    EXPECT_EQ(members("3"), "none");
    EXPECT_EQ(apply({GroupCommand::ADD, "pair", {3}}).getErrCode(), CMD_GROUP_CLIENT_ID);
    groups.removeClient(2);
    EXPECT_EQ(members("pair"), "none");
    EXPECT_EQ(list(), "all (6): 0:1 4:7\n");
}

} // namespace
