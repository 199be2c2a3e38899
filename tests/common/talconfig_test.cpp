#include "common/talconfig.h"
#include "tests/support/tempdir.h"
#include "tests/support/wire.h"

namespace {

std::string dumped(const TALConfig& config) {
    return printed([&] { config.dump(); });
}

const std::string threeTasks = "5100 and more\n 3\n"
                               "0 1 10.0.0.1 n1 101 11 /bin/a.out\n"
                               "  7 x 10.0.0.2  n2 102 12 a.out one two never\n"
                               "2 0 10.0.0.3 n3 99999999999 13 a.out one\n"
                               "not read any more\n";

TEST(AttachFile, TaskLinesAndTheirPackedForm) {
    const TempDir dir;
    TALConfig config, other;
    const auto read = [&](const std::string& text) {
        return raised([&] { config.readConfiguration(dir.write("attach.cfg", text).c_str()); });
    };
    for (const char* text : {"", "5099\n0\n"})
        EXPECT_EQ(read(text).first, 181) << text;
    for (const char* text : {"5100\n", "5100\n1\n1 2 3 4 5 6\n", "5100\n2147483647\n"})
        EXPECT_EQ(read(text).first, 182) << text;
    EXPECT_EQ(read(threeTasks).second, "");
    EXPECT_EQ(dumped(config), "0 1 10.0.0.1 n1 101 11 '/bin/a.out '\n"
                              "7 0 10.0.0.2 n2 102 12 'a.out  one two'\n"
                              "2 0 10.0.0.3 n3 2147483647 13 'a.out '\n");
    config.setMjid(77);
    const std::string data = packed(config), head = "00000003 00000000 00000001 00000009";
    EXPECT_EQ(data.substr(0, 36), bytes(head + "'10.0.0.1' 00 00000003 'n1' 00 000000 65"));
    EXPECT_THROW(unpackFrom(other, data.substr(0, data.size() - 1)), BrokenConnection);
    unpackFrom(other, data);
    EXPECT_EQ(dumped(other), dumped(config));
    EXPECT_EQ(other.getMjid(), 77);

    EXPECT_EQ(config.generateHostFile(dir.path("hosts").c_str()), 3);
    config.setTaskExit(7); // the first that has exited ends the file
    EXPECT_EQ(config.generateHostFile(dir.path("hosts").c_str()), 1);
    EXPECT_EQ(dir.read("hosts"), "n1\n");

    // A line that just fits, and one that is cut.
    const std::string one = "1 1 i h 1 1 a ", kept(1021 - one.size(), 'x');
    EXPECT_EQ(read("5100\n2\n" + one + kept + " z\n" + one + kept + " zz\n").second, "");
    const std::string shown = "1 1 i h 1 1 'a  " + kept + "'\n";
    EXPECT_EQ(dumped(config), shown + shown);
    // After an error there are no entries, not even those read before it.
    EXPECT_EQ(read("5100\n2\n" + one + "\n").first, 182);
    EXPECT_EQ(config.getEntryNum(), 0);
    read(threeTasks);
    EXPECT_EQ(raised([&] { config.readConfiguration(dir.path("none").c_str()); }).first, 180);
    EXPECT_EQ(config.getEntryNum(), 0);
}

} // namespace
