#pragma once

#include "agent/place.h"
#include "frontend/agentlink.h"
#include "frontend/localclient.h"
#include "frontend/rendezvous.h"

#include <asio/io_context.hpp>
#include <asio/signal_set.hpp>
#include <asio/steady_timer.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// Runs the debugger of one task for a front end, which may be on another machine: connects,
/// introduces itself, starts the debugger that it is told to, and carries bytes. When the
/// connection ends, in whatever way, or a signal asks it to end, it kills everything below this
/// process. One thread, one event loop.
class Agent {
  public:
    Agent(Rendezvous where, Place place);

    /// Gives the exit status.
    int run();

  private:
    const Rendezvous where;
    const Place place;
    asio::io_context loop;
    asio::signal_set signals;
    asio::steady_timer patience; // with one address
    std::vector<asio::generic::stream_protocol::endpoint> candidates;
    std::size_t nextCandidate = 0;
    std::optional<AgentLink::Socket> socket;
    std::shared_ptr<AgentLink> link;
    AgentRecord greeting; // what it said first
    bool trusted = false; // the front end has proved to be the one
    std::unique_ptr<LocalClient> client;
    std::string problem; // with the address that was tried last
    int status = 0;

    void awaitSignals();
    void connect();
    void introduce();
    void onChallenge(const AgentRecord& record);
    void onClosed();
    void onRecord(const AgentRecord& record);
    void start(DebuggerStart start);
    void tellIdentity();
    void onChild();
    void say(const std::string& text);
    void end(int exitStatus);
};
