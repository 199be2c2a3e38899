#include "report/findings.h"
#include "report/htmlform.h"
#include "report/jsonform.h"
#include "report/launcherversion.h"
#include "report/textform.h"
#include "tests/support/testing.h"

namespace {

TEST(Report, IsOneInAllForms) {
    Findings found(4);
    found.clients.insertRange(0, 3);
    found.ran = false;
    found.stat = {{{2}, "1 client in search, called by go_round"},
                  {{0, 1, 3}, "3 clients in MPI_Recv, called by receive"},
                  {{0, 1, 2, 3}, "main"},
                  {{2}, "  search"},
                  {{0, 1, 3}, "  receive"}};
    found.log.add({0}, "</script> \"\x01\xff");
    Report report;
    found.mpi = {{{0, 1}, "Open MPI 4.1.4"}, {{2, 3}, "MPICH 4.0.2"}};
    report.command = "vex 'x\ny\x1b'";
    for (int i = 0; i < 1000; ++i) {
        found.addLauncherLine("line " + std::to_string(i) + "\x1b[2J");
        found.addNote({i % 4}, "note " + std::to_string(i / 4));
    }
    found.conclude(report);
    const std::string text = TextForm::of(report);
    EXPECT_NE(
        text.find("\n== Where the tasks are\n2 | 1 client in search, called by go_round\n"
                  "0:1 3 | 3 clients in MPI_Recv, called by receive\n0:3 | main\n2 |   search\n"),
        text.npos)
        << text;
    EXPECT_NE(text.find("\nmpi       0:1 | Open MPI 4.1.4\nmpi       2:3 | MPICH 4.0.2\n"),
              text.npos)
        << text;
    // A terminal that shows it stays as it is.
    EXPECT_NE(text.find("\ncommand   vex 'x^Jy^['\n"), text.npos) << text;
    EXPECT_NE(text.find("\nline 99^[[2J\n[800 lines left out]\nline 900^[[2J\n"), text.npos)
        << text;
    EXPECT_NE(text.find("\n0:3 | note 99\n[50 notes left out]\n0:3 | note 150\n"), text.npos)
        << text;
    EXPECT_NE(text.find("\n0 | </script> \"^A"), text.npos) << text;
    const std::string json = JsonForm::of(report);
    for (const std::string part :
         {"{\"version\":1,\n\"outcome\":\"looked\",\n\"status\":0,\n",
          "{\"depth\":1,\n\"call\":\"receive\",\n\"clients\":[[0,1],[3,3]]}",
          "\"lines\":[\"</script> \\\"\\u0001\xef\xbf\xbd\"]", "\"crashes\":[],"})
        EXPECT_NE(json.find(part), json.npos) << part << " in " << json;
    // What tasks say does not end the script that holds it.
    const std::string page = HtmlForm::of(report);
    EXPECT_NE(page.find(R"("\u003c/script> \")"), page.npos);
}

// What launchers answer, and programs that are none.
TEST(LauncherVersion, IsTheLineWithTheNumber) {
    const std::pair<const char*, const char*> cases[] = {
        {"mpirun (Open MPI) 4.1.4\n\nReport bugs to https://x/1\n", "mpirun (Open MPI) 4.1.4"},
        {"HYDRA build details:\n    Version:   4.0.2\n    Date: 7\n",
         "HYDRA build details: Version: 4.0.2"},
        {"\n\x1b[1mslurm 22.05.8", "^[[1mslurm 22.05.8"},
        {"", ""},
    };
    for (const auto& [answer, line] : cases)
        EXPECT_EQ(LauncherVersion::lineOf(answer), line);
    LauncherVersion none, missing;
    none.ask({"./start-job", "-n", "4"});
    missing.ask({"env", "/none/mpirun"});
    EXPECT_EQ(none.answer() + missing.answer(), "");
}

} // namespace
