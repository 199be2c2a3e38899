#include "backend/os/childprocess.h"
#include "tests/support/vextest.h"

namespace {

// vex with core files, of which gdb makes real ones.
class CoreTest : public VexTest {
  protected:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    // The core file of an example that has computed a little.
    void makeCore(const std::string& name, const Environment& environment) {
        ChildProcess gdb;
        gdb.start({.argv = {"sh", "-c",
                            "exec gdb -nx -batch -ex 'break simulate' -ex run -ex "
                            "\"generate-core-file $0\" -ex kill $1 >/dev/null 2>&1",
                            folder.path(name), program("halo")},
                   .environment = environment});
        EXPECT_TRUE(eventually([&gdb] { return gdb.poll() == ChildProcess::ENDED; }));
    }
    static Lines whoOf(Peer& console) {
        Lines who;
        for (const std::string& line : console.command("vex who"))
            if (line != "READY") who.push_back(line.substr(0, line.find("  host")));
        return who;
    }
};

TEST_F(CoreTest, ClientsHaveTheRanksOfTheirCores) {
    std::filesystem::create_directories(folder.path("cores/b"));
    makeCore("cores/core.a.77", {{"OMPI_COMM_WORLD_RANK", "4"}, {"PMI_RANK", "9"}});
    makeCore("cores/b/core.1", {{"SLURM_PROCID", "x"}});
    folder.write("cores/notes", "no core");
    const struct {
        std::string given;
        Lines who;
    } cases[] = {
        {"cores", {"4 | rank 4"}},
        {"cores/{,b/}core*", {"1 | rank 1", "4 | rank 4"}},
        // Twice the same: no ranks.
        {"cores/{core.a.77,core.[a-z].77}", {"0 | rank -", "1 | rank -"}},
    };
    for (const auto& [given, who] : cases) {
        SCOPED_TRACE(given);
        Peer console(beginWith({"--core", folder.path(given), program("halo")}));
        EXPECT_EQ(whoOf(console), who);
        quit(console);
    }
}

TEST_F(CoreTest, ACoreIsLookedAtAndNothingIsStarted) {
    makeCore("core.0", {});
    makeCore("core.1", {});
    Peer console(beginWith({"--core", folder.path("core.*"), program("halo")}));
    EXPECT_TRUE(
        console.command("vex who")[1].ends_with("  halo, core file " + folder.path("core.1")));
    EXPECT_EQ(console.command("print 6 * 7")[0], "0:1 | $1 = 42");
    EXPECT_TRUE(console.command("where")[0].starts_with("0:1 | #0  simulate ("));
    console.send(Command::STATCLIENT, "all", "stat -i");
    EXPECT_EQ(console.finish()[0], "0:1 | 2 clients in simulate, called by main");
    for (const std::string line : {"run", ":s", "r | grep x", "target remote :1", "reverse-step"}) {
        const Lines said = console.command(line);
        EXPECT_TRUE(contain(said, "' needs a process; core files can only be looked at")) << line;
        EXPECT_EQ(said.back(), "REPLY -1 0") << line;
    }
    const std::string asks = script("asks", "#!/bin/sh\necho vex_cmd run\necho vex_cmd print 5\n");
    console.send(Command::SCRIPTCLIENT, "all", "script " + asks);
    const Lines said = console.finish();
    EXPECT_TRUE(contain(said, "'run' needs a process") && contain(said, "$2 = 5"));
    EXPECT_TRUE(named("halo", living()).empty());
    quit(console);
}

TEST_F(CoreTest, ARefusedCommandIsAnErrorOfTheScript) {
    makeCore("core", {});
    const std::string commands = folder.write("commands", "where\ncontinue\n");
    launch({"--script", commands, "--core", folder.path("core"), program("halo")});
    EXPECT_EQ(vex->exitStatus(), 3) << vex->screen();
    launch({"--core", folder.path("commands"), program("halo")});
    EXPECT_EQ(vex->exitStatus(), 1);
    EXPECT_NE(vex->screen().find("there is no core file like"), std::string::npos);
}

} // namespace
