// A debugger of a few kilobytes that answers at once, to measure VEX and not gdb: understands the
// start-up commands and the prompt that VEX gives gdb, stops the process that it is to attach to
// (-p) until it ends, debugs nothing else, and answers as Answers has it; "fork" says that its task
// has forked, and leaves a process behind that could be the task's.

#include "bench/answers.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string prompt = "(gdb) ";
volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

void put(std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = ::write(STDOUT_FILENO, text.data(), text.size());
        if (put == -1 && errno != EINTR) std::_Exit(0);
        if (put > 0) text.remove_prefix(static_cast<std::size_t>(put));
    }
}

// What stands between two texts; empty when one of them is missing.
std::string between(std::string_view text, std::string_view begin, std::string_view end) {
    const std::size_t at = text.find(begin);
    if (at == std::string_view::npos) return "";
    text.remove_prefix(at + begin.size());
    return std::string(text.substr(0, text.find(end)));
}

// What VEX sets at the start: the prompt, and the mark that errors would get.
void understand(std::string_view setting) {
    const std::string nonce = between(setting, "set prompt \\001", "\\n");
    if (!nonce.empty()) prompt = "\001" + nonce + "\n";
    const std::string mark = between(setting, "mark = bytes([", "])");
    for (const char* at = mark.c_str(); *at != '\0';) {
        char* end = nullptr;
        const char byte = static_cast<char>(std::strtol(at, &end, 10));
        put({&byte, 1});
        at = *end == ',' ? end + 1 : end;
    }
}

// As with gdb, no signal comes in between, which would leave the process stopped by itself.
void attachTo(pid_t target) {
    sigset_t all, before;
    sigfillset(&all);
    ::sigprocmask(SIG_BLOCK, &all, &before);
    if (::ptrace(PTRACE_ATTACH, target, nullptr, nullptr) == 0) ::waitpid(target, nullptr, __WALL);
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
}

// The process belongs to nobody then, as one does whose parent has ended; it waits to be found.
void leaveProcess() {
    int ends[2]; // closed on the other side once the other program runs
    if (::pipe2(ends, O_CLOEXEC) == -1) return;
    const pid_t child = ::fork(); // wait(2) would wait for the process that it traces, too
    if (child == 0) {
        const pid_t left = ::fork();
        if (left == 0) {
            ::setpgid(0, 0);
            ::execlp("sleep", "sleep", "1000000", nullptr);
            std::_Exit(1);
        }
        std::_Exit(left > 0 && ::write(ends[1], &left, sizeof left) == sizeof left ? 0 : 1);
    }
    ::close(ends[1]);
    pid_t left = -1;
    char end = 0;
    const bool runs =
        ::read(ends[0], &left, sizeof left) == sizeof left && ::read(ends[0], &end, 1) == 0;
    ::close(ends[0]);
    while (::waitpid(child, nullptr, 0) == -1 && errno == EINTR) {
    }
    if (runs) put("[Detaching after fork from child process " + std::to_string(left) + "]\n");
}

// An interrupt that came since the command began counts.
void waitForInterrupt(const sigset_t& before) {
    while (interrupted == 0)
        ::sigsuspend(&before);
}

void carryOut(Answers& answers, const std::string& line) {
    sigset_t interrupt, before;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    ::sigprocmask(SIG_BLOCK, &interrupt, &before);
    interrupted = 0;
    put(answers.to(line));
    if (line == "fork") leaveProcess();
    if (answers.running()) {
        waitForInterrupt(before);
        put(answers.interrupted());
    }
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    put(prompt);
}

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        understand(argv[i]);
        if (std::string_view(argv[i - 1]) != "-p") continue;
        attachTo(std::atoi(argv[i]));
    }
    const char* number = std::getenv("VEX_TASK");
    Answers answers(number ? std::atoi(number) : 0);
    // A read that is interrupted ends, as gdb's does.
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    ::sigaction(SIGINT, &action, nullptr);
    put(prompt);
    std::string typed;
    for (;;) {
        char buffer[4096];
        const ssize_t got = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (got == -1 && errno == EINTR) {
            put("Quit\n" + prompt);
            continue;
        }
        if (got <= 0) return 0;
        typed.append(buffer, static_cast<std::size_t>(got));
        for (std::size_t end = 0; (end = typed.find('\n')) != std::string::npos;) {
            const std::string line = typed.substr(0, end);
            typed.erase(0, end + 1);
            if (line == "quit") return 0;
            carryOut(answers, line);
        }
    }
}
