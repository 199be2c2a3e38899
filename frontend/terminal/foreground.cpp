#include "frontend/terminal/foreground.h"

#include "backend/os/pipe.h"
#include "common/wholenumber.h"
#include "frontend/session/exitstatus.h"
#include "frontend/terminal/key.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

Foreground::Foreground(Start plan, Channel toSession)
    : start(std::move(plan)),
      line(std::move(toSession)),
      stream(loop, line.fd()),
      signals(loop, {SIGCHLD, SIGTERM, SIGUSR1}, [this](int number) { onSignal(number); }),
      consoleTimer(loop),
      sessionTimer(loop),
      guarded(start.guardian != -1) {
    // A user who started this with SIGHUP ignored wants it to go on without the terminal.
    struct sigaction found {};
    ::sigaction(SIGHUP, nullptr, &found);
    if (found.sa_handler != SIG_IGN) signals.add(SIGHUP);
}

int Foreground::run() {
    waitToHear();
    line.say("attend");
    try {
        startConsole();
        loop.run();
    } catch (...) {
        stream.release();
        line.say(guarded ? "end 1" : "left");
        if (guarded) ::waitpid(start.guardian, nullptr, 0);
        awaitConsole();
        throw;
    }
    stream.release();
    if (!start.reporter.empty()) return statusOfReport();
    if (signalled != 0) return 128 + signalled;
    if (!start.script) return status == 0 && failed() ? 1 : status;
    const bool mayJudge = report && (status == 0 || status == ExitStatus::refused);
    return mayJudge && !succeeded() ? ExitStatus::refused : status;
}

// Whether the console told that it could not go on. What it has started may have the pipe, too.
bool Foreground::failed() const {
    pollfd told{report.get(), POLLIN, 0};
    return report && ::poll(&told, 1, 0) == 1 && (told.revents & POLLIN) != 0;
}

// Without the loop: the console gives the terminal back before this process ends.
void Foreground::awaitConsole() {
    constexpr int patience = 1500; // ms
    for (int waited = 0; console.running() && !console.ended(); waited += 10) {
        if (waited == (guarded ? patience : 0)) console.signal(SIGTERM);
        if (waited == 2 * patience) console.signal(SIGKILL);
        ::usleep(10000);
    }
}

void Foreground::startConsole() {
    ConsoleProcess::Environment environment;
    // A report in a file is read as it stands; but a user who asked for colours gets them.
    if (!::isatty(STDOUT_FILENO) && !std::getenv("VEX_COLOUR"))
        environment.emplace_back("VEX_COLOUR", "never");
    Descriptor writer;
    if (start.script || ::isatty(STDIN_FILENO)) {
        Pipe pipe;
        report = std::move(pipe.reader);
        // For the console alone: not closed there.
        writer.reset(::fcntl(pipe.writer.get(), F_DUPFD, 0));
        environment.emplace_back("VEX_CONSOLE_REPORT", std::to_string(writer.get()));
    }
    // After Ctrl-Z the console gives the terminal back and stops, and only then this process: with
    // it the shell takes the terminal.
    std::signal(SIGTSTP, SIG_IGN);
    console.start(start.console, start.session, start.reporter, environment);
}

// The one that stands in the report, also when a signal has called for it. The session's own says
// more only when the session has failed.
int Foreground::statusOfReport() const {
    const int reported = WIFEXITED(console.status()) ? WEXITSTATUS(console.status()) : 1;
    if (signalled != 0) return reported == 1 ? 128 + signalled : reported;
    return status != 0 ? status : reported;
}

// Whether the console carried out every line of the script; tells the user what it did not.
bool Foreground::succeeded() const {
    std::string text;
    while (!text.ends_with('\n')) {
        char piece[256];
        const ssize_t got = ::read(report.get(), piece, sizeof piece);
        if (got == -1 && errno == EINTR) continue;
        if (got <= 0) break;
        text.append(piece, static_cast<std::size_t>(got));
    }
    std::istringstream words(text);
    long refusals = 0, mistakes = 0;
    bool complete = false;
    words >> refusals >> mistakes >> complete;
    const auto tell = [this](long number, const char* one, const char* many) {
        if (number > 0) say(std::to_string(number) + (number == 1 ? one : many));
    };
    tell(refusals, " command of the script was refused", " commands of the script were refused");
    tell(mistakes, " line of the script had a mistake", " lines of the script had mistakes");
    if (!complete) say("the script did not come to its end");
    return refusals == 0 && mistakes == 0 && complete;
}

void Foreground::onSignal(int number) {
    switch (number) {
    case SIGCHLD:
        onChild();
        break;
    case SIGUSR1:
        // Only the foreground that started the session may give up the start.
        if (guarded) {
            line.say(start.reporter.empty() ? "give up" : "serve");
        } else {
            console.signal(SIGTERM);
            endConsole(1);
        }
        break;
    case SIGTERM:
        if (!start.reporter.empty() && console.running()) {
            // A warning of the batch system's, say: what can be found out at once is written.
            console.signal(SIGTERM);
        } else if (guarded && signalled == 0) {
            line.say("end " + std::to_string(128 + number));
            endSession();
        } else if (guarded) {
            ::kill(start.guardian, SIGQUIT);
        } else {
            console.signal(SIGTERM);
            endConsole(1);
        }
        signalled = number;
        break;
    default: // The terminal is gone.
        signalled = number;
        console.signal(SIGHUP);
        endConsole(0);
    }
}

void Foreground::onChild() {
    int ended = 0;
    if (guarded && ::waitpid(start.guardian, &ended, WNOHANG) == start.guardian) {
        guarded = false;
        status = WIFEXITED(ended) ? WEXITSTATUS(ended) : 128 + WTERMSIG(ended);
    }
    if (console.ended()) onConsoleEnded();
    finishIfOver();
}

void Foreground::onConsoleEnded() {
    consoleTimer.cancel();
    const bool hungUp = signalled == SIGHUP ||
                        (WIFSIGNALED(console.status()) && WTERMSIG(console.status()) == SIGHUP);
    if (!start.reporter.empty() && WIFSIGNALED(console.status()))
        say("what writes the report was ended by a signal, and may have written none");
    midLine = !connected || WIFSIGNALED(console.status());
    line.say(hungUp ? "hung up" : "left");
    // The keys are the user's again: only an answer is left to wait for.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGQUIT, SIG_DFL);
    std::signal(SIGTSTP, SIG_DFL);
}

void Foreground::waitToHear() {
    stream.whenReadable([this] {
        bool over = false;
        if (const auto text = line.hear(over)) onText(*text);
        if (!over) {
            waitToHear();
            return;
        }
        connected = false;
        // The console's connection is closed, and it ends by itself; if not, it is made to.
        if (console.running()) endConsole(0);
        finishIfOver();
    });
}

// A question, or "goes on" or "is full" and how many consoles the session has.
void Foreground::onText(const std::string& text) {
    constexpr std::string_view ask = "ask ";
    if (text.starts_with(ask)) {
        line.say(Key::confirms(text.substr(ask.size())) ? "go on" : "give up");
        return;
    }
    const std::string_view number =
        std::string_view(text).substr(std::min(text.size(), std::string_view("goes on ").size()));
    const auto found = wholeNumber<int>(number);
    if (!found) return;
    const int consoles = *found;
    const std::string name = "session " + std::to_string(start.session);
    if (text.starts_with("is full ")) {
        say(name + " has its " + std::to_string(consoles) +
            " consoles, as many as it may have; leave one of them, or start a session with a "
            "larger --consoles");
        status = 1;
        loop.stop();
        return;
    }
    const std::string others = consoles == 0   ? "without a console"
                               : consoles == 1 ? "with another console"
                                               : "with " + std::to_string(consoles) + " consoles";
    if (start.waits) {
        say(name + " goes on " + others + "; waiting for its end");
        return;
    }
    say(name + " goes on " + others + "; come back with: vex --join " +
        std::to_string(start.session));
    loop.stop();
}

void Foreground::say(const std::string& sentence) const {
    const bool newLine = midLine && ::isatty(STDERR_FILENO);
    std::fprintf(stderr, "%svex: %s\n", newLine ? "\n" : "", sentence.c_str());
}

// Behind a SIGTERM, the session has waited for a console that does not read.
void Foreground::endConsole(int reminders) {
    const auto patience = std::chrono::milliseconds(signalled == SIGTERM ? 300 : 1500);
    consoleTimer.after(patience, [this, reminders] {
        if (!console.running()) return;
        console.signal(SIGCONT);
        console.signal(reminders == 0 ? SIGTERM : SIGKILL);
        endConsole(reminders + 1);
    });
}

// A session that does not end, stopped by somebody, say, is ended by its guardian.
void Foreground::endSession() {
    sessionTimer.after(std::chrono::seconds(15), [this] {
        if (guarded) ::kill(start.guardian, SIGQUIT);
    });
}

void Foreground::finishIfOver() {
    if (connected || guarded || console.running()) return;
    const std::string name = "session " + std::to_string(start.session);
    const bool joined = start.guardian == -1;
    if (!joined && status == 128 + SIGKILL && signalled == 0)
        say(name + " was killed, and what it had started has ended");
    else if (joined || (status == 0 && !start.script && !start.waits))
        say(name + " has ended");
    loop.stop();
}
