#pragma once

#include "backend/os/childprocess.h"
#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "common/descriptor.h"

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The user's own programs that work for clients: scripts, and what stands behind the bar of a
/// command. At most one for a client; a few run at a time, the others wait their turn. Never
/// blocks. Owns the processes; each is a session of its own, so that what it starts is stopped with
/// it. One thread; the handlers run from the event loop, or from collect.
class UserPrograms {
  public:
    struct Start {
        /// For /bin/sh.
        std::string command;
        std::vector<std::pair<std::string, std::string>> environment;
        /// Its standard input.
        std::string input;
    };
    struct Handler {
        std::function<void(int client, std::string_view text)> output;
        /// It has ended by itself; empty, or what went wrong. The last call for this start.
        std::function<void(int client, const std::string& problem)> ended;
        /// Whether to go on reading; when not, resume begins again.
        std::function<bool(int client)> mayRead;
    };

    UserPrograms(EventLoop& loop, Handler handler);
    ~UserPrograms();

    void start(int client, Start what);
    /// Kills it, without a further call of a handler. Nothing when there is none.
    void stop(int client);
    void stopAll();
    /// Reads on after mayRead has said no.
    void resume();
    /// Looks which have ended; call it on SIGCHLD.
    void collect();
    /// Adds the ids of the processes.
    void listPids(std::vector<pid_t>& pids) const;

  private:
    struct Running;
    struct Waiting {
        int client;
        Start what;
    };

    EventLoop& loop;
    Handler handle;
    std::deque<Waiting> waiting;
    std::map<int, std::shared_ptr<Running>> running;
    const std::size_t most;

    void startNext();
    void begin(int client, Start what);
    void waitToRead(int client, const std::shared_ptr<Running>& helper);
    void waitToWrite(const std::shared_ptr<Running>& helper);
    bool readSome(int client, Running& helper);
};
