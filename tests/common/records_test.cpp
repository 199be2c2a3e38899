#include "common/command.h"
#include "common/data.h"
#include "common/frame.h"
#include "common/reply.h"
#include "tests/support/wire.h"

namespace {

TEST(CommandRecord, Wire) {
    Command command;
    command.init(7, "all", Command::CLIENT, "where", -1);
    const std::string where =
        bytes("00000007 00000002 00000004 'all' 00 00000006 00000006 'where' 00");
    EXPECT_EQ(hex(packed(command)), hex(where));
    EXPECT_EQ(hex(Frame::wrap(where.data(), 30)), hex(bytes("0000001e") + where));
    expectEveryCutRefused<Command>(where);
    Command received;
    for (const std::string& each :
         {where, bytes("00000001 0000000a 00000002 'g' 00 00000000"),
          bytes("00000001 00000007 00000002 'g' 00 00000003 00000003 'a' 00 'b'")}) {
        unpackFrom(received, each);
        EXPECT_EQ(hex(packed(received)), hex(each));
    }
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
    const std::string data =
        bytes("00000001 00000003 'g1' 00 00000001 00000003 'g0' 00 00000002 00000001 00000003");
    EXPECT_EQ(hex(packed(group)), hex(data));
    expectEveryCutRefused<GroupCommand>(data);
    GroupCommand received;
    unpackFrom(received, data);
    received.resetIterator();
    EXPECT_EQ(received.nextName(), "g0");
    EXPECT_EQ(received.nextId(), 1);
    EXPECT_EQ(received.nextId(), 3);
    expectRefused<GroupCommand>({
        "00000001 00000002 'g' 00 00000000 40000001 00000003",
        "00000001 00000002 'g' 00 ffffffff 00000000",
        "00000001 00000002 'g' 00 20000000 00000002 'n' 00 00000000",
    });
}

TEST(ReplyRecord, Wire) {
    const std::string failed = bytes("ffffffff 000001ff 00000001 00");
    EXPECT_EQ(hex(packed(Reply(Reply::FAILED, 511))), hex(failed));
    expectEveryCutRefused<Reply>(failed);
    expectRefused<Reply>({"00000000 00000000 00000001 'x'", "00000000 00000000 00000000"});
    Reply reply;
    reply.addRetInfo("g1: ");
    reply.addRetInfo("0:3");
    EXPECT_EQ(hex(packed(reply)), hex(bytes("00000000 00000000 00000008 'g1: 0:3' 00")));
    unpackFrom(reply, failed);
    EXPECT_EQ(hex(packed(reply)), hex(failed)); // replaced
}

TEST(DataRecord, EmptySlotsAreCounted) {
    const std::string record =
        bytes("ffffffff 00000005 00000007 00000004 "
              "00000002 00000000 00000002 0000000000000001 00000002 'a' 00 00000061 "
              "00000000 00000001 00000004 00000001 00 00000000 "
              "fffffffe 00000001 00000003 00000001 00000002 00000003 'ab' 00 00000247 "
              "00000004 00000004 00000000 00000004 'run' 00");
    expectEveryCutRefused<Data>(record);
    Data received;
    Line before(9, Line::EQUAL);
    received.addLine(&before);
    unpackFrom(received, record);
    EXPECT_EQ(hex(packed(received)), hex(record));
    EXPECT_EQ(received.numOfLine(), 4);
}

TEST(DataRecord, Lies) {
    const std::string head = "00000000 00000000 00000001 ";
    const std::string tail = " 00000001 00000000 00000000 00000001 00";
    for (const char* slots : {
             "ffffffff", "7fffffff",                                          // slots
             "00000002 00000001 00000000 00000000 00000001 00 00000000",      // an empty last slot
             "00000001 7fffffff 00000000 00000000 00000001 00 00000000",      // lines of a slot
             "00000002 ffffffff ffffffff 00000000 00000000 00000001 00",      // behind a skip
             "00000001 00000001 ffffffff 00000000 00000001 00 00000000",      // a line's number
             "00000001 00000001 7fffffff 00000000 00000001 00 00000000",      //
             "00000001 00000001 00000000 ffffffff 00000001 00 00000000",      // its clients
             "00000001 00000001 00000000 00000000 00000000 00000000",         // its text
             "00000001 00000001 00000000 00000000 00000002 'ab' 00000000",    //
             "00000001 00000001 00000000 00000000 7ffffff0 'ab' 00 00000000", //
         })
        expectRefused<Data>({(head + slots + tail).c_str()});
}

} // namespace
