#include "console/term.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

Term term;

namespace {

constexpr int escape = 27;
constexpr std::size_t maxKeyLength = 16;

// A change of the settings from the background would stop the process.
bool inForeground() {
    const pid_t group = ::tcgetpgrp(STDIN_FILENO);
    return group == -1 || group == ::getpgrp();
}

// Dies of the signal with the terminal as it was found.
void dieOf(int sig) {
    term.restore();
    ::signal(sig, SIG_DFL);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    ::raise(sig);
}

void stopBy(int sig) {
    const int saved = errno;
    term.restore();
    struct sigaction ours {};
    struct sigaction standard {};
    standard.sa_handler = SIG_DFL;
    ::sigaction(sig, &standard, &ours);
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, sig);
    ::pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
    ::raise(sig);
    // Here again after SIGCONT.
    ::sigaction(sig, &ours, nullptr);
    term.resume();
    errno = saved;
}

void goOn(int) {
    const int saved = errno;
    term.resume();
    errno = saved;
}

void handleUnlessTaken(int sig, void (*handler)(int)) {
    struct sigaction old {};
    if (::sigaction(sig, nullptr, &old) == -1 || old.sa_handler != SIG_DFL) return;
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigemptyset(&action.sa_mask);
    ::sigaction(sig, &action, nullptr);
}

} // namespace

Term::Term() {
    // A descriptor that is opened later must not become a standard one.
    while (true) {
        const int fd = ::open("/dev/null", O_RDWR);
        if (fd > STDERR_FILENO) ::close(fd);
        if (fd == -1 || fd > STDERR_FILENO) break;
    }
    terminal = ::tcgetattr(STDIN_FILENO, &oldSettings) == 0;
    wanted[0] = oldSettings;
    held = terminal && inForeground();
    guardSignals();
    setCanonical(false);
    setWraparound(true);
    parseTermInfo();
    setupKeymap();
}

Term::~Term() { restore(); }

bool Term::settings(termios& now) const {
    if (!terminal) return false;
    if (!inForeground() || ::tcgetattr(STDIN_FILENO, &now) == -1) now = wanted[current];
    return true;
}

void Term::apply(const termios& now) {
    wanted[1 - current] = now;
    current = 1 - current;
    resume();
}

void Term::resume() {
    if (!terminal || !inForeground()) return;
    if (!held) {
        termios found{};
        if (::tcgetattr(STDIN_FILENO, &found) == -1) return;
        termios& mine = wanted[current];
        found.c_lflag |= ICANON | ECHO;
        oldSettings = found;
        found.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        found.c_lflag |= mine.c_lflag & static_cast<tcflag_t>(ICANON | ECHO);
        found.c_cc[VTIME] = mine.c_cc[VTIME];
        found.c_cc[VMIN] = mine.c_cc[VMIN];
        mine = found;
        held = true;
    }
    ::tcsetattr(STDIN_FILENO, TCSANOW, &wanted[current]);
}

void Term::restore() const {
    if (terminal && held && inForeground()) ::tcsetattr(STDIN_FILENO, TCSANOW, &oldSettings);
}

void Term::guardSignals() const {
    if (!terminal) return;
    for (int sig :
         {SIGHUP, SIGINT, SIGQUIT, SIGILL, SIGTRAP, SIGABRT, SIGBUS, SIGFPE, SIGUSR1, SIGSEGV,
          SIGUSR2, SIGPIPE, SIGALRM, SIGTERM, SIGVTALRM, SIGPROF, SIGSYS, SIGXCPU})
        handleUnlessTaken(sig, dieOf);
    handleUnlessTaken(SIGTSTP, stopBy);
    handleUnlessTaken(SIGCONT, goOn);
}

void Term::setCanonical(bool on) {
    termios now{};
    if (!settings(now)) return;
    if (on) {
        now.c_lflag |= ICANON;
        now.c_cc[VTIME] = oldSettings.c_cc[VTIME];
        now.c_cc[VMIN] = oldSettings.c_cc[VMIN];
    } else {
        now.c_lflag &= ~static_cast<tcflag_t>(ICANON);
        now.c_cc[VTIME] = 0;
        now.c_cc[VMIN] = 1;
    }
    apply(now);
}

void Term::setEcho(bool on) {
    termios now{};
    if (!settings(now)) return;
    if (on)
        now.c_lflag |= ECHO;
    else
        now.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    apply(now);
}

bool Term::isPlain() {
    const char* wish = std::getenv("VEX_COLOUR");
    return wish && std::strcmp(wish, "never") == 0;
}

void Term::setWraparound(bool on) {
    if (isPlain()) return;
    std::fputs(on ? "\x1b[?7h\x1b[?45h" : "\x1b[?7l\x1b[?45l", stdout);
}

void Term::parseTermInfo() {
    FILE* pipe = ::popen("infocmp -1 2> /dev/null", "r");
    if (!pipe) return;
    char text[80];
    while (std::fgets(text, sizeof text, pipe))
        parseCapability(text);
    ::pclose(pipe);
}

void Term::parseCapability(const char* text) {
    const auto isName = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0; };
    while (std::isspace(static_cast<unsigned char>(*text)))
        ++text;
    std::string name;
    while (isName(*text))
        name += *text++;
    if (*text++ != '=') return;
    std::string value;
    for (; *text && *text != ',' && *text != '\n'; ++text) {
        if ((*text == '\\' || *text == '^') && text[1]) {
            ++text;
            value += text[-1] == '\\' ? translateBackslash(*text) : translateCaret(*text);
        } else {
            value += *text;
        }
    }
    // An escape that is not known became a NUL and ends the value there.
    termcap[name] = value.c_str();
}

char Term::translateBackslash(char c) {
    switch (std::tolower(static_cast<unsigned char>(c))) {
    case 'b':
        return 8;
    case 'e':
        return 27;
    case 'f':
        return 12;
    case 'n':
        return 10;
    case 'r':
        return 13;
    case 't':
        return 9;
    default:
        return 0;
    }
}

char Term::translateCaret(char c) {
    const int upper = std::toupper(static_cast<unsigned char>(c));
    if (upper >= 'A' && upper <= 'Z') return static_cast<char>(upper - 'A' + 1);
    return upper == '?' ? 127 : 0;
}

void Term::useXTerm() {
    static const struct {
        const char* name;
        const char* value;
    } fixed[] = {
        {"kbs", "\x08"},     {"kcuu1", "\x1bOA"},  {"kcud1", "\x1bOB"},  {"kcuf1", "\x1bOC"},
        {"kcub1", "\x1bOD"}, {"kich1", "\x1b[2~"}, {"kdch1", "\x1b[3~"}, {"khome", "\x1bOH"},
        {"kend", "\x1bOF"},  {"kpp", "\x1b[5~"},   {"knp", "\x1b[6~"},
    };
    for (const auto& capability : fixed)
        termcap[capability.name] = capability.value;
}

void Term::setupKeymap() {
    useXTerm();
    static const struct {
        const char* capability;
        Key key;
    } described[] = {
        {"kbs", BACKSP}, {"kcuu1", UP},     {"kcud1", DOWN},   {"kcuf1", RIGHT},
        {"kcub1", LEFT}, {"kich1", INSERT}, {"kdch1", DELETE}, {"khome", HOME},
        {"kend", END},   {"kpp", PAGEUP},   {"knp", PAGEDN},
    };
    for (const auto& entry : described)
        keymap[termcap[entry.capability]] = entry.key;
    static const struct {
        const char* sequence;
        Key key;
    } fixed[] = {
        {"\x7f", BACKSP},   {"\x08", BACKSP},  {"\x1b[0A", UP},     {"\x1b[0B", DOWN},
        {"\x1b[0C", RIGHT}, {"\x1b[0D", LEFT}, {"\x1b[A", UP},      {"\x1b[B", DOWN},
        {"\x1b[C", RIGHT},  {"\x1b[D", LEFT},  {"\x1bOA", UP},      {"\x1bOB", DOWN},
        {"\x1bOC", RIGHT},  {"\x1bOD", LEFT},  {"\x1b[2~", INSERT}, {"\x1b[3~", DELETE},
        {"\x1b[H", HOME},   {"\x1bOw", END},   {"\x1b[5~", PAGEUP}, {"\x1b[6~", PAGEDN},
        {"\x1b[1~", HOME},  {"\x1b[4~", END},
    };
    for (const auto& entry : fixed)
        keymap[entry.sequence] = entry.key;
}

int Term::readByte() {
    for (;;) {
        pollfd fds[2] = {{STDIN_FILENO, POLLIN, 0}, {wakeFd, POLLIN, 0}};
        if (::poll(fds, wakeFd >= 0 ? 2 : 1, -1) == -1) {
            // Short of memory for the moment, that is no end of the input.
            if (errno != EINTR) ::usleep(10000);
            continue;
        }
        if (wakeFd >= 0 && fds[1].revents) return WOKEN;
        unsigned char byte;
        const ssize_t got = ::read(STDIN_FILENO, &byte, 1);
        if (got == 1) return byte;
        if (got == -1 && (errno == EINTR || errno == EAGAIN)) continue;
        failed = got == -1;
        return CLOSED;
    }
}

int Term::getKey() {
    return getKey([this] { return readByte(); });
}

int Term::getKey(const std::function<int()>& next) const {
    std::string typed;
    for (;;) {
        const int byte = next();
        // A sequence that breaks off is dropped; the end is met again by the next call.
        if (byte < 0) return byte;
        typed += static_cast<char>(byte);
        // A shorter sequence sorts before those that extend it, so the first sequence that is not
        // less is the key itself or, if there is any, a longer candidate.
        const auto at = keymap.lower_bound(typed);
        if (at != keymap.end() && at->first == typed) return at->second;
        const bool isPrefix = at != keymap.end() && at->first.compare(0, typed.size(), typed) == 0;
        if (!isPrefix || typed.size() >= maxKeyLength) break;
    }
    const int first = static_cast<unsigned char>(typed[0]);
    return first == escape ? 0 : first;
}
