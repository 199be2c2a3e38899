#include "frontend/terminal/key.h"

#include "common/descriptor.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <poll.h>
#include <sys/signalfd.h>
#include <termios.h>
#include <unistd.h>

namespace {

// Holds off the signals that would end this process while the terminal is not as it was found.
class HeldSignals {
  public:
    HeldSignals() {
        sigset_t held;
        sigemptyset(&held);
        for (const int number : {SIGTERM, SIGHUP, SIGINT, SIGQUIT})
            sigaddset(&held, number);
        ::sigprocmask(SIG_BLOCK, &held, &before);
        came.reset(::signalfd(-1, &held, SFD_CLOEXEC));
    }
    ~HeldSignals() { ::sigprocmask(SIG_SETMASK, &before, nullptr); }
    HeldSignals(const HeldSignals&) = delete;
    HeldSignals& operator=(const HeldSignals&) = delete;

    int descriptor() const { return came.get(); }

  private:
    sigset_t before{};
    Descriptor came;
};

// Gives each key as it is pressed, without showing it.
class SingleKeys {
  public:
    SingleKeys() {
        ::tcgetattr(STDIN_FILENO, &before);
        termios keys = before;
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
        keys.c_cc[VMIN] = 1;
        keys.c_cc[VTIME] = 0;
        ::tcsetattr(STDIN_FILENO, TCSADRAIN, &keys);
    }
    ~SingleKeys() { ::tcsetattr(STDIN_FILENO, TCSADRAIN, &before); }
    SingleKeys(const SingleKeys&) = delete;
    SingleKeys& operator=(const SingleKeys&) = delete;

  private:
    termios before{};
};

} // namespace

bool Key::confirms(const std::string& question) {
    // Let go in the opposite order: the terminal first, then what a signal does.
    const HeldSignals signals;
    const SingleKeys terminal;
    std::fputs(question.c_str(), stderr);
    pollfd waits[] = {{STDIN_FILENO, POLLIN, 0}, {signals.descriptor(), POLLIN, 0}};
    while (::poll(waits, 2, -1) == -1 && errno == EINTR) {
    }
    char key = 0;
    const bool pressed = waits[1].revents == 0 && ::read(STDIN_FILENO, &key, 1) == 1;
    const bool yes = pressed && key == 'y';
    std::fputs(yes ? "y\n" : "n\n", stderr);
    return yes;
}
