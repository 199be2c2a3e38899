#include "fold/filelabels.h"
#include "fold/labelform.h"
#include "fold/labels.h"
#include "tests/support/tempdir.h"
#include "tests/support/testing.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace {

TEST(LabelForm, DividesLines) {
    using Form = LabelForm;
    struct Case {
        Form::Kind kind;
        std::string line, divided; // "label|text", or "" when it has another form
    };
    const Case cases[] = {
        {Form::NUMBER, "3: text", "3|text"},
        {Form::NUMBER, "  3:  two blanks", "3| two blanks"},
        {Form::NUMBER, "3:", "3|"},
        {Form::NUMBER, "3: ", "3|"},
        {Form::NUMBER, "3:text", ""},
        {Form::NUMBER, "x3: text", ""},
        {Form::NUMBER, "", ""},
        {Form::NUMBER, "3", ""},
        {Form::NAME, "node-1.a_B: x: y", "node-1.a_B|x: y"},
        {Form::NAME, "http://x", ""},
        {Form::NAME, " node1: x", ""},
        {Form::NAME, ": x", ""},
        {Form::NAME, "node1", ""},
        {Form::BRACKET, "[3] [4] x", "3|[4] x"},
        {Form::BRACKET, "[3]", "3|"},
        {Form::BRACKET, "[3]x", ""},
        {Form::BRACKET, "[] x", ""},
        {Form::TAG, "[1,3]<stdout>:text", "3|text"},
        {Form::TAG, "[1,3]<stderr>: text", "3| text"},
        {Form::TAG, "[1,3]<stdout>:", "3|"},
        {Form::TAG, "[1,3]<other>:x", ""},
        {Form::TAG, "[1,]<stdout>:x", ""},
        {Form::TAG, "[1,3", ""},
        {Form::NAMED_TAG, "[prterun-host-1@1,3]<stdout>: text", "3|text"},
        {Form::NAMED_TAG, "[a@1,12]<stderr>:", "12|"},
        {Form::NAMED_TAG, "[a@1,12]<stderr>:x", ""},
        {Form::NAMED_TAG, "[1,12]<stderr>: x", ""},
        {Form::NAMED_TAG, "[a@", ""},
    };
    const auto shown = [](const std::optional<LabelledLine>& line) {
        return line ? std::string(line->label) + "|" + std::string(line->text) : "";
    };
    for (const auto& [kind, line, divided] : cases)
        EXPECT_EQ(shown(Form::divide(kind, line)), divided) << line;
    const std::string patterns[][3] = {
        {"rank (\\d+)> ", "rank 07> x", "07|x"},
        {"rank (\\d+)> ", "a rank 07> x", ""},
        {"([\\w.-]+)\\s*=", "n-1.x\t=y", "n-1.x|y"},
        {"(a|b)+:", "ab:x", "b|x"},
        {"()x", "xy", ""},
        {"([]x])-", "]-y", "]|y"},
        {"([[:digit:]\\s]+)!", "1 2!z", "1 2|z"},
        {"a|(b)", "abc", ""},
    };
    for (const auto& [expression, line, divided] : patterns)
        EXPECT_EQ(shown(LabelPattern(expression).divide(line)), divided) << expression;
    for (const char* bad : {"(", "x", "[", "*("})
        EXPECT_THROW(LabelPattern{bad}, std::runtime_error) << bad;
}

TEST(Labels, AreShownInOrderAndFolded) {
    const std::pair<Lines, std::string> cases[] = {
        {{"3", "1", "2", "7"}, "1:3 7"},
        {{"100000000000", "99999999999", "5"}, "5 99999999999:100000000000"},
        {{"node03", "login1", "node01", "node07", "node02"}, "login1,node[01-03,07]"},
        {{"n10", "n9", "n8"}, "n[8-10]"},
        {{"n09", "n10", "n8"}, "n[8,09-10]"},
        {{"n1", "n01", "n001", "n2"}, "n[1,01,001,2]"},
        {{"r1n2.site", "r1n1.site", "r2n1.site"}, "r1n[1-2].site,r2n1.site"},
        {{"node01.net2", "node02.net2"}, "node[01-02].net2"},
        {{"a", "b", "a-1"}, "a,a-1,b"},
        {{"n1", "n1-ib", "n2", "n2-ib"}, "n[1-2],n[1-2]-ib"},
        {{"007", "8", "9"}, "[007,8-9]"},
        {{"99", "100", "098"}, "[098,99-100]"},
        {{"x9", "x099", "x100"}, "x[9,099-100]"},
    };
    for (const auto& [names, shown] : cases) {
        Labels labels;
        ClientSet all;
        for (const std::string& name : names)
            all.insert(labels.idOf(name));
        for (const std::string& name : names)
            EXPECT_LT(labels.idOf(name), static_cast<int>(names.size()));
        labels.rank();
        std::string text;
        labels.add(text, labels.ranked(all));
        EXPECT_EQ(text, shown);
    }
    EXPECT_EQ(FileLabels::of({"d/out.3", "d/out.010", "e/x-2.log"}), (Lines{"3", "10", "2"}));
    EXPECT_EQ(FileLabels::of({"d/out.3", "e/out.3"}), (Lines{"d/out.3", "e/out.3"}));
    EXPECT_EQ(FileLabels::of({"a/r1n2", "a/r1n3"}), (Lines{"r1n2", "r1n3"}));
}

struct Result {
    std::string output;
    int status;
};

// What the program prints, errors included, for an input.
Result fold(const std::string& arguments, const std::string& input) {
    TempDir folder;
    const std::string file = folder.write("input", input);
    FILE* const pipe = ::popen(("cd " + folder.path("") + " && " VEX_BIN_DIR "/vexfold " +
                                arguments + " <" + file + " 2>&1")
                                   .c_str(),
                               "r");
    std::string output;
    for (int c; (c = std::getc(pipe)) != EOF;)
        output += static_cast<char>(c);
    return {output, WEXITSTATUS(::pclose(pipe))};
}

TEST(Vexfold, ShowsWhatItIsGiven) {
    const std::string green = "\x1b[1;32m", red = "\x1b[1;31m", end = "\x1b[00m";
    struct Case {
        std::string arguments, input, output;
        int status = 0;
    };
    const Case cases[] = {
        {"", "", ""},
        {"", "node2: a\nnode1: a\r\nnode1: b", "node[1-2] | a\nnode1 | b\n"},
        {"", "0: a\n1: a\n2: b\n 3:\n", "0:1 | a\n2 | b\n3 | \n"},
        {"", "[prterun-h-1@1,3]<stdout>: x\n[prterun-h-1@1,4]<stderr>: x\n", "3:4 | x\n"},
        {"--count", "0: a\n1: a\n", "2 0:1 | a\n"},
        {"--mode expanded", "1: a\n0: a\n1: b\n", "0 | a\n1 | a\n1 | b\n"},
        {"--mode auto --color always", "0: abc\n1: xyz\n",
         green + "0 | abc" + end + "\n" + red + "1 | xyz" + end + "\n"},
        {"--whole", "1: a\n0: a\n2: b\n0: b\n1: b\n", "0:1\na\nb\n2\nb\n"},
        // Lines of nobody stand behind the position of the line before them.
        {"", "first\n0: a\nhere\n1: a\nthere\n0: b\n1: b\n",
         "first\n0:1 | a\nhere\nthere\n0:1 | b\nvexfold: 3 lines belong to nobody\n"},
        {"", "plain\n", "plain\nvexfold: 1 line belongs to nobody\n"},
        {"--json", std::string("a: \"x\\\0\n", 8) + "b: \xff\xe2\x82\n?\n",
         "{\"labels\":\"a\",\"text\":\"\\\"x\\\\\\u0000\",\"state\":\"equal\",\"position\":0}\n"
         "{\"labels\":\"b\",\"text\":\"\xef\xbf\xbd\xef\xbf\xbd\",\"raw\":\"/+KC\",\"state\":"
         "\"different\",\"position\":0}\n{\"labels\":null,\"text\":\"?\",\"state\":null,"
         "\"position\":0}\nvexfold: 1 line belongs to nobody\n"},
        {"--label 'x([0-9]+) '", "x1 a\nx2 a\n", "1:2 | a\n"},
        {"--label x", "", "vexfold: --label 'x': it has no group (...) for the label\n", 2},
        {"--mode some", "", "vexfold: --mode is auto, collapsed or expanded; try: vexfold --help\n",
         2},
        {"--nonsense", "", "vexfold: there is no option --nonsense; try: vexfold --help\n", 2},
        {"nofile", "", "vexfold: nofile: No such file or directory\n", 1},
        {"--files - input", "x: y\n", "-,input | x: y\n"},
        {"--follow", "0: a\n1: a\nno\n0: b\n",
         "0:1 | a\nno\n0 | b\nvexfold: 1 line belongs to nobody\n"},
    };
    for (const auto& [arguments, input, output, status] : cases) {
        const Result result = fold(arguments, input);
        EXPECT_EQ(result.output, output) << arguments;
        EXPECT_EQ(result.status, status) << arguments;
    }
    const std::string wide(3'000'000, 'w');
    EXPECT_EQ(fold("", "0: " + wide + "\n1: " + wide + "\n").output, "0:1 | " + wide + "\n");
}

TEST(Vexfold, FollowsAPipeUntilItIsInterrupted) {
    TempDir folder;
    const std::string out = folder.path("out");
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t child = ::fork();
    if (child == 0) {
        ::dup2(ends[0], STDIN_FILENO);
        ::dup2(::open(out.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600), STDOUT_FILENO);
        ::execl(VEX_BIN_DIR "/vexfold", "vexfold", "--follow", nullptr);
        ::_exit(127);
    }
    const auto say = [&](const std::string& text, const std::string& shown) {
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
        EXPECT_TRUE(eventually([&] { return folder.read("out") == shown; })) << folder.read("out");
    };
    say("0: a\n1: a\n0: b\n", "0:1 | a\n0 | b\n");
    say("1: b\nno\n", "0:1 | a\n0 | b\n1 | b\nno\n");
    say("0: c\n1: c\n", "0:1 | a\n0 | b\n1 | b\nno\n0:1 | c\n");
    ::kill(child, SIGINT);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(WEXITSTATUS(status), 130);
    ::close(ends[0]);
    ::close(ends[1]);
}

using Texts = std::map<int, Lines>;

std::set<int> members(const std::string& text) {
    std::set<int> found;
    std::istringstream in(text);
    for (std::string range; in >> range;) {
        int last = std::stoi(range);
        const std::size_t colon = range.find(':');
        const int first = last;
        if (colon != std::string::npos) last = std::stoi(range.substr(colon + 1));
        for (int id = first; id <= last; ++id)
            found.insert(id);
    }
    return found;
}

// What must come out: each label's lines, all of them, in its order; and whoever has said the same
// is never told apart.
TEST(Vexfold, KeepsTheLinesOfEachLabelAndTheirOrder) {
    std::mt19937 random(1);
    const auto below = [&random](unsigned bound) { return random() % bound; };
    for (int round = 0; round < 60; ++round) {
        const unsigned labels = 1 + below(40), lines = below(30), kinds = 1 + below(12);
        Texts said;
        std::string input;
        for (unsigned i = 0; i < lines; ++i)
            for (unsigned id = 0; id < labels; ++id)
                for (unsigned n = below(8) == 0 ? below(3) : 1; n-- > 0;) {
                    const std::string text =
                        "line " + std::to_string(below(6) == 0 ? below(kinds) : i % kinds);
                    said[static_cast<int>(id)].push_back(text);
                    input += std::to_string(id) + ": " + text + "\n";
                }
        for (const std::string arguments : {"", "--mode expanded", "--follow"}) {
            Texts shown;
            std::istringstream out(fold(arguments, input).output);
            for (std::string line; std::getline(out, line);) {
                const std::size_t bar = line.find(" | ");
                const std::set<int> ids = members(line.substr(0, bar));
                for (const int id : ids) {
                    shown[id].push_back(line.substr(bar + 3));
                    for (const auto& [other, its] : said)
                        if (arguments.empty() && its == said[id]) {
                            EXPECT_TRUE(ids.contains(other)) << line;
                        }
                }
            }
            EXPECT_EQ(shown, said) << arguments << " in round " << round;
        }
    }
}

} // namespace
