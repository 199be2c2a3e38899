// Records that lie about themselves end the session as a broken connection does.
#include "tests/support/session.h"
#include "tests/support/wire.h"

#include <fstream>

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

long residentKilobytes(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
        long size = 0;
        if (word == "VmRSS:" && status >> size) return size;
    }
    return 0;
}

} // namespace

TEST_F(Hostile, EveryLieEndsTheSession) {
    const struct {
        const char* lie;
        std::string bytes;
    } lies[] = {
        {"a frame of negative length", framed("ffffffff")},
        {"an empty record", framed("00000000")},
        {"an empty reply", record(KIND_REPLY, "")},
        {"a reply whose text has no NUL", record(KIND_REPLY, "00000000 00000000 00000001 'a'")},
        {"slots that are not there", record(KIND_DATA, "00000000 00000001 00000007 7fffffff")},
        {"the largest line number",
         record(KIND_DATA, "00000000 00000001 00000007 00000001 00000001 7fffffff 00000001 "
                           "00000000 00000001 00 00000000")},
    };
    for (const auto& [lie, bytes] : lies) {
        SCOPED_TRACE(lie);
        begin();
        frontEnd.raw(bytes);
        frontEnd.expectClosed();
        expectEnd();
        EXPECT_TRUE(console->screen().ends_with("(all) "));
    }
}

TEST_F(Hostile, ALengthAloneTakesNoMemory) {
    begin();
    command("run");
    const long before = residentKilobytes(console->pid());
    // Two gigabytes are announced, a little comes, and no more.
    frontEnd.raw(framed("7fffffff", std::string(300000, '\0')));
    // The console's thread at the keyboard is not held up by it.
    console->signal(SIGINT);
    prompt("(all:int) ");
    EXPECT_LT(residentKilobytes(console->pid()) - before, 64 * 1024);
    frontEnd.close();
    expectEnd();
}
