#include "agent/agent.h"

#include "backend/os/processtree.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <unistd.h>
#include <vector>

namespace {

// At most this many forked processes of one task are debugged at a time.
constexpr std::size_t maxForks = 16;

} // namespace

Agent::Agent(Rendezvous rendezvous, Rank task)
    : where(std::move(rendezvous)),
      rank(task),
      signals(loop, {SIGCHLD, SIGTERM, SIGINT, SIGHUP},
              [this](int number) { number == SIGCHLD ? onChild() : end(0); }),
      detachment(loop, *this) {}

int Agent::run() {
    server.emplace(loop, where,
                   std::vector<NodeRecords::Task>{{rank.number, rank.jobSize, ::getpid()}},
                   static_cast<NodeServer::Owner&>(*this));
    loop.run();
    return status;
}

void Agent::onStart(const DebuggerStart& start) {
    if (const auto child = children.find(start.attach); child != children.end())
        numbers[start.client] = child->second;
    if (!forks && !start.forkMark.empty()) forks.emplace(loop, *this, start.forkMark, maxForks);
}

void Agent::onOutput(int client, pid_t debugger, std::string_view text) {
    if (forks && !ending) forks->heard(client, debugger, text);
}

// The front end asks for the child's debugger, or refuses it. It has no client's number yet.
int Agent::adopt(const Forks::Child& child) {
    children[child.pid] = ++lastChild;
    server->offer({child.parent, child.pid});
    return lastChild;
}

void Agent::tellOfForks(int parent, const std::string& text) { server->tell(parent, text); }

// How the client's process is known to Forks.
int Agent::childOf(int client) const {
    const auto number = numbers.find(client);
    return number == numbers.end() ? client : number->second;
}

void Agent::onAttachDone(int client) {
    if (forks) forks->started(childOf(client));
}

void Agent::onEnded(int client) {
    if (forks) forks->ended(childOf(client));
}

void Agent::onForkLeft(pid_t process) {
    const auto child = children.find(process);
    if (forks && child != children.end()) forks->ended(child->second);
}

void Agent::onOver(const std::string& problem) {
    if (!problem.empty())
        std::fprintf(stderr, "vexagent: cannot connect to the front end: %s\n", problem.c_str());
    end(problem.empty() ? 0 : 1);
}

void Agent::onChild() {
    const bool some = server && server->collect();
    std::vector<pid_t> known;
    if (server) server->listPids(known);
    // What its program has started and left behind ends with the last debugger.
    if (some && known.empty()) ProcessTree::killDescendants(::getpid());
    std::sort(known.begin(), known.end());
    ProcessTree::reapStrangers(known);
    detachment.look();
}

void Agent::end(int exitStatus) {
    if (std::exchange(ending, true)) return;
    status = exitStatus;
    if (forks) forks->stop();
    if (server->attaches()) server->release();
    detachment.begin();
}

bool Agent::detaching() const { return server->attaches() && server->running(); }

void Agent::onDetached() { loop.stop(); }
