#include "backend/os/eventloopcontext.h"

#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

#include <utility>

// What a loop consists of is made by the first timer.
EventLoop::Context::Context() {
    const ErrnoWatch refusal;
    const asio::steady_timer first(io);
    refusal.check("cannot make an event loop");
}

EventLoop::EventLoop() : impl(std::make_unique<Context>()) {}

EventLoop::~EventLoop() = default;

void EventLoop::run() { impl->io.run(); }

void EventLoop::stop() { impl->io.stop(); }

void EventLoop::post(Task task) { asio::post(impl->io, std::move(task)); }

// A handler that the library has queued can no longer be taken back: it is compared with what was
// set last. It does not own the state, which owns what it waits for.
struct Timer::State {
    explicit State(asio::io_context& io) : timer(io) {}
    asio::steady_timer timer;
    unsigned long set = 0;
};

Timer::Timer(EventLoop& loop) : state(std::make_shared<State>(loop.context().io)) {}

Timer::~Timer() {
    if (state) cancel();
}

Timer::Timer(Timer&& other) noexcept = default;
Timer& Timer::operator=(Timer&& other) noexcept {
    if (this == &other) return *this;
    if (state) cancel();
    state = std::move(other.state);
    return *this;
}

void Timer::after(Clock::duration time, EventLoop::Task then) {
    at(Clock::now() + time, std::move(then));
}

void Timer::at(Clock::time_point time, EventLoop::Task then) {
    state->timer.expires_at(time);
    state->timer.async_wait([weak = std::weak_ptr(state), set = ++state->set,
                             task = std::move(then)](const asio::error_code& fault) {
        const auto kept = weak.lock();
        if (!fault && kept && set == kept->set) task();
    });
}

void Timer::cancel() {
    ++state->set;
    state->timer.cancel();
}
