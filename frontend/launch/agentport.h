#pragma once

#include "backend/os/eventloop.h"
#include "backend/wire/agentlink.h"
#include "backend/wire/rendezvous.h"

#include <functional>
#include <map>
#include <memory>

/// Where agents connect: a local socket for those of this machine, and TCP. Only a peer that proves
/// to know the secret (Handshake), and of the local socket one of the same user, comes through; any
/// other is dropped, also one that says nothing for a few seconds. One thread.
class AgentPort {
  public:
    using Arrived = std::function<void(const AgentHello&, std::shared_ptr<AgentLink>)>;

    /// Listens at once. `arrived` runs from the event loop; it gives the link its handlers. Without
    /// a local socket, agents of this machine come by TCP, too. Throws std::system_error.
    AgentPort(EventLoop& loop, bool local, Arrived arrived);
    ~AgentPort() { close(); }

    const Rendezvous& rendezvous() const { return where; }
    /// From now on hardly anybody comes: leaves less room to strangers.
    void expectFew() { most = 64; }
    /// Listens no more and drops who has not come through.
    void close();

  private:
    struct Pending {
        std::shared_ptr<AgentLink> link;
        Timer patience;
        AgentRecord hello = {}; // as it came; its body is empty before
        std::string nonce = {}; // that it was challenged with
    };
    /// A socket that listens.
    struct Door {
        explicit Door(EventLoop& loop) : stream(loop), pause(loop) {}
        Descriptor socket;
        Stream stream; // of the socket
        Timer pause;   // after a failure to accept
    };

    EventLoop& loop;
    const Arrived arrived;
    Rendezvous where;
    Door local, tcp;
    std::map<AgentLink*, Pending> pending;
    // Who has not proved anything yet: agents of the largest job that come all at once, and some
    // strangers.
    std::size_t most = 4200;

    void openTcp();
    void listen(Door& door);
    void accept(Door& door);
    void take(Descriptor socket);
    void onRecord(AgentLink* from, const AgentRecord& record);
};
