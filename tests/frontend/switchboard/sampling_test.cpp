// The samples of "vex stat -t".
#include "tests/frontend/switchboard/switchboardtest.h"

#include <ctime>

namespace {

class SamplingTest : public SwitchboardTest {
  protected:
    // Answers for each task: the place where it is; "": it has ended.
    static std::string stackIn(const std::string& function) {
        if (function.empty()) return "No process\n";
        return "thread\t1\ncall\t" + function + "\ta.c:1\t\ncall\tmain\ta.c:9\t\n";
    }
    std::string sample(const std::vector<std::string>& places) {
        for (std::size_t id = 0; id < places.size(); ++id)
            prints({static_cast<int>(id)}, stackIn(places[id]));
        ClientSet all;
        all.insertRange(0, static_cast<int>(places.size()) - 1);
        return prompts(all);
    }
    // What is typed at all of these.
    static std::string typed(const ClientSet& ids, const std::string& line) {
        std::string all;
        for (const int id : ids)
            all += (all.empty() ? "" : " / ") + ("type " + std::to_string(id) + " ") + line;
        return all;
    }
    const std::string look = typed({0, 1, 2, 3}, "vex-stacks 500");
};

TEST_F(SamplingTest, TellsWhoHasMovedAndRunsNobodyWhoHasStoppedByItself) {
    EXPECT_EQ(types(1, "all", "vex stat -i -t 3 -w 2"), typed({0, 1, 2, 3}, "vex-standing"));
    answers({0, 1, 2}, "may run\n");
    EXPECT_EQ(answers({3}, "no interrupt has stopped it\n"), look);
    EXPECT_EQ(sample({"f", "f", "g", "h"}), typed({0, 1, 2}, "vex-resume"));
    prints({1}, "its own words\n");
    EXPECT_EQ(pass(1999ms), "1 0@1 its own words");
    EXPECT_EQ(pass(1ms), "SIGINT 0 / SIGINT 1 / SIGINT 2");
    EXPECT_EQ(prompts({0, 1, 2}), "");
    EXPECT_EQ(pass(150ms), look); // no second prompt came
    // Another place, and the same one called by another function.
    EXPECT_EQ(sample({"g", "f", "g", "h"}), typed({0, 1, 2}, "vex-resume"));
    // One comes to a breakpoint: it is not interrupted, and has a last look with the others.
    EXPECT_EQ(answers({1}, "Breakpoint 1, k ()\n"), "");
    EXPECT_EQ(pass(2s), "1 1@1 Breakpoint 1, k () / SIGINT 0 / SIGINT 2");
    EXPECT_EQ(prompts({0, 2}), "");
    EXPECT_EQ(pass(150ms), look);
    EXPECT_EQ(sample({"f", "k", "g", "h"}),
              "1 2@0 1 client in f, called by main · moved / "
              "1 3@1 1 client in k, called by main · moved / "
              "1 4@2 1 client in g, called by main · never moved / "
              "1 5@3 1 client in h, called by main / "
              "1 6@0:2 moved: 0:1 · never: 2 · 3 samples 2 s apart / "
              "1 7@3 not made to run: no interrupt has stopped it / 1 READY 1");
    filtered();
    EXPECT_EQ(on(1, "PLACE3"), "1 ON_NORMAL PLACE3");
}

TEST_F(SamplingTest, EndsWhenNobodyMayRunAndWhenItIsInterrupted) {
    types(1, "all", "vex stat -t 9 -i");
    answers({0, 1}, "it has no process\n");
    EXPECT_EQ(answers({2, 3}, ""), look); // a gdb without Python says nothing
    EXPECT_EQ(sample({"", "", "f", "f"}),
              "1 0@2:3 2 clients in f, called by main / 1 1@0:1 no stack: No process / "
              "1 2@0:1 not made to run: it has no process / "
              "1 3@2:3 not made to run: its debugger has no Python / 1 READY 1");
    filtered();
    // While they run: they are stopped, and what is known is told. One of them is gone meanwhile.
    types(1, "all", "vex stat -t 9 -i");
    EXPECT_EQ(answers({0, 1, 2, 3}, "may run\n"), look);
    sample({"f", "f", "f", "f"});
    EXPECT_EQ(interrupts("0"), "SIGINT 0 / SIGINT 1 / SIGINT 2 / SIGINT 3");
    EXPECT_EQ(dies(3), "1 REMOVE 3 / 2 REMOVE 3");
    EXPECT_EQ(pass(900ms), "");
    prompts({0, 1, 2});
    EXPECT_EQ(pass(150ms), "1 SUCCESS / 1 0@0:3 4 clients in f, called by main / 1 READY 1");
    filtered();
    // While they are asked: the broken look does not count.
    types(1, "0", "vex stat -t 9 -i");
    answers({0}, "may run\n");
    answers({0}, stackIn("f"));
    pass(1s);
    prompts({0});
    EXPECT_EQ(pass(150ms), "type 0 vex-stacks 500");
    EXPECT_EQ(interrupts("0"), "SIGINT 0");
    answers({0}, "Quit\n");
    EXPECT_EQ(pass(150ms), "1 0@0 1 client in f, called by main / 1 READY 1");
}

TEST_F(SamplingTest, ATaskThatDoesNotStopIsInterruptedAgainAndNamed) {
    types(1, "0", "vex stat -t 2 -w 20");
    answers({0}, "may run\n");
    answers({0}, stackIn("f"));
    EXPECT_EQ(pass(19999ms), "");
    EXPECT_EQ(pass(1ms), "SIGINT 0");
    EXPECT_EQ(pass(1s), "SIGINT 0");
    EXPECT_NE(pass(4s).find("1 0@0 No answer yet from 0"), std::string::npos);
}

TEST_F(SamplingTest, SaysWhatIsWrongWithItsOptions) {
    const std::string number = "vex stat -t takes a number of samples, 2 to 1000";
    const std::string seconds = "vex stat -w takes the seconds between two samples, 0.1 to 3600";
    const std::pair<std::string, std::string> cases[] = {
        {"-t", number},
        {"-t 1", number},
        {"-t 1001", number},
        {"-t 3x", number},
        {"-t 3 -w 0", seconds},
        {"-t 3 -w nan", seconds},
        {"-t 3 -w 1s", seconds},
        {"-w 2", "vex stat -w goes with -t SAMPLES"},
        {"-x", "vex stat takes -a (all calls of all threads), -s, -i and -t SAMPLES with -w "
               "SECONDS, not '-x'"},
    };
    for (const auto& [options, problem] : cases)
        EXPECT_EQ(types(1, "0", "vex stat " + options), "1 0@0 " + problem + " / 1 FAILED");
    EXPECT_EQ(types(1, "0", "vex stat -t 2 -w 0.1 -s | grep x"), "type 0 vex-standing");
    // Minutes, if the rest were copied for each word.
    std::string many = "vex stat";
    for (int word = 0; word < 1'500'000; ++word)
        many += " -s";
    const std::clock_t before = std::clock();
    EXPECT_EQ(types(1, "1", many + " -t"), "1 0@1 " + number + " / 1 FAILED");
    EXPECT_LT(std::clock() - before, 20 * CLOCKS_PER_SEC);
}

} // namespace
