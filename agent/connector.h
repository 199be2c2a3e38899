#pragma once

#include "backend/os/clock.h"
#include "backend/os/eventloop.h"
#include "backend/os/socketaddress.h"
#include "backend/wire/agentlink.h"
#include "backend/wire/rendezvous.h"

#include <memory>
#include <string>
#include <vector>

/// The way of an agent to its front end: tries one address after the other, introduces itself, and
/// lets the front end prove that it knows the secret before it proves the same (Handshake). Tries
/// all of them again for half a minute where somebody may listen who is busy. One thread.
class Connector : private AgentLink::Handler {
  public:
    /// Hears how the connecting ends, by one of these calls, once; from the event loop.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// The front end has proved itself, and knows what the hello says. The owner sets the
        /// link's handler.
        virtual void onConnected(std::shared_ptr<AgentLink> link) = 0;
        /// There is no other address to try.
        virtual void onUnreachable(const std::string& problem) = 0;
    };

    /// Begins at once. Fills in what the hello says of this connection and this machine. The owner
    /// must outlive this.
    Connector(EventLoop& loop, const Rendezvous& where, AgentHello hello, Owner& owner);
    ~Connector() override;

  private:
    EventLoop& loop;
    const std::string secret;
    AgentHello hello;
    Owner& owner;
    std::vector<SocketAddress> candidates;
    std::size_t nextCandidate = 0;
    const Clock::time_point end; // of all tries
    bool busy = false;           // of those tried in this round, somebody may listen at one
    bool lied = false;           // the peer at hand does not know the secret
    Timer patience;
    Timer pause;
    Descriptor socket;
    Stream stream; // of the socket, until it is connected
    std::shared_ptr<AgentLink> link;
    AgentRecord greeting; // the hello as it was sent
    std::string problem;  // with the address that was tried last

    void connect();
    void knock(const SocketAddress& candidate);
    void tryNext(const std::string& why);
    void whenConnected();
    void introduce();

    // AgentLink::Handler
    void onRecord(const AgentRecord& record) override;
    void onClosed() override;
};
