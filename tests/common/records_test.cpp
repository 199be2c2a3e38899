#include "common/command.h"
#include "common/data.h"
#include "common/framereader.h"
#include "common/reply.h"
#include "tests/support/wire.h"

namespace {

TEST(CommandRecord, Wire) {
    Command command;
    command.init(7, "all", Command::CLIENT, "where", -1);
    const std::string where = "00000007 00000002 00000004 'all' 00 00000006 00000006 'where' 00";
    EXPECT_EQ(packed(command), bytes(where));
    expectWire<Command>({
        where,
        "00000001 0000000a 00000002 'g' 00 00000000",
        "00000001 00000007 00000002 'g' 00 00000003 00000003 'a' 00 'b'",
    });
    expectRefused<Command>({
        "00000001 00000002 00000002 'g' 00 ffffffff",
        "00000001 00000002 00000002 'g' 00 00000003 00000002 'abc'", // the two lengths differ
        "00000001 00000002 00000002 'g' 00 7fffffff 7fffffff 'abc'",
        "00000001 00000002 00000001 'g' 00000000", // a group without its NUL
        "00000001 00000002 80000000 'g' 00 00000000",
    });
}

TEST(GroupRecord, Wire) {
    GroupCommand group;
    group.setOpType(GroupCommand::ASSIGN);
    group.setBase("g1");
    group.addOperand(3);
    group.addOperand("g0");
    group.addOperand(1);
    const std::string ids =
        "00000001 00000003 'g1' 00 00000001 00000003 'g0' 00 00000002 00000001 00000003";
    EXPECT_EQ(packed(group), bytes(ids));
    expectWire<GroupCommand>({ids});
    expectRefused<GroupCommand>({
        "00000001 00000002 'g' 00 00000000 40000001 00000003",
        "00000001 00000002 'g' 00 ffffffff 00000000",
        "00000001 00000002 'g' 00 20000000 00000002 'n' 00 00000000",
    });
}

TEST(ReplyRecord, Wire) {
    Reply reply(Reply::FAILED, 511);
    reply.addRetInfo("g1: ");
    reply.addRetInfo("0:3");
    const std::string failed = "ffffffff 000001ff 00000008 'g1: 0:3' 00";
    EXPECT_EQ(packed(reply), bytes(failed));
    expectWire<Reply>({failed, "00000000 00000000 00000001 00"});
    expectRefused<Reply>({"00000000 00000000 00000001 'x'", "00000000 00000000 00000000"});
}

TEST(DataRecord, Wire) {
    expectWire<Data>({
        // Slots that hold no lines are counted only.
        "ffffffff 00000005 00000007 00000004 "
        "00000002 00000000 00000002 0000000000000001 00000002 'a' 00 00000061 "
        "00000000 00000001 00000004 00000001 00 00000000 "
        "fffffffe 00000001 00000003 00000001 00000002 00000003 'ab' 00 00000247 "
        "00000004 00000004 00000000 00000004 'run' 00",
    });
    // How many slots, lines of a slot, numbers, clients and bytes there are.
    for (const std::string slots :
         {"ffffffff", "7fffffff", "00000002 00000001 00000000 00000000 00000001 00 00000000",
          "00000001 7fffffff 00000000 00000000 00000001 00 00000000",
          "00000002 ffffffff ffffffff 00000000 00000000 00000001 00",
          "00000001 00000001 ffffffff 00000000 00000001 00 00000000",
          "00000001 00000001 7fffffff 00000000 00000001 00 00000000",
          "00000001 00000001 00000000 ffffffff 00000001 00 00000000",
          "00000001 00000001 00000000 00000000 00000000 00000000",
          "00000001 00000001 00000000 00000000 00000002 'ab' 00000000",
          "00000001 00000001 00000000 00000000 7ffffff0 'ab' 00 00000000"})
        expectRefused<Data>(
            {"00000000 00000000 00000001 " + slots + " 00000001 00000000 00000000 00000001 00"});
}

const std::string command = "00000007 00000002 00000004 'all' 00 00000006 00000006 'where' 00";

TEST(FrameReader, CutsCommandsHoweverTheyArrive) {
    const std::string where = bytes("0000001e " + command), both = where + where;
    for (std::size_t size = 1; size <= both.size(); ++size) {
        FrameReader reader;
        std::string texts;
        for (std::size_t at = 0; at < both.size(); at += size) {
            reader.feed(std::string_view(both).substr(at, size));
            while (const auto next = reader.next())
                texts += std::string(next->getContent()) + " in " + next->getGroup() + "\n";
        }
        EXPECT_EQ(texts, "where in all\nwhere in all\n") << size;
    }
}

TEST(FrameReader, RefusesFramesThatLie) {
    const std::string lies[] = {"ffffffff", "7fffffff", "00000000", "0000001d " + command,
                                "0000000c 00000007 00000002 00001000"};
    for (const std::string& lie : lies) {
        FrameReader reader;
        reader.feed(bytes(lie));
        EXPECT_THROW(reader.next(), BrokenConnection) << lie;
    }
    // A frame whose end has not come yet is only that.
    FrameReader reader;
    reader.feed(bytes("0000001f " + command));
    EXPECT_FALSE(reader.next());
}

} // namespace
