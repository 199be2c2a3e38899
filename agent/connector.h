#pragma once

#include "backend/wire/agentlink.h"
#include "backend/wire/rendezvous.h"

#include <asio/io_context.hpp>
#include <asio/steady_timer.hpp>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// The way of an agent to its front end: tries one address after the other, introduces itself, and
/// lets the front end prove that it knows the secret before it proves the same (Handshake). One
/// thread.
class Connector {
  public:
    using Socket = AgentLink::Socket;
    struct Handler {
        /// The front end is there, and knows who this is. The link has no handlers yet.
        std::function<void(std::shared_ptr<AgentLink> link)> arrived;
        /// There is no other address to try.
        std::function<void(const std::string& problem)> failed;
    };

    /// Begins at once. What the hello says of this connection and this machine is filled in here.
    Connector(asio::io_context& loop, const Rendezvous& where, AgentHello hello, Handler handler);
    ~Connector();

  private:
    asio::io_context& loop;
    const std::string secret;
    AgentHello hello;
    const Handler handle;
    std::vector<asio::generic::stream_protocol::endpoint> candidates;
    std::size_t nextCandidate = 0;
    asio::steady_timer patience;
    std::optional<Socket> socket;
    std::shared_ptr<AgentLink> link;
    AgentRecord greeting; // what it said first
    std::string problem;  // with the address that was tried last

    void connect();
    void introduce();
    void onChallenge(const AgentRecord& record);
};
