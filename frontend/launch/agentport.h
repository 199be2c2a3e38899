#pragma once

#include "backend/wire/agentlink.h"
#include "backend/wire/rendezvous.h"

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/local/stream_protocol.hpp>
#include <asio/steady_timer.hpp>

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
    AgentPort(asio::io_context& loop, bool local, Arrived arrived);
    ~AgentPort() { close(); }

    const Rendezvous& rendezvous() const { return where; }
    /// From now on hardly anybody comes: leaves less room to strangers.
    void expectFew() { most = 64; }
    /// Listens no more and drops who has not come through.
    void close();

  private:
    struct Pending {
        std::shared_ptr<AgentLink> link;
        asio::steady_timer patience;
        AgentRecord hello;      // as it came; its body is empty before
        std::string nonce = {}; // that it was challenged with
    };
    using Local = asio::local::stream_protocol;
    using Tcp = asio::ip::tcp;

    asio::io_context& loop;
    const Arrived arrived;
    Rendezvous where;
    Local::acceptor local;
    Tcp::acceptor tcp;
    std::map<AgentLink*, Pending> pending;
    asio::steady_timer localPause, tcpPause; // after a failure to accept
    // Who has not proved anything yet: agents of the largest job that come all at once, and some
    // strangers.
    std::size_t most = 4200;

    void openTcp();
    template <typename Acceptor>
    void accept(Acceptor& acceptor, asio::steady_timer& pause);
    void take(AgentLink::Socket socket);
    void onRecord(AgentLink* from, const AgentRecord& record);
};
