// A debugger of a few kilobytes that answers at once, to measure VEX and not gdb. It understands
// the start-up commands and the prompt that VEX gives gdb, debugs nothing, and carries out:
//   lines N [BYTES]   N lines (of 80 bytes) that all tasks say alike
//   own N             N lines with the task's number in each
//   flood MIB         numbered lines
//   line MIB          one line
//   print ANYTHING    "$1 = 7" of task 7
//   where, thread apply all ...   one of 40 stacks
//   run               runs until it is interrupted
//   quit
// Everything else is answered by a prompt alone.

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

constexpr std::size_t chunk = 65536;

std::string prompt = "(gdb) ";
std::string pending; // of the output
int task = 0;
int answers = 0; // of print, as gdb counts them

void flush() {
    std::string_view rest = pending;
    while (!rest.empty()) {
        const ssize_t put = ::write(STDOUT_FILENO, rest.data(), rest.size());
        if (put == -1 && errno != EINTR) std::_Exit(0);
        if (put > 0) rest.remove_prefix(static_cast<std::size_t>(put));
    }
    pending.clear();
}

void put(std::string_view text) {
    pending.append(text);
    if (pending.size() >= chunk) flush();
}

// The text of one line in a given number of bytes, its newline not counted.
std::string padded(std::string text, std::size_t bytes) {
    constexpr std::string_view filling = " iteration of the solver on its part of the grid";
    while (text.size() < bytes)
        text += filling.substr(0, bytes - text.size());
    return text;
}

void lines(long count, std::size_t bytes, const std::string& mark) {
    for (long i = 0; i < count; ++i)
        put(padded(mark + std::to_string(i), bytes) + "\n");
}

// The stacks differ at their inner ends, as those of a job that has come apart do.
void stack(bool ofAllThreads) {
    const int kind = task % 40;
    if (ofAllThreads) put("\nThread 1 (process " + std::to_string(::getpid()) + "):\n");
    const std::string names[] = {"poll",
                                 "wait_" + std::to_string(kind),
                                 "exchange_" + std::to_string(kind / 8),
                                 "step",
                                 "solve",
                                 "main"};
    int depth = 0;
    for (const std::string& name : names) {
        put("#" + std::to_string(depth) + "  " + name +
            " () at halo.cpp:" + std::to_string(40 + depth) + "\n");
        ++depth;
    }
}

volatile std::sig_atomic_t interrupted = 0;

void onInterrupt(int) { interrupted = 1; }

void runUntilInterrupted() {
    sigset_t interrupt, before;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    ::sigprocmask(SIG_BLOCK, &interrupt, &before);
    interrupted = 0;
    put("Starting program: halo\n");
    flush();
    while (interrupted == 0)
        ::sigsuspend(&before);
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
    put("\nProgram received signal SIGINT, Interrupt.\n0x0000000000401136 in step () at "
        "halo.cpp:43\n43\t    exchange();\n");
}

void carryOut(const std::string& line) {
    char word[16] = "";
    long number = 0;
    unsigned long bytes = 80;
    std::sscanf(line.c_str(), "%15s %ld %lu", word, &number, &bytes);
    const std::string_view command = word;
    if (command == "lines") lines(number, bytes, "step ");
    if (command == "own") lines(number, bytes, "task " + std::to_string(task) + " step ");
    if (command == "flood") lines(number * (1024 * 1024 / 81), 80, "step ");
    if (command == "line") put(padded("", static_cast<std::size_t>(number) * 1024 * 1024) + "\n");
    if (command == "print")
        put("$" + std::to_string(++answers) + " = " + std::to_string(task) + "\n");
    if (command == "where" || command == "bt") stack(false);
    if (command == "thread") stack(true);
    if (command == "run") runUntilInterrupted();
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
        put(std::string(1, static_cast<char>(std::strtol(at, &end, 10))));
        at = *end == ',' ? end + 1 : end;
    }
}

} // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        understand(argv[i]);
    if (const char* number = std::getenv("VEX_TASK")) task = std::atoi(number);
    // A read that is interrupted ends, as gdb's does.
    struct sigaction action {};
    action.sa_handler = onInterrupt;
    ::sigaction(SIGINT, &action, nullptr);
    put(prompt);
    std::string typed;
    for (;;) {
        flush();
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
            carryOut(line);
            put(prompt);
        }
    }
}
