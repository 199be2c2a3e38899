#include "backend/clients/forks.h"

#include "backend/os/processtree.h"
#include "backend/os/tracing.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <exception>
#include <unistd.h>
#include <utility>

namespace {

// Time for a child to execute another program.
constexpr auto moment = std::chrono::milliseconds(150);
// Until another look at a child that its parent's debugger still holds, twice as long each time: on
// a busy machine that may take a while. For three seconds in all; else it is meant to keep it.
constexpr auto firstPause = std::chrono::milliseconds(100);
constexpr auto lastPause = 16 * firstPause;
// Debuggers that start at a time.
constexpr std::size_t maxStarting = 2;
// Bytes of a mark and a process id.
constexpr std::size_t maxMark = 128;
// Children that wait to be looked at; a program that forks more in that moment is not followed.
constexpr std::size_t maxSeen = 1000;

// Whether a child of the reaper's may be an orphan of a task's. Its other children are debuggers,
// as this one, the user's filters and scripts, and launchers, which have no task.
bool mayBeOrphan(pid_t pid, pid_t debugger) {
    return ProcessTree::variable(pid, "VEX_TASK") &&
           !ProcessTree::variable(pid, "VEX_SCRIPT_TASKID") &&
           ProcessTree::executableOf(pid) != ProcessTree::executableOf(debugger);
}

} // namespace

Forks::Forks(EventLoop& loop, Owner& whose, std::string markText, std::size_t maxChildren,
             pid_t orphansParent)
    : owner(whose),
      mark(std::move(markText)),
      limit(maxChildren),
      reaper(orphansParent),
      timer(loop) {}

void Forks::heard(int client, pid_t debugger, std::string_view text) {
    if (mark.empty() || stopped) return;
    std::string& kept = tails[client];
    kept += text;
    std::size_t done = 0;
    for (std::size_t at; (at = kept.find(mark, done)) != std::string::npos;) {
        const std::size_t begin = at + mark.size();
        const std::size_t end = kept.find_first_not_of("0123456789", begin);
        if (end == std::string::npos) break; // more digits may come
        done = end;
        const auto pid = wholeNumber<pid_t>(std::string_view(kept).substr(begin, end - begin));
        if (pid) see({client, *pid}, debugger);
    }
    kept.erase(0, std::max(done, kept.size() - std::min(kept.size(), maxMark)));
}

// A program can print anything: believed are only children of a process that this debugger traces,
// and those that have lost such a parent and come to the reaper.
void Forks::see(const Child& child, pid_t debugger) {
    const pid_t parent = ProcessTree::parentOf(child.pid);
    const bool orphan = parent == reaper;
    if (child.pid <= 0 || parent == 0) return;
    if (orphan ? !mayBeOrphan(child.pid, debugger) : Tracing::tracerOf(parent) != debugger) return;
    const auto before = std::find_if(seen.begin(), seen.end(), [&child](const Seen& each) {
        return each.child.pid == child.pid;
    });
    if (seen.size() >= maxSeen || before != seen.end()) return;
    await({.child = child,
           .start = ProcessTree::startOf(child.pid),
           .executable = ProcessTree::executableOf(orphan ? child.pid : parent),
           .debugger = debugger,
           .until = Clock::now() + moment});
}

void Forks::await(Seen child) {
    const auto later = std::ranges::upper_bound(seen, child.until, {}, &Seen::until);
    const bool isNext = later == seen.begin();
    seen.insert(later, std::move(child));
    if (isNext) wait();
}

void Forks::wait() {
    timer.at(seen.front().until, [this] {
        if (stopped) return;
        look();
        if (!seen.empty()) wait();
    });
}

void Forks::look() {
    while (!seen.empty() && seen.front().until <= Clock::now()) {
        Seen one = std::move(seen.front());
        seen.pop_front();
        const pid_t pid = one.child.pid;
        if (ProcessTree::parentOf(pid) == 0 || ProcessTree::startOf(pid) != one.start ||
            ProcessTree::executableOf(pid) != one.executable)
            continue;
        if (lookAgain(one)) {
            await(std::move(one));
            continue;
        }
        if (ProcessTree::shareMemory(pid, ProcessTree::parentOf(pid)) || Tracing::tracerOf(pid) > 0)
            continue;
        if (clients.size() + wanted.size() >= limit)
            refuse(one.child, std::to_string(limit) +
                                  " forked processes have one. For programs that fork many: vex "
                                  "--forks no");
        else
            wanted.push_back(one.child);
    }
    next();
}

// Whether it is too early to tell what becomes of a child: it is still held, or was until now.
bool Forks::lookAgain(Seen& one) {
    if (Tracing::tracerOf(one.child.pid) == one.debugger) {
        if (one.pause >= lastPause) return false;
        one.pause = one.pause.count() == 0 ? firstPause : 2 * one.pause;
        one.until = Clock::now() + one.pause;
        return true;
    }
    if (one.pause.count() == 0) return false;
    one.pause = {};
    one.until = Clock::now() + moment;
    return true;
}

void Forks::next() {
    while (!stopped && !wanted.empty() && starting.size() < maxStarting) {
        const Child child = wanted.front();
        wanted.pop_front();
        if (ProcessTree::parentOf(child.pid) == 0) continue;
        try {
            Tracing::checkAttach(child.pid);
            const int id = owner.adopt(child);
            clients[id] = child;
            starting.insert(id);
        } catch (const std::exception& problem) {
            if (ProcessTree::parentOf(child.pid) != 0) refuse(child, problem.what());
        }
    }
}

void Forks::refuse(const Child& child, const std::string& reason) {
    const std::string number = std::to_string(child.pid);
    std::string general = reason; // without the number: the same for each child
    if (const std::size_t at = general.find(number); at != std::string::npos)
        general.erase(at, number.size());
    if (told.emplace(child.parent, general).second)
        owner.tellOfForks(child.parent,
                          "forked process " + number + " runs on without a debugger: " + reason);
}

void Forks::started(int client) {
    starting.erase(client);
    next();
}

void Forks::ended(int client) {
    tails.erase(client);
    clients.erase(client);
    started(client);
}

void Forks::stop() {
    stopped = true;
    timer.cancel();
}
