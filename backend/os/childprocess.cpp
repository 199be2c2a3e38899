#include "backend/os/childprocess.h"

#include "backend/os/limits.h"
#include "backend/os/pipe.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <linux/close_range.h>
#include <sys/ioctl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace {

[[noreturn]] void fail(int reason, const std::string& what) {
    throw std::system_error(reason, std::generic_category(), what);
}

int deathSignal(ChildProcess::Start::Orphan orphan) {
    switch (orphan) {
    case ChildProcess::Start::INTERRUPTED:
        return SIGINT;
    case ChildProcess::Start::TERMINATED:
        return SIGTERM;
    default:
        return SIGKILL;
    }
}

// Runs in the child and returns only when something failed, errno set.
void become(char* const* argv, char* const* environment, const ChildProcess::Start& what,
            pid_t parent) {
    struct sigaction plain {};
    plain.sa_handler = SIG_DFL;
    for (int number = 1; number < NSIG; ++number)
        ::sigaction(number, &plain, nullptr);
    sigset_t none;
    ::sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    Limits::restoreDescriptors();
    const bool interrupted = what.orphan == ChildProcess::Start::INTERRUPTED;
    const bool piped = what.input != -1;
    // A child that shares the terminal ends with its parent.
    if (!piped && what.terminal == -1) {
        if (::prctl(PR_SET_PDEATHSIG, SIGTERM) == -1) return;
        if (::getppid() != parent) ::_exit(1);
    }
    if (piped || what.terminal != -1) {
        // The terminal's hang-up reaches the debugger when the front end is gone; this signal also
        // reaches a debugger that no longer heeds the hang-up.
        if (::prctl(PR_SET_PDEATHSIG, deathSignal(what.orphan)) == -1) return;
        if (interrupted) std::signal(SIGHUP, SIG_IGN);
        if (::getppid() != parent) ::_exit(1);
        if (::setsid() == -1) return;
        if (!piped && ::ioctl(what.terminal, TIOCSCTTY, 0) == -1) return;
        for (int fd = 0; fd <= 2; ++fd) {
            const int from = !piped ? what.terminal : fd == 0 ? what.input : what.output;
            if (::dup2(from, fd) == -1) return;
        }
        if (!what.inherits) ::close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
    }
    ::execvpe(argv[0], argv, environment);
}

} // namespace

ChildProcess::~ChildProcess() {
    if (!running()) return;
    signal(SIGCONT);
    signal(SIGKILL);
    while (::waitpid(id, &waitStatus, 0) == -1 && errno == EINTR) {
    }
}

void ChildProcess::start(const Start& what) {
    std::vector<std::string> variables;
    for (char** each = environ; *each; ++each) {
        const std::string entry = *each;
        bool replaced = false;
        for (const auto& [name, value] : what.environment)
            replaced |= entry.compare(0, name.size() + 1, name + "=") == 0;
        if (!replaced) variables.push_back(entry);
    }
    for (const auto& [name, value] : what.environment)
        variables.push_back(name + "=" + value);
    std::vector<char*> environment, argv;
    for (std::string& each : variables)
        environment.push_back(each.data());
    environment.push_back(nullptr);
    std::vector<std::string> words = what.argv;
    for (std::string& each : words)
        argv.push_back(each.data());
    argv.push_back(nullptr);

    // Carries errno when exec fails, and closes by itself when it does not.
    Pipe report;
    const pid_t parent = ::getpid();
    const pid_t child = ::fork();
    if (child == -1) fail(errno, "cannot start a process");
    if (child == 0) {
        become(argv.data(), environment.data(), what, parent);
        const int reason = errno;
        (void)!::write(report.writer.get(), &reason, sizeof reason);
        ::_exit(127);
    }
    id = child;
    report.writer.reset();
    int reason = 0;
    ssize_t got;
    do
        got = ::read(report.reader.get(), &reason, sizeof reason);
    while (got == -1 && errno == EINTR);
    if (got != sizeof reason) return;
    while (::waitpid(id, &waitStatus, 0) == -1 && errno == EINTR) {
    }
    ended = true;
    fail(reason, what.argv[0]);
}

ChildProcess::Event ChildProcess::poll() {
    if (!running()) return NOTHING;
    const pid_t found = ::waitpid(id, &waitStatus, WNOHANG | WUNTRACED);
    const bool reaped = found == -1 && errno == ECHILD; // by who reaps all of this process's
    if (found != id && !reaped) return NOTHING;
    if (!reaped && WIFSTOPPED(waitStatus)) return STOPPED;
    ended = true;
    return ENDED;
}

std::string ChildProcess::describe(int status, const std::string& bySignal) {
    if (WIFSIGNALED(status)) return bySignal + ::strsignal(WTERMSIG(status));
    return "ended with status " + std::to_string(WEXITSTATUS(status));
}

void ChildProcess::signal(int number) const {
    if (running()) ::kill(id, number);
}

void ChildProcess::signalGroup(int number) const {
    if (running()) ::kill(-id, number);
}
