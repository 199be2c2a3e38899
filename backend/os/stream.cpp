#include "backend/os/stream.h"

#include "backend/os/eventloopcontext.h"

#include <asio/posix/stream_descriptor.hpp>

#include <system_error>
#include <utility>

using asio::posix::descriptor_base;

namespace {

constexpr char cannotWait[] = "cannot wait for a descriptor";

} // namespace

struct Stream::State : std::enable_shared_from_this<State> {
    explicit State(asio::io_context& io) : descriptor(io) {}
    asio::posix::stream_descriptor descriptor;
    unsigned long asked = 0; // how often all was forgotten

    void wait(descriptor_base::wait_type kind, EventLoop::Task then) {
        const ErrnoWatch refusal;
        descriptor.async_wait(kind, [weak = weak_from_this(), now = asked,
                                     task = std::move(then)](const asio::error_code& fault) {
            const auto kept = weak.lock();
            if (!fault && kept && now == kept->asked) task();
        });
        refusal.check(cannotWait);
    }
};

Stream::Stream(EventLoop& loop) : state(std::make_shared<State>(loop.context().io)) {}

Stream::Stream(EventLoop& loop, int fd) : Stream(loop) { watch(fd); }

Stream::~Stream() { release(); }

void Stream::watch(int fd) {
    asio::error_code fault;
    state->descriptor.assign(fd, fault);
    if (fault) throw std::system_error(fault, cannotWait);
}

void Stream::release() {
    ++state->asked;
    if (watching()) state->descriptor.release();
}

void Stream::cancel() {
    ++state->asked;
    asio::error_code ignored;
    state->descriptor.cancel(ignored);
}

bool Stream::watching() const { return state->descriptor.is_open(); }

void Stream::whenReadable(EventLoop::Task then) {
    state->wait(descriptor_base::wait_read, std::move(then));
}

void Stream::whenWritable(EventLoop::Task then) {
    state->wait(descriptor_base::wait_write, std::move(then));
}
