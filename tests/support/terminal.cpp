#include "tests/support/terminal.h"

#include <pty.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <utmp.h>

namespace {

[[noreturn]] void raise(const std::string& what) {
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// A file without a name that holds the text, at its start.
int fileOf(const std::string& text) {
    const int fd = ::memfd_create("input", MFD_CLOEXEC);
    if (fd == -1) raise("memfd_create");
    if (::write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) raise("write");
    ::lseek(fd, 0, SEEK_SET);
    return fd;
}

} // namespace

Terminal::Terminal(const Start& start) {
    const winsize size{.ws_row = 40, .ws_col = 120, .ws_xpixel = 0, .ws_ypixel = 0};
    if (::openpty(&master, &slave, nullptr, nullptr, &size) == -1) raise("openpty");
    initial = settings();
    ::fcntl(master, F_SETFD, FD_CLOEXEC);
    ::fcntl(slave, F_SETFD, FD_CLOEXEC);
    const int input = start.input ? fileOf(*start.input) : -1;
    std::vector<std::string> words = start.argv;
    std::vector<char*> argv;
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    child = ::fork();
    if (child == -1) raise("fork");
    if (child == 0) {
        // This process has one thread as yet, so that a child may call anything.
        for (int number = 1; number < 32; ++number)
            ::signal(number, SIG_DFL);
        for (int number : start.ignored)
            ::signal(number, SIG_IGN);
        sigset_t none;
        sigemptyset(&none);
        ::sigprocmask(SIG_SETMASK, &none, nullptr);
        const rlimit noCore{0, 0};
        ::setrlimit(RLIMIT_CORE, &noCore);
        ::login_tty(::dup(slave));
        if (input != -1) ::dup2(input, STDIN_FILENO);
        for (const auto& [name, value] : start.environment)
            value.empty() ? ::unsetenv(name.c_str()) : ::setenv(name.c_str(), value.c_str(), 1);
        ::execvp(argv[0], argv.data());
        ::_exit(127);
    }
    if (input != -1) ::close(input);
    pidfd = static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
    if (pidfd == -1) raise("pidfd_open");
}

Terminal::~Terminal() {
    if (!status) {
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
    }
    for (int fd : {master, slave, pidfd}) {
        if (fd != -1) ::close(fd);
    }
}

void Terminal::type(const std::string& keys) {
    if (::write(master, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size()))
        raise("typing " + visible(keys));
}

void Terminal::hangUp() {
    readSome(0);
    ::close(master);
    master = -1;
}

void Terminal::reap() {
    int wait = 0;
    if (status || ::waitpid(child, &wait, WNOHANG) != child) return;
    status = WIFEXITED(wait) ? WEXITSTATUS(wait) : 128 + WTERMSIG(wait);
    // What it wrote before its end is in the terminal by now.
    while (readSome(0)) {
    }
}

// Reads once when there is something within the time; false when there was nothing.
bool Terminal::readSome(int timeout) {
    pollfd fds[2] = {{master, POLLIN, 0}, {status ? -1 : pidfd, POLLIN, 0}};
    if (::poll(fds, 2, timeout) <= 0) return false;
    if ((fds[0].revents & POLLIN) != 0) {
        char buffer[65536];
        const ssize_t got = ::read(master, buffer, sizeof buffer);
        if (got <= 0) return false;
        for (ssize_t i = 0; i < got; ++i) {
            if (buffer[i] == '\n' && !output.empty() && output.back() == '\r') output.pop_back();
            output.push_back(buffer[i]);
        }
        return true;
    }
    if (fds[1].revents != 0) reap();
    return false;
}

std::string Terminal::until(const std::string& text) {
    const Deadline deadline;
    std::size_t at = 0;
    while ((at = output.find(text, mark)) == std::string::npos) {
        const std::size_t had = output.size();
        if (!readSome(deadline.left()) && had == output.size() && (status || deadline.left() == 0))
            fail("\"" + visible(text) + "\"");
    }
    const std::string between = output.substr(mark, at - mark);
    mark = at + text.size();
    return between;
}

void Terminal::untilEcho(bool on) {
    const Deadline deadline;
    while (((settings().c_lflag & ECHO) != 0) != on) {
        if (status || deadline.left() == 0) fail(on ? "an echo" : "no echo");
        readSome(1);
    }
}

int Terminal::exitStatus() {
    const Deadline deadline;
    while (!status) {
        if (deadline.left() == 0) fail("the program's end");
        readSome(deadline.left());
    }
    return *status;
}

bool Terminal::running() {
    reap();
    return !status;
}

const std::string& Terminal::screen() {
    while (readSome(0)) {
    }
    return output;
}

bool Terminal::isRestored() const {
    const termios now = settings();
    return now.c_iflag == initial.c_iflag && now.c_oflag == initial.c_oflag &&
           now.c_cflag == initial.c_cflag && now.c_lflag == initial.c_lflag &&
           std::ranges::equal(now.c_cc, initial.c_cc) &&
           ::cfgetispeed(&now) == ::cfgetispeed(&initial) &&
           ::cfgetospeed(&now) == ::cfgetospeed(&initial);
}

termios Terminal::settings() const {
    termios now{};
    if (::tcgetattr(slave, &now) == -1) raise("tcgetattr");
    return now;
}

// With the control characters made visible.
std::string Terminal::visible(const std::string& text) {
    std::string shown;
    for (const char c : text)
        shown += c == '\x1b' ? "\\e" : c == '\b' ? "\\b" : std::string(1, c);
    return shown;
}

void Terminal::fail(const std::string& expected) {
    std::string message = "expected " + expected;
    if (status) message += ", but the program ended with status " + std::to_string(*status);
    message += "; behind the last wait there is:\n" + visible(output.substr(mark)) +
               "\n---- the whole screen:\n" + visible(output) + "\n----";
    throw std::runtime_error(message);
}
