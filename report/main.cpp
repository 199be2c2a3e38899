// vexreport: looks at a job through its session, in the place of a console, and writes a report.
#include "backend/os/text.h"
#include "common/brokenconnection.h"
#include "common/error.h"
#include "common/wholenumber.h"
#include "report/conversation.h"
#include "report/findings.h"
#include "report/htmlform.h"
#include "report/inquiry.h"
#include "report/jsonform.h"
#include "report/launcherversion.h"
#include "report/textform.h"
#include "report/versions.h"
#include "report/wholefile.h"

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <exception>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace {

using SystemTime = std::chrono::system_clock::time_point;

struct Words {
    int session = 0;
    pid_t starter = -1;
    int timeout = 0;
    Inquiry::Way way = Inquiry::RUN;
    bool forksRunFree = false;
    std::vector<std::string> launcher; // its command line
    pid_t launched = -1;               // its process
    std::vector<std::string> notes;    // of the start
    std::string file;
    std::string command;
};

// "2026-11-22T15:20:31Z" (RFC 3339)
std::string utc(SystemTime when) {
    const std::time_t seconds = std::chrono::system_clock::to_time_t(when);
    std::tm parts{};
    ::gmtime_r(&seconds, &parts);
    std::array<char, 32> text{};
    return {text.data(), std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

// -s SESSION -b STARTER -t SECONDS -w run|look|cores|join -f FILE [-n] [-e NOTE]... [-l WORD]...
// [-p PID] -- COMMAND...
Words parse(int argc, char** argv) {
    Words words;
    for (int option; (option = ::getopt(argc, argv, "s:b:t:w:f:e:l:p:n")) != -1;) {
        const std::string_view value = optarg ? optarg : "";
        const int number = wholeNumber<int>(value).value_or(0);
        if (option == 's') words.session = number;
        if (option == 'b') words.starter = number;
        if (option == 't') words.timeout = number;
        if (option == 'w' && value == "look") words.way = Inquiry::LOOK;
        if (option == 'w' && value == "cores") words.way = Inquiry::CORES;
        if (option == 'w' && value == "join") words.way = Inquiry::JOIN;
        if (option == 'n') words.forksRunFree = true;
        if (option == 'e') words.notes.emplace_back(value);
        if (option == 'f') words.file = value;
        if (option == 'l') words.launcher.emplace_back(value);
        if (option == 'p') words.launched = number;
    }
    for (int i = optind; i < argc; ++i)
        words.command += (i == optind ? "" : " ") + Text::quoted(argv[i]);
    return words;
}

std::string formOf(const Report& report, const std::string& file) {
    if (file.ends_with(".html")) return HtmlForm::of(report);
    return file.ends_with(".json") ? JsonForm::of(report) : TextForm::of(report);
}

int run(const Words& words) {
    const WholeFile file(words.file);
    Report report;
    Conversation session(words.session, words.starter);
    const int early = session.begin(words.way == Inquiry::JOIN ? -1 : words.starter);
    LauncherVersion launcher;
    if (!words.launcher.empty()) launcher.ask(words.launcher);
    if (words.launched > 0) launcher.askProcess(words.launched);
    report.started = utc(std::chrono::system_clock::now());
    Inquiry inquiry(session, {.way = words.way,
                              .timeout = words.timeout,
                              .signal = early,
                              .forksRunFree = words.forksRunFree,
                              .notes = words.notes,
                              .echo = words.file == "-" ? stderr : stdout});
    const Findings& found = inquiry.carryOut();
    report.command = words.command;
    report.tasks = static_cast<int>(found.clients.size());
    if (const auto when = inquiry.lookedAt()) report.looked = utc(*when);
    report.vex = VEX_VERSION;
    report.system = Versions::system();
    report.launchedBy = launcher.answer();
    found.conclude(report);
    report.written = utc(std::chrono::system_clock::now());
    file.write(formOf(report, words.file));
    std::fprintf(stderr, "vex: %s\n", report.headline.c_str());
    if (words.way != Inquiry::JOIN && !found.cut) session.quit();
    return report.exitStatus();
}

} // namespace

int main(int argc, char** argv) {
    try {
        // Nobody may read any more what the tasks say; the report is written all the same.
        std::signal(SIGPIPE, SIG_IGN);
        const Words words = parse(argc, argv);
        if (words.session > 0 && !words.file.empty()) return run(words);
        std::fputs("vexreport: is started by vex --report\n", stderr);
        return 2;
    } catch (const BrokenConnection&) {
        std::fputs("vex: the session ended before anything was found out\n", stderr);
    } catch (const Error& error) {
        std::fprintf(stderr, "vex: %s\n", error.getErrMsg());
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vex: %s\n", error.what());
    }
    return 1;
}
