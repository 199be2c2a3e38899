#include "backend/os/signals.h"

#include "backend/os/stream.h"
#include "common/descriptor.h"

#include <cerrno>
#include <csignal>
#include <sys/signalfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

// The signals are blocked, so that they interrupt no system call, and read from a descriptor. One
// that could not be read is still there in the next turn.
struct Signals::State {
    State(EventLoop& loop, Handler handler) : stream(loop), handle(std::move(handler)) {
        ::sigemptyset(&heard);
        ::sigprocmask(SIG_BLOCK, nullptr, &before);
    }
    sigset_t heard, before;
    Descriptor signals;
    Stream stream; // closes after it has let go
    Handler handle;

    void add(int number) {
        ::sigaddset(&heard, number);
        ::sigprocmask(SIG_BLOCK, &heard, nullptr);
        std::signal(number, SIG_DFL);
        const int fd = ::signalfd(signals.get(), &heard, SFD_CLOEXEC | SFD_NONBLOCK);
        if (fd == -1)
            throw std::system_error(errno, std::generic_category(), "cannot wait for signals");
        if (!signals) signals.reset(fd);
    }
    int next() const {
        signalfd_siginfo what;
        return ::read(signals.get(), &what, sizeof what) == sizeof what
                   ? static_cast<int>(what.ssi_signo)
                   : 0;
    }
    void wait() {
        stream.whenReadable([this] {
            // First: the next signal is heard whatever the handler throws.
            wait();
            if (const int number = next(); number != 0) handle(number);
        });
    }
};

Signals::Signals(EventLoop& loop, std::initializer_list<int> numbers, Handler handler)
    : state(std::make_unique<State>(loop, std::move(handler))) {
    for (const int number : numbers)
        state->add(number);
    state->stream.watch(state->signals.get());
    state->wait();
}

// What came too late is forgotten.
Signals::~Signals() {
    while (state->next() != 0) {
    }
    ::sigprocmask(SIG_SETMASK, &state->before, nullptr);
}

void Signals::add(int number) { state->add(number); }
