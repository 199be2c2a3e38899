// Records that lie about themselves end the session as a broken connection does.
#include "backend/os/processtree.h"
#include "tests/support/session.h"
#include "tests/support/wire.h"

using Hostile = Session;

namespace {

// A record as it travels, in the notation of bytes.
std::string record(MessageKind kind, const std::string& notation) {
    const std::string body = bytes(notation);
    return Frame::wrap(kind, body.data(), static_cast<int>(body.size()));
}
// A frame that announces another length than it has; the kind comes first, in the host's order.
std::string framed(const std::string& length, const std::string& body = "") {
    return record(KIND_DATA, "").substr(0, 4) + bytes(length) + body;
}

} // namespace

TEST_F(Hostile, EveryLieEndsTheSession) {
    for (const std::string& lie :
         {framed("ffffffff"), framed("00000000"), record(KIND_REPLY, ""),
          record(KIND_REPLY, "00000000 00000000 00000001 'a'"), // a text without its NUL
          record(KIND_DATA, "00000000 00000001 00000007 7fffffff"),
          // The largest line number.
          record(KIND_DATA, "00000000 00000001 00000007 00000001 00000001 7fffffff 00000001 "
                            "00000000 00000001 00 00000000")}) {
        SCOPED_TRACE(testing::PrintToString(lie));
        begin();
        frontEnd.raw(lie);
        frontEnd.expectClosed();
        expectEnd();
        EXPECT_TRUE(console->screen().ends_with("(all) "));
    }
}

TEST_F(Hostile, ALengthAloneTakesNoMemory) {
    const auto residentKilobytes = [this] {
        const std::string status = ProcessTree::fileOf(console->pid(), "status");
        return std::stol(status.substr(status.find("VmRSS:") + 6));
    };
    begin();
    command("run");
    const long before = residentKilobytes();
    // Two gigabytes are announced, a little comes, and no more.
    frontEnd.raw(framed("7fffffff", std::string(300000, '\0')));
    // The console's thread at the keyboard is not held up by it.
    console->signal(SIGINT);
    prompt("(all:int) ");
    EXPECT_LT(residentKilobytes() - before, 64 * 1024);
    frontEnd.close();
    expectEnd();
}
