#include "agent/agentoptions.h"

#include <getopt.h>

namespace {

const char* const helpText =
    "Runs the debugger of one task for vex. Started by vex through the launcher of a job.\n"
    "Usage: vexagent --rendezvous FILE | --tasks-of JOB\n"
    "\n"
    "Options:\n"
    "  -h, --help          Print this help message and exit\n"
    "  -V, --version       Print the version and exit\n"
    "  --rendezvous FILE   The file that says how to reach vex; - for the standard input\n"
    "  --tasks-of JOB      List the tasks of a job on this host: HOST:PORT/NUMBER, a process\n"
    "                      manager of MPICH's, or NAME=VALUE in the tasks' environment\n";

const ::option longOptions[] = {
    {"rendezvous", required_argument, nullptr, 'r'},
    {"tasks-of", required_argument, nullptr, 't'},
    {"help", no_argument, nullptr, 'h'},
    {"version", no_argument, nullptr, 'V'},
    {nullptr, 0, nullptr, 0},
};

} // namespace

AgentOptions::Outcome AgentOptions::parse(int argc, char** argv) {
    Outcome wrong{true, 0, ""};
    const auto mistake = [&](int status, const std::string& text) {
        if (wrong.proceed) wrong = {false, status, text};
    };
    const auto take = [&](std::string& value, const char* name) {
        if (!value.empty()) mistake(wrongValue, std::string(name) + " was given twice");
        value = ::optarg;
        if (value.empty()) mistake(wrongValue, std::string(name) + " needs a value");
    };
    bool help = false, version = false;
    ::opterr = 0;
    // The colon in front tells an option without its value from an unknown option.
    for (int found; (found = ::getopt_long(argc, argv, ":hV", longOptions, nullptr)) != -1;) {
        const std::string word = argv[::optind - 1];
        switch (found) {
        case 'r':
            take(rendezvous, "--rendezvous");
            break;
        case 't':
            take(manager, "--tasks-of");
            break;
        case 'h':
            help = true;
            break;
        case 'V':
            version = true;
            break;
        case ':':
            mistake(wrongValue, word + " needs a value");
            break;
        default:
            mistake(unexpectedWord,
                    "unexpected: " + (::optopt == 0 ? word : "-" + std::string(1, char(::optopt))));
            break;
        }
    }
    if (::optind < argc) mistake(unexpectedWord, std::string("unexpected: ") + argv[::optind]);
    if (version) return {false, 0, "vexagent " VEX_VERSION "\n"};
    if (help) return {false, 0, helpText};
    // Without a task nothing else matters, and with both there is nothing to choose.
    const bool valueMissing = wrong.status == wrongValue;
    if (!valueMissing && rendezvous.empty() == manager.empty())
        wrong = {false, notOneTask, "give either --rendezvous or --tasks-of"};
    if (!wrong.proceed) wrong.text = "vexagent: " + wrong.text + "; --help tells more\n";
    return wrong;
}
