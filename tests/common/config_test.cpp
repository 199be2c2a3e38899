#include "common/config.h"
#include "tests/support/tempdir.h"
#include "tests/support/wire.h"

namespace {

std::string dumped(const Config& config) {
    return printed([&] { config.dump(); });
}

TEST(Config, ReadsDefinitionsOfAFileUpToTheFirstMistake) {
    const TempDir dir;
    Config config;
    // Lines are read in pieces of 255 bytes.
    const std::string value(253, 'v');
    dir.write("conf", "  \t# comment = no\n\n command_line = where | grep main \nexe_mode=batch\n"
                      "exe_mode=other\nExe_mode == #\na=" +
                          value + "b=c\nbad\nlast=1\n");
    EXPECT_EQ(raised([&] { config.readConfiguration(dir.path("conf").c_str()); }).second,
              "3917-172  Expect '=' in variable definition:\nbad\n\n");
    EXPECT_EQ(dumped(config),
              "Exe_mode=#\na=" + value + "\nb=c\ncommand_line=where | grep main\nexe_mode=batch\n");
    for (const char* line : {"a=b=c", "a=", "=b", "", "a b=1", "\xc3\xa4=1"})
        EXPECT_THROW(config.addVariable(line), Error) << line;
}

TEST(Config, ParseCommand) {
    Config config;
    config.addVariable("cmd=ls");
    config.addVariable("self=%self");
    const struct {
        const char *text, *expanded;
        bool all;
    } cases[] = {{"%cmd/%cmd%cmd", "ls/lsls", true},
                 {"%self %cmd", "%self ls", true},
                 {"%none %cmd", "%none ls", false},
                 {"%cmdx", "%cmdx", false},
                 {"%%cmd", "%ls", false},
                 {"%", "%", false}};
    for (const auto& [text, expanded, all] : cases) {
        std::string command = text;
        EXPECT_EQ(config.parseCommand(command), all) << text;
        EXPECT_EQ(command, expanded);
    }
}

TEST(Config, PackedForm) {
    Config config;
    config.addVariable("b=2");
    config.addVariable("a=11");
    const std::string both = "00000002 00000002 'a' 00 00000003 '11' 00 "
                             "00000002 'b' 00 00000002 '2' 00";
    EXPECT_EQ(packed(config), bytes(both));
    expectWire<Config>({both});
    expectRefused<Config>({"ffffffff", "7fffffff"});
}

} // namespace
