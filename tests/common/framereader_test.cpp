#include "common/framereader.h"
#include "tests/support/wire.h"

namespace {

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
