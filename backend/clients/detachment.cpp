#include "backend/clients/detachment.h"

#include "backend/os/processtree.h"
#include "backend/os/tracing.h"

#include <chrono>
#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr auto patience = std::chrono::seconds(3);

void signalAll(const std::vector<pid_t>& processes, int number) {
    for (const pid_t each : processes)
        ::kill(each, number);
}

void reapAll() {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

bool nothingLeftInTime() {
    const auto end = std::chrono::steady_clock::now() + patience;
    for (;;) {
        reapAll();
        if (ProcessTree::descendants(::getpid()).empty()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        ::usleep(20000);
    }
}

} // namespace

Detachment::Detachment(EventLoop& loop, std::function<bool()> stillBusy,
                       std::function<void()> whenDone)
    : busy(std::move(stillBusy)), done(std::move(whenDone)), timer(loop) {}

Detachment::~Detachment() { signalAll(stopped, SIGCONT); }

void Detachment::begin() {
    under = true;
    wait();
    look();
}

void Detachment::look() {
    if (!under || (rounds < 2 && busy())) return;
    under = false;
    timer.cancel();
    done();
    signalAll(std::exchange(stopped, {}), SIGCONT);
}

// A task that blocks SIGINT does not stop by it, but by this.
void Detachment::wait() {
    timer.after(patience, [this] {
        if (!under) return;
        if (++rounds == 2) return look();
        stopped = Tracing::heldFrom(::getpid());
        signalAll(stopped, SIGSTOP);
        wait();
    });
}

void Aftermath::clear(bool patient) {
    const bool holding = !Tracing::heldFrom(::getpid()).empty();
    if ((holding || patient) && !nothingLeftInTime() && holding) {
        const auto stopped = Tracing::heldFrom(::getpid());
        signalAll(stopped, SIGSTOP);
        nothingLeftInTime();
        signalAll(stopped, SIGCONT);
    }
    ProcessTree::killDescendants(::getpid());
    reapAll();
}
