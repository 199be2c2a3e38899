#pragma once

#include "backend/os/clock.h"
#include "backend/os/eventloop.h"

#include <deque>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

/// Finds what the tasks fork, and decides which of it is debugged: a child of a debugger's own
/// process that lives and that after a moment still executes the same file. What has become another
/// program by then, a shell's command say, is left alone. One thread.
class Forks {
  public:
    struct Child {
        int parent = -1; // the client that it was forked by
        pid_t pid = 0;
    };
    struct Handler {
        /// Starts a debugger for it and gives the number of the new client; throws
        /// std::exception when that cannot be.
        std::function<int(const Child&)> adopt;
        /// Something to know about the children of a client.
        std::function<void(int parent, const std::string& text)> tell;
    };

    /// The mark is what debuggers print in front of a child's process id, empty to look for none;
    /// at most so many children are debugged at a time.
    Forks(EventLoop& loop, Handler handler, std::string mark, std::size_t limit);

    /// What a client printed, whose debugger is this process.
    void heard(int client, pid_t debugger, std::string_view text);
    /// The start of the debugger of an adopted child is over.
    void started(int client);
    /// The client's debugger has ended.
    void ended(int client);
    /// Says that a child is not debugged, and why: each reason once for the client that forked it.
    void refuse(const Child& child, const std::string& reason);
    /// No child is taken any more.
    void stop();

  private:
    /// One that was seen, and what must hold of it still when it is looked at again.
    struct Seen {
        Child child;
        unsigned long long start;
        std::string executable;
        Clock::time_point until;
    };

    Handler handle;
    const std::string mark;
    const std::size_t limit;
    Timer timer;
    std::map<int, std::string> tails; // of each client's output: what may be cut in the mark
    std::deque<Seen> seen;
    std::deque<Child> wanted;
    std::map<int, Child> clients;
    std::set<int> starting;
    std::set<std::pair<int, std::string>> told;
    bool stopped = false;

    void see(const Child& child, pid_t debugger);
    void wait();
    void look();
    void next();
};
