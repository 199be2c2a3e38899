#include "agent/agentoptions.h"
#include "agent/keeper.h"
#include "agent/nodeagent.h"
#include "agent/nodedoor.h"
#include "agent/rank.h"
#include "backend/jobs/remotetasks.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>

namespace {

Rendezvous readRendezvous(const std::string& path) {
    return path == "-" ? Rendezvous::parse(std::cin) : RendezvousFile::read(path);
}

[[noreturn]] void fail(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// The agent of this node as a process of its own: what a launcher does to a task's process and its
// process group does not end the other tasks. Takes over what it is given, in the child, and gives
// its process id in the parent.
pid_t startNode(const Rendezvous& where, Descriptor& toKeeper, Descriptor& listener) {
    const pid_t keeper = ::getpid();
    const pid_t node = ::fork();
    if (node == -1) fail("cannot start a process");
    if (node != 0) return node;
    int status = 0;
    try {
        NodeAgent::settle(toKeeper, listener);
        NodeAgent(where, std::move(toKeeper), keeper, std::move(listener)).run();
    } catch (const std::exception&) {
        status = 1; // the keepers notice that it has ended
    }
    std::_Exit(status);
}

// The process that a launcher has started keeps its task's debuggers. The first one of a host
// starts the agent of the node, which does the rest.
int serve(const std::string& path) {
    std::signal(SIGPIPE, SIG_IGN);
    const Rendezvous where = readRendezvous(path);
    const Rank rank = Rank::find(where);
    const KeeperJoin join{.pid = ::getpid(), .ranks = rank.numbers, .jobSize = rank.jobSize};
    NodeDoor::Found found = NodeDoor::find(where.nodeName, join);
    if (found.link) return Keeper(std::move(found.link), -1).run();
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == -1)
        fail("cannot make a socket");
    Descriptor link(ends[0]), toKeeper(ends[1]);
    const pid_t node = startNode(where, toKeeper, found.listener);
    toKeeper.reset();
    found.listener.reset();
    if (!NodeDoor::introduce(link, join)) return 1;
    return Keeper(std::move(link), node).run();
}

} // namespace

int main(int argc, char** argv) {
    try {
        AgentOptions options;
        const AgentOptions::Outcome outcome = options.parse(argc, argv);
        if (!outcome.proceed) {
            std::fputs(outcome.text.c_str(), outcome.status == 0 ? stdout : stderr);
            return outcome.status;
        }
        if (!options.manager.empty()) {
            RemoteTasks::list(options.manager, std::cout);
            return 0;
        }
        return serve(options.rendezvous);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "vexagent: %s\n", error.what());
    }
    return 1;
}
