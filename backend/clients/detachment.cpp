#include "backend/clients/detachment.h"

#include "backend/os/insist.h"
#include "backend/os/processtree.h"
#include "backend/os/tracing.h"

#include <csignal>
#include <iterator>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

void reapAll() {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

// Whether everything below this process ends in this time.
bool allEndWithin(std::chrono::seconds time, pid_t except) {
    const auto end = std::chrono::steady_clock::now() + time;
    for (;;) {
        reapAll();
        if (ProcessTree::descendants(::getpid(), except).empty()) return true;
        if (std::chrono::steady_clock::now() >= end) return false;
        ::usleep(20000);
    }
}

} // namespace

Detachment::Rounds::~Rounds() {
    for (const auto& [task, told] : waiting)
        ::kill(task, SIGCONT);
}

// A task that blocks SIGINT does not stop by it, but by SIGSTOP.
void Detachment::Rounds::stop(const std::vector<pid_t>& tasks) {
    second = true;
    for (const pid_t task : tasks)
        ::kill(task, SIGSTOP);
    add(tasks);
}

void Detachment::Rounds::add(const std::vector<pid_t>& tasks) {
    for (const pid_t task : tasks)
        waiting.try_emplace(task, false);
}

// What a signal tells a traced task, its debugger decides; only once that is gone, SIGCONT undoes
// every stop before it.
bool Detachment::Rounds::resumeTasks() {
    for (auto each = waiting.begin(); each != waiting.end();) {
        auto& [task, told] = *each;
        bool over = false;
        if (Tracing::tracerOf(task) == 0) {
            over = told && !Tracing::isStopped(task);
            if (!over) told = ::kill(task, SIGCONT) == 0;
            over = over || !told; // it is gone
        }
        each = over ? waiting.erase(each) : std::next(each);
    }
    return waiting.empty();
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
    if (begun && !owner.detaching() && owner.heldTasks().empty()) finish();
}

void Detachment::wait() {
    timer.after(Rounds::length, [this] {
        if (rounds.last()) return finish();
        rounds.stop(owner.heldTasks());
        wait();
    });
}

void Detachment::finish() {
    begun = false;
    // Killed now, their debuggers may have stopped them.
    rounds.add(owner.heldTasks());
    owner.killRest();
    resume(Rounds::looks);
}

void Detachment::resume(int looks) {
    if (!rounds.resumeTasks() && looks > 0)
        return timer.after(Rounds::pause, [this, looks] { resume(looks - 1); });
    timer.cancel();
    owner.onDetached();
}

void Detachment::complete(const Rest& rest) {
    insist([&rest] { completeOnce(rest); });
    reapAll();
}

void Detachment::completeOnce(const Rest& rest) {
    const auto held = [&rest] { return Tracing::heldFrom(::getpid(), rest.except); };
    Rounds rounds;
    const bool holding = !held().empty();
    if ((holding || rest.patient) && !allEndWithin(Rounds::length, rest.except) && holding) {
        rounds.stop(held());
        allEndWithin(Rounds::length, rest.except);
    }
    rounds.add(held());
    ProcessTree::killDescendants(::getpid(), rest.except);
    std::vector<pid_t> stopped = rest.ran;
    std::erase_if(stopped, [](pid_t task) { return !Tracing::isStopped(task); });
    rounds.add(stopped);
    for (int looks = Rounds::looks; !rounds.resumeTasks() && looks > 0; --looks)
        std::this_thread::sleep_for(Rounds::pause);
}
