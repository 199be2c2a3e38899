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
    AgentHello hello;
    hello.rank = rank.number;
    hello.size = rank.jobSize;
    open(0, hello);
    loop.run();
    return status;
}

void Agent::open(int id, const AgentHello& hello) {
    servers[id] = std::make_unique<DebuggerServer>(loop, id, where, hello,
                                                   static_cast<DebuggerServer::Owner&>(*this));
}

void Agent::onStart(int id, const DebuggerStart& start) {
    if (id != 0 || start.forkMark.empty()) return;
    forks.emplace(loop, *this, start.forkMark, maxForks);
}

void Agent::onOutput(int id, std::string_view text) {
    if (forks && !ending) forks->heard(id, servers[id]->pid(), text);
}

// The front end asks for the child's debugger, or refuses it.
int Agent::adopt(const Forks::Child& child) {
    const int id = servers.rbegin()->first + 1;
    AgentHello hello;
    hello.rank = servers[child.parent]->clientNumber();
    hello.size = rank.jobSize;
    hello.forked = child.pid;
    open(id, hello);
    return id;
}

void Agent::tellOfForks(int parent, const std::string& text) {
    if (const auto at = servers.find(parent); at != servers.end()) at->second->tell(text);
}

void Agent::onAttachDone(int id) {
    if (forks) forks->started(id);
}

void Agent::onNoDebugger(int id) {
    if (forks) forks->ended(id);
}

void Agent::onOver(int id, const std::string& problem) {
    if (id == 0) {
        if (!problem.empty())
            std::fprintf(stderr, "vexagent: cannot connect to the front end: %s\n",
                         problem.c_str());
        return end(problem.empty() ? 0 : 1);
    }
    if (!problem.empty())
        servers[0]->tell("a forked process runs on without a debugger: its agent cannot connect: " +
                         problem);
    servers[id]->release();
    if (forks && !servers[id]->running()) forks->ended(id);
}

void Agent::onChild() {
    std::vector<pid_t> known;
    bool some = false;
    for (const auto& [id, server] : servers) {
        if (server->ended()) {
            some = true;
            if (forks) forks->ended(id);
        }
        if (server->running()) known.push_back(server->pid());
    }
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
    if (attached()) {
        for (const auto& [id, server] : servers)
            server->release();
    }
    detachment.begin();
}

bool Agent::detaching() const {
    return attached() &&
           std::ranges::any_of(servers, [](const auto& each) { return each.second->running(); });
}

void Agent::onDetached() { loop.stop(); }
