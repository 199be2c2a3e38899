#include "common/catalog.h"
#include "frontend/switchboard/groups.h"
#include "tests/support/testing.h"

namespace {

using enum GroupCommand::Type;
using Names = std::vector<std::string>;

class GroupsTest : public testing::Test {
  protected:
    Groups groups{8};

    Reply apply(GroupCommand::Type type, const std::string& base, const ClientSet& ids = {},
                const Names& names = {}, int from = 1, const std::string& current = "all") {
        GroupCommand command;
        command.setOpType(type);
        command.setBase(base);
        for (const std::string& name : names)
            command.addOperand(name);
        if (!ids.empty()) command.addOperands(ids);
        return groups.apply(command, from, current);
    }
    std::string members(const std::string& name, int from = 1) {
        const auto ids = groups.members(name, from);
        return ids ? ids->str() : "none";
    }
    // The list, or what is wrong with it.
    std::string list(const std::string& name = "") {
        const Reply reply = apply(QUERY, name);
        return reply.getErrCode() ? std::to_string(reply.getErrCode()) : reply.getRetInfo();
    }
};

TEST_F(GroupsTest, AnswersByTheTable) {
    const struct {
        GroupCommand::Type type;
        std::string base;
        ClientSet ids;
        Names names;
        int error; // 0: SUCCESS
        std::string members;
    } steps[] = {
        {ASSIGN, "g", {1, 3, 5}, {}, 0, "1 3 5 "},
        {ADD, "g", {4}, {}, 0, "1 3:5 "},
        {ASSIGN, "h", {0}, {"g"}, 0, "0:1 3:5 "},
        {DELETE, "h", {0, 7}, {"2"}, 0, "1 3:5 "},
        {ADD, "new", {2}, {"7"}, 0, "2 7 "},
        // Refused, and nothing changes.
        {ASSIGN, "g", {8}, {}, CMD_GROUP_CLIENT_ID, "1 3:5 "},
        {ASSIGN, "g", {-1, 2}, {}, CMD_GROUP_CLIENT_ID, "1 3:5 "},
        {DELETE, "g", {1, 99}, {}, CMD_GROUP_CLIENT_ID, "1 3:5 "},
        {ASSIGN, "g", {}, {"nosuch"}, CMD_GROUP_NOT_FOUND, "1 3:5 "},
        {ASSIGN, "g", {}, {"8"}, CMD_GROUP_NOT_FOUND, "1 3:5 "},
        {ASSIGN, "g", {}, {}, CMD_GROUP_ADD_EMPTY, "1 3:5 "},
        {ADD, "empty", {}, {}, CMD_GROUP_ADD_EMPTY, "none"},
        {DELETE, "nosuch", {1}, {}, CMD_GROUP_NOT_FOUND, "none"},
        {ASSIGN, "all", {1}, {}, CMD_GROUP_PREDEFINED, "0:7 "},
        {DELETE, "FILTERED", {1}, {}, CMD_GROUP_PREDEFINED, "none"},
        {ASSIGN, "3", {1}, {}, CMD_GROUP_NUMBER, "3 "},
        {ASSIGN, "3x", {1}, {}, CMD_GROUP_NUMBER, "none"},
        {ASSIGN, "", {1}, {}, CMD_GROUP_NAME, "none"},
        // The last member leaves: the group is deleted.
        {DELETE, "g", {}, {"all"}, CMD_GROUP_DELETE_EMPTY, "none"},
    };
    for (const auto& [type, base, ids, names, error, left] : steps) {
        const Reply reply = apply(type, base, ids, names);
        SCOPED_TRACE(base + " " + std::to_string(error));
        EXPECT_EQ(reply.getRetValue(), error == 0 ? Reply::SUCCESS : Reply::FAILED);
        EXPECT_EQ(reply.getErrCode(), error);
        const bool named = error == CMD_GROUP_ADD_EMPTY || error == CMD_GROUP_DELETE_EMPTY;
        EXPECT_EQ(reply.getRetInfo(), named ? base : "");
        EXPECT_EQ(members(base), left);
    }
}

TEST_F(GroupsTest, ListsReadablyAndTheDeadLeaveTheirGroups) {
    EXPECT_EQ(list(), "all (8): 0:7\n");
    apply(ASSIGN, "pair", {2, 3});
    apply(ASSIGN, "FILTERED", {3, 5});
    EXPECT_EQ(list(), "all (8): 0:7\nFILTERED (2): 3 5\npair (2): 2:3\n");
    EXPECT_EQ(list("pair"), "pair (2): 2:3\n");
    EXPECT_EQ(list("6"), "6 (1): 6\n");
    EXPECT_EQ(list("nosuch"), "511");
    EXPECT_EQ(list("06"), "511");
    groups.removeClient(3);
    groups.removeClient(5);
    EXPECT_EQ(list(), "all (6): 0:2 4 6:7\npair (1): 2\n");
    EXPECT_EQ(members("3"), "none");
    EXPECT_EQ(apply(ADD, "pair", {3}).getErrCode(), CMD_GROUP_CLIENT_ID);
    groups.removeClient(2);
    EXPECT_EQ(list(), "all (5): 0:1 4 6:7\n");
}

TEST_F(GroupsTest, FilteredBelongsToEachConsoleAndNeverFails) {
    const auto filter = [this](const ClientSet& ids, int from, const std::string& current) {
        return apply(ASSIGN, "FILTERED", ids, {}, from, current).getRetValue();
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

TEST_F(GroupsTest, PlacesAreEachConsolesUntilItsNextStat) {
    apply(ASSIGN, "PLACE2", {7});
    groups.setPlaces(1, {{2}, {0, 1, 3}}, "all");
    EXPECT_EQ(list(), "all (8): 0:7\nPLACE1 (1): 2\nPLACE2 (3): 0:1 3\n");
    EXPECT_EQ(members("PLACE2", 2), "7 ");
    // The group in which the console stands stays as it was until it leaves that.
    groups.setPlaces(1, {{0}, {1, 3}, {4}}, "PLACE2");
    EXPECT_EQ(members("PLACE1") + members("PLACE2") + members("PLACE3"), "0 0:1 3 4 ");
    groups.leftGroup(1);
    EXPECT_EQ(members("PLACE2"), "1 3 ");
    groups.setPlaces(2, {{0}, {1}}, "PLACE2");
    EXPECT_EQ(members("PLACE2", 2), "7 ");
    groups.leftGroup(2);
    EXPECT_EQ(members("PLACE2", 2), "1 ");
    groups.removeConsole(2);
    // A name that its user takes is the user's.
    EXPECT_EQ(apply(ADD, "PLACE2", {5}).getErrCode(), 0);
    EXPECT_EQ(members("PLACE2", 2), "1 3 5 ");
    groups.setPlaces(1, std::vector<ClientSet>(12, {6}), "all");
    EXPECT_EQ(members("PLACE9") + members("PLACE10"), "6 none");
    groups.removeClient(6);
    EXPECT_EQ(members("PLACE1") + members("PLACE2"), "nonenone");
}

} // namespace
