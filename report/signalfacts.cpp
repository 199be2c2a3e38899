#include "report/signalfacts.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <iterator>
#include <sstream>
#include <string_view>

namespace {

constexpr std::string_view signalMark = "vex-signal ";

} // namespace

SignalFacts SignalFacts::of(const std::string& line) {
    SignalFacts facts;
    if (!line.starts_with(signalMark)) return facts;
    std::istringstream words(line.substr(signalMark.size()));
    if (!(words >> facts.number >> facts.code >> facts.address)) return {};
    // It is that of data for these alone, and not when another process has sent the signal.
    const bool accessed = facts.number == SIGSEGV || facts.number == SIGBUS;
    if (!accessed || facts.code <= 0) facts.address.clear();
    // What is no address at all is not told by the processor.
    constexpr int byKernel = 128;
    if (facts.code == byKernel) facts.address = unknown;
    return facts;
}

const char* SignalFacts::command() {
    return R"py(python exec("try:\n i = gdb.parse_and_eval('$_siginfo')\n print('vex-signal', )py"
           R"py(int(i['si_signo']), int(i['si_code']), hex(int(i['_sifields']['_sigfault'])py"
           R"py(['si_addr'])))\nexcept gdb.error: print('vex-signal none')"))py";
}

bool SignalFacts::isFault() const {
    static constexpr int faults[] = {SIGILL,  SIGABRT, SIGBUS,  SIGFPE,
                                     SIGSEGV, SIGSYS,  SIGXCPU, SIGXFSZ};
    return std::ranges::find(faults, number) != std::end(faults);
}

int SignalFacts::numberOf(const std::string& name) {
    for (int number = 1; number < NSIG; ++number) {
        const char* const known = ::sigabbrev_np(number);
        if (name == "SIG" + (known ? std::string(known) : std::to_string(number))) return number;
    }
    return 0;
}

// Debuggers have words of their own for some: the system's are those that launchers and tasks say.
std::string SignalFacts::meaningOf(const std::string& name, const std::string& other) {
    const int number = numberOf(name);
    const char* const known = number > 0 ? ::sigdescr_np(number) : nullptr;
    return known ? known : other;
}
