// Records that lie about themselves end the session as a broken connection does.
#include "backend/os/processtree.h"
#include "tests/support/session.h"
#include "tests/support/wire.h"

using Hostile = Session;

namespace {

// A frame that announces another length than it has; the kind comes first, in the host's order.
std::string framed(const std::string& length, const std::string& body = "") {
    return Frame::wrap(KIND_DATA, "", 0).substr(0, 4) + bytes(length) + body;
}

} // namespace

TEST_F(Hostile, ALengthAloneTakesNoMemory) {
    const auto residentKilobytes = [this] {
        const std::string status = ProcessTree::fileOf(console->pid(), "status");
        return std::stol(status.substr(status.find("VmRSS:") + 6));
    };
    begin();
    command("run");
    const long before = residentKilobytes();
    // Two gigabytes are announced, a line of nearly as much, a little comes, and no more.
    const std::string line =
        bytes("00000000 00000000 00000007 00000001 00000001 00000000 00000000 7f000000");
    frontEnd.raw(framed("7fffffff", line + std::string(300000, 'x')));
    // The console's thread at the keyboard is not held up by it.
    console->signal(SIGINT);
    prompt("(all:int) ");
    EXPECT_LT(residentKilobytes() - before, 64 * 1024);
    frontEnd.close();
    expectEnd();
}

TEST_F(Hostile, AFloodOfLinesIsNotKept) {
    environment["VEX_HISTORY_LINES"] = "20";
    begin();
    std::vector<Output> lines;
    for (int i = 0; i < 300; ++i)
        lines.push_back({i, {0}, "line " + std::to_string(i) + "."});
    command("run");
    frontEnd.print(id, lines);
    finish();
    const std::string kept = answerTo("match");
    EXPECT_EQ(std::count(kept.begin(), kept.end(), '\n'), 40);
    EXPECT_NE(kept.find("line 260."), kept.npos);
}
