#include "tests/support/vextest.h"

namespace {

// vex with a script as its program.
class ScriptTest : public VexTest {
  protected:
    void SetUp() override {
        VexTest::SetUp();
        ::setenv("VEX_LAUNCH_DIR", folder.path("launch").c_str(), 1);
    }
    void TearDown() override { ::unsetenv("VEX_LAUNCH_DIR"); }
};

TEST_F(ScriptTest, TheFirstProgramOfItWithSymbolsIsTheTask) {
    const std::string halo = program("halo");
    const std::string launcher =
        script("launcher", "#!/bin/sh\nPMI_SIZE=1 PMI_RANK=0 exec \"$@\"\n");
    const struct {
        std::string text;
        Lines how;
    } cases[] = {
        {"export MADE=by$(echo script)\nulimit -c 0\nexec " + halo + " \"$@\"\n", {"-n", "1"}},
        {"export MADE=byscript; cd /; " + halo + " \"$@\" 5>&1 | cat 5>&-; ls\n", {"-n", "1"}},
        // The script ends before its program.
        {"MADE=byscript " + halo + " \"$@\" &\n", {"--launch", launcher}},
    };
    for (const auto& [text, how] : cases) {
        SCOPED_TRACE(text);
        Lines words = how;
        words.insert(words.end(), {script("run.sh", "#!/bin/sh\n" + text), "--crash"});
        Peer console(beginWith(words));
        EXPECT_TRUE(contain(console.command("vex who"), "run.sh, not running"));
        console.command("break simulate");
        for (const std::string run : {"run", "run", "run --fork --crash"}) {
            EXPECT_TRUE(contain(console.command(run), "Breakpoint 1, simulate (stray=")) << run;
            EXPECT_TRUE(contain(console.command("vex who"), "  halo"));
            EXPECT_TRUE(contain(console.command("print crashing >= 0"), "= true"));
            EXPECT_TRUE(contain(console.command("print (char*) getenv(\"MADE\")"), "\"byscript\""));
        }
        console.command("kill");
        EXPECT_TRUE(eventually([this] { return named("run.sh", living()).empty(); }));
        quit(console);
    }
}

TEST_F(ScriptTest, AScriptWithoutOneEnds) {
    const std::string text = "#!/bin/sh\nls; exit 3\n";
    Peer console(beginWith({"-n", "1", script("run.sh", text)}));
    for (int i = 0; i < 2; ++i) {
        const Lines said = console.command("run");
        EXPECT_TRUE(contain(said, "has ended, and nothing that it has started has symbols"));
        EXPECT_TRUE(contain(said, "exited with code 0")) << "its status is 3";
    }
    quit(console);
}

} // namespace
