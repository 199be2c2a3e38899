#pragma once

#include "backend/os/childprocess.h"
#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "common/descriptor.h"

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The user's own programs that work for clients: scripts, and the programs behind the bar of a
/// command. At most one for a client; a few run at a time, the others wait their turn. Never
/// blocks. Owns the processes; each is a session of its own, so that what it starts is stopped with
/// it. One thread.
class UserPrograms {
  public:
    struct Start {
        /// For /bin/sh.
        std::string command;
        std::vector<std::pair<std::string, std::string>> environment;
        /// Its standard input.
        std::string input;
    };
    /// Hears of a client's program, from the event loop or from collect.
    class Owner {
      public:
        virtual ~Owner() = default;
        virtual void onProgramOutput(int client, std::string_view text) = 0;
        /// The program has ended by itself; the problem, or empty. The last call for this start.
        virtual void onProgramEnded(int client, const std::string& problem) = 0;
        /// Whether to go on reading. After a no, resume makes it read on.
        virtual bool mayReadProgram(int client) = 0;
    };

    /// The owner must outlive the loop's last turn.
    UserPrograms(EventLoop& loop, Owner& owner);
    ~UserPrograms();

    void start(int client, Start what);
    /// Kills the client's program, if there is one; the owner hears nothing more of it.
    void stop(int client);
    void stopAll();
    /// Reads on after mayReadProgram has said no.
    void resume();
    /// Looks which have ended; call it on SIGCHLD.
    void collect();

  private:
    struct Running;
    struct Waiting {
        int client;
        Start what;
    };

    EventLoop& loop;
    Owner& owner;
    std::deque<Waiting> waiting;
    std::map<int, std::shared_ptr<Running>> running;
    const std::size_t maxRunning;

    void startNext();
    void begin(int client, Start what);
    void waitToRead(int client, const std::shared_ptr<Running>& program);
    void waitToWrite(const std::shared_ptr<Running>& program);
    bool readSome(int client, Running& program);
};
