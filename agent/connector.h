#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/socketaddress.h"
#include "backend/wire/agentlink.h"
#include "backend/wire/rendezvous.h"

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
    struct Handler {
        /// The front end is there, and knows who this is. The link has no handlers yet.
        std::function<void(std::shared_ptr<AgentLink> link)> arrived;
        /// There is no other address to try.
        std::function<void(const std::string& problem)> failed;
    };

    /// Begins at once. What the hello says of this connection and this machine is filled in here.
    Connector(EventLoop& loop, const Rendezvous& where, AgentHello hello, Handler handler);
    ~Connector();

  private:
    EventLoop& loop;
    const std::string secret;
    AgentHello hello;
    const Handler handle;
    std::vector<SocketAddress> candidates;
    std::size_t nextCandidate = 0;
    Timer patience;
    Timer again;
    Descriptor socket;
    Stream stream; // of the socket, until it is connected
    std::shared_ptr<AgentLink> link;
    AgentRecord greeting; // what it said first
    std::string problem;  // with the address that was tried last

    void connect();
    void knock(const SocketAddress& candidate);
    void tryNext(const std::string& why);
    void onConnected();
    void introduce();
    void onChallenge(const AgentRecord& record);
};
