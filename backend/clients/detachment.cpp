#include "backend/clients/detachment.h"

#include "backend/os/insist.h"
#include "backend/os/processtree.h"
#include "backend/os/tracing.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

void reapAll() {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

// Whether everything below this process ends in this time.
bool allEndWithin(std::chrono::seconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        reapAll();
        if (ProcessTree::descendants(::getpid()).empty()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        ::usleep(20000);
    }
}

} // namespace

Detachment::Rounds::~Rounds() { resumeTasks(); }

// A task that blocks SIGINT does not stop by it, but by SIGSTOP.
void Detachment::Rounds::stop(std::vector<pid_t> tasks) {
    second = true;
    stopped = std::move(tasks);
    for (const pid_t task : stopped)
        ::kill(task, SIGSTOP);
}

void Detachment::Rounds::resumeTasks() {
    for (const pid_t task : std::exchange(stopped, {}))
        ::kill(task, SIGCONT);
}

std::vector<pid_t> Detachment::Owner::heldTasks() const { return Tracing::heldFrom(::getpid()); }

void Detachment::Owner::killRest() { ProcessTree::killDescendants(::getpid()); }

Detachment::Detachment(EventLoop& loop, Owner& whose) : owner(whose), timer(loop) {}

void Detachment::begin() {
    begun = true;
    wait();
    look();
}

void Detachment::look() {
    if (begun && !owner.detaching()) finish();
}

void Detachment::wait() {
    timer.after(Rounds::length, [this] {
        if (!begun) return;
        if (rounds.last()) return finish();
        rounds.stop(owner.heldTasks());
        wait();
    });
}

void Detachment::finish() {
    begun = false;
    timer.cancel();
    owner.killRest();
    rounds.resumeTasks();
    owner.onDetached();
}

void Detachment::complete(bool patient) {
    insist([patient] { completeOnce(patient); });
    reapAll();
}

void Detachment::completeOnce(bool patient) {
    Rounds rounds;
    const bool holding = !Tracing::heldFrom(::getpid()).empty();
    if ((holding || patient) && !allEndWithin(Rounds::length) && holding) {
        rounds.stop(Tracing::heldFrom(::getpid()));
        allEndWithin(Rounds::length);
    }
    ProcessTree::killDescendants(::getpid());
    rounds.resumeTasks();
}
