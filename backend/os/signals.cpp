#include "backend/os/signals.h"

#include "backend/os/eventloopcontext.h"

#include <asio/signal_set.hpp>

#include <csignal>
#include <utility>

struct Signals::State : std::enable_shared_from_this<State> {
    State(asio::io_context& io, Handler handler) : set(io), handle(std::move(handler)) {}
    asio::signal_set set;
    Handler handle;

    // Whatever system call the signal meets is carried out: a line for the terminal is not lost
    // because a child has ended while it was written.
    void add(int number) {
        set.add(number);
        struct sigaction action {};
        ::sigaction(number, nullptr, &action);
        action.sa_flags |= SA_RESTART;
        ::sigaction(number, &action, nullptr);
    }

    void wait() {
        set.async_wait([weak = weak_from_this()](const asio::error_code& fault, int number) {
            const auto kept = weak.lock();
            if (fault || !kept || !kept->handle) return;
            // First: the next signal is heard whatever the handler throws.
            kept->wait();
            kept->handle(number);
        });
    }
};

Signals::Signals(EventLoop& loop, std::initializer_list<int> numbers, Handler handler)
    : state(std::make_shared<State>(loop.context().io, std::move(handler))) {
    for (const int number : numbers)
        state->add(number);
    state->wait();
}

Signals::~Signals() {
    state->handle = nullptr;
    asio::error_code ignored;
    state->set.cancel(ignored);
}

void Signals::add(int number) { state->add(number); }
