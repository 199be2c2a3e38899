#pragma once

#include "common/clientset.h"
#include "common/command.h"
#include "common/data.h"
#include "common/descriptor.h"
#include "common/reply.h"
#include "common/unixsock.h"

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <sys/types.h>

/// A connection to a session, which takes it for a console. Keeps to what consoles do: each READY
/// is answered at once. SIGTERM, SIGINT and SIGHUP are blocked while it lives, and heard here. One
/// thread; hear and ask wait. Throws BrokenConnection when the session has ended.
class Conversation {
  public:
    using Clock = std::chrono::steady_clock;
    struct Heard {
        enum Kind { TEXT, READY, REPLY, SIGNAL, TIME } kind = TIME;
        Data data = {};   // of TEXT
        Reply reply = {}; // of a REPLY that was not asked for
        int signal = 0;
    };

    /// `starter`: the process that has to live for a session to come, -1: unknown. Throws Error.
    Conversation(int session, pid_t starter);
    ~Conversation();

    /// Waits for the number that the session gives, which it does once it serves; false: a signal
    /// came before. Throws Error when it has no room.
    bool begin();
    int number() const { return id; }
    /// What comes next; TIME: nothing did until then.
    Heard hear(std::optional<Clock::time_point> until);

    void command(const std::string& group, const std::string& text);
    void interrupt();
    void quit();
    /// A request that has a reply.
    Reply assign(const std::string& group, const ClientSet& clients);
    Reply forget(const std::string& group, const ClientSet& clients);
    Reply query(const std::string& group);
    /// Has a READY come when all commands of this console have ended; ON_NORMAL: they have.
    Reply standIn(const std::string& group);

  private:
    UnixSocket socket;
    Descriptor signals;
    int id = 0;
    std::deque<Heard> waiting;

    void send(Command::Type type, const std::string& group, const char* text, int length);
    Reply askGroup(GroupCommand::Type type, const std::string& group, const ClientSet& clients);
    void sendGroup(GroupCommand::Type type, const std::string& group, const ClientSet& clients);
    Reply awaitReply();
    void read();
};
