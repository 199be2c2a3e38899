#pragma once

#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "backend/wire/agentlink.h"
#include "backend/wire/rendezvous.h"
#include "frontend/launch/strangers.h"

#include <map>
#include <memory>
#include <string>

/// Where agents connect: a local socket for those of this machine, and TCP. Only a peer that proves
/// to know the secret (Handshake), and of the local socket only a peer of the same user, comes
/// through; any other is dropped, also a peer that says nothing for a few seconds, or that is in
/// the way of others (Strangers). One thread.
class AgentPort {
  public:
    class Owner {
      public:
        virtual ~Owner() = default;
        /// An agent has come through; from the event loop. The owner sets the link's handler; what
        /// comes before that is dropped.
        virtual void onHello(const AgentHello& hello, std::shared_ptr<AgentLink> link) = 0;
        /// Peers wait because this process may open no more files; told once.
        virtual void onFull() = 0;
    };

    /// Listens at once. Without a local socket, agents of this machine come by TCP, too. The owner
    /// must outlive this. Throws std::system_error.
    AgentPort(EventLoop& loop, bool local, Owner& owner);
    ~AgentPort() { close(); }

    const Rendezvous& rendezvous() const { return where; }
    /// Listens no more and drops the peers that have not come through.
    void close();

  private:
    /// A peer that has not proved anything yet.
    class Stranger : public AgentLink::Handler {
      public:
        /// Drops the peer after a while.
        Stranger(AgentPort& port, std::shared_ptr<AgentLink> link, Strangers::Number number);
        void onRecord(const AgentRecord& record) override;
        void onClosed() override;

        const std::shared_ptr<AgentLink> link;
        const Strangers::Number number;
        AgentRecord hello; // as it came; its body is empty before

      private:
        AgentPort& port;
        Timer patience;
        std::string nonce; // of the challenge; empty before

        void challenge(const AgentRecord& record);
    };
    /// A socket that listens.
    struct Door {
        explicit Door(EventLoop& loop) : stream(loop), pause(loop) {}
        Descriptor socket;
        Stream stream; // of the socket
        Timer pause;   // after a failure to accept
    };

    EventLoop& loop;
    Owner& owner;
    Rendezvous where;
    Door local, tcp;
    std::map<Strangers::Number, Stranger> strangers;
    Strangers order; // of the same
    bool full = false;

    void openTcp();
    void listen(Door& door);
    void accept(Door& door);
    void take(Descriptor socket);
    bool makeRoom();
    void admit(const Stranger& agent);
    void drop(Strangers::Number stranger);
};
