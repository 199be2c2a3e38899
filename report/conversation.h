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
        enum Kind { TEXT, READY, SIGNAL, FORKED, TIME } kind = TIME;
        Data data = {}; // of TEXT
        int signal = 0;
        int client = -1; // of FORKED: a new one
    };

    /// `starter`: the process that has to live for a session to come, -1: unknown. Throws Error.
    Conversation(int session, pid_t starter);
    ~Conversation();

    /// Waits for the number that the session gives, which it does once it serves. At a signal,
    /// `starter`, which has started the session, is told to have it serve at once; gives back the
    /// signal, 0: none came. Throws Error when the session has no room, and when it does not serve
    /// in spite of that; without a starter (-1), at once.
    int begin(pid_t starter);
    int number() const { return id; }
    /// What comes next; TIME: nothing did until then.
    Heard hear(std::optional<Clock::time_point> until);
    /// Whether something has come that was not heard yet: what a request waited for comes behind.
    bool hasMore() const { return !waiting.empty(); }

    /// Has clients carry out a command. Nothing: they do; else the number of the message by which
    /// it was refused, 0: of none. READY tells that a command has ended, but not which one: where
    /// others may be under way, ask for the clients at work.
    std::optional<int> command(const std::string& group, const std::string& text);
    void interrupt(const std::string& group);
    void quit();
    /// Makes a group; false: the session has refused it.
    bool assign(const std::string& group, const ClientSet& clients);
    void forget(const std::string& group, const ClientSet& clients);
    /// The clients of a group; none: there is no such group.
    ClientSet members(const std::string& group);
    /// The clients that still carry out commands of this console.
    ClientSet atWork();
    /// From now on a READY comes when all of those have done so, and not only the last command's.
    void awaitAll();

  private:
    UnixSocket socket;
    Descriptor signals;
    int id = 0;
    std::deque<Heard> waiting;

    void send(Command::Type type, const std::string& group, const char* text, int length);
    void sendGroup(GroupCommand::Type type, const std::string& group, const ClientSet& clients);
    struct Settled {
        std::optional<int> failure; // the number of the last request's that has failed
        ClientSet members;          // of the group that was asked for
        ClientSet all;
    };
    Settled settle(bool alone = false);
    std::optional<Reply> read();
    int takeSignal();
};
