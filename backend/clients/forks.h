#pragma once

#include "backend/os/clock.h"
#include "backend/os/eventloop.h"

#include <deque>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <utility>

/// Finds what the tasks fork, and decides which of it is debugged: a child of a debugger's own
/// process that lives and that, a moment after that debugger has let go of it, still executes the
/// same file. What has become another program by then, a shell's command say, is left alone. One
/// thread.
class Forks {
  public:
    struct Child {
        int parent = -1; // the client whose task has forked it
        pid_t pid = 0;
    };
    class Owner {
      public:
        virtual ~Owner() = default;
        /// Starts a debugger for the child and gives the number of the new client; throws
        /// std::exception when that cannot be.
        virtual int adopt(const Child& child) = 0;
        /// Something for the user to know about the children of a client.
        virtual void tellOfForks(int parent, const std::string& text) = 0;
    };

    /// The mark is what debuggers print in front of a child's process id, empty to look for none;
    /// at most `limit` children are debugged at a time. Children that lose their parent come to the
    /// process `reaper`. The owner must outlive this.
    Forks(EventLoop& loop, Owner& owner, std::string mark, std::size_t limit, pid_t reaper);

    /// What a client printed; `debugger` is its debugger's process.
    void heard(int client, pid_t debugger, std::string_view text);
    /// The start of the debugger of an adopted child is over.
    void started(int client);
    /// The client's debugger has ended.
    void ended(int client);
    /// Says that a child is not debugged, and why: each reason once for the client that forked it.
    void refuse(const Child& child, const std::string& reason);
    /// Adopts no child any more.
    void stop();

  private:
    /// A child that was seen, and what must still hold of it when it is looked at again.
    struct Seen {
        Child child;
        unsigned long long start;
        std::string executable;
        pid_t debugger; // of its parent: may hold it still
        Clock::time_point until;
        Clock::duration pause{}; // since the look that found it held; none: it was not
    };

    Owner& owner;
    const std::string mark;
    const std::size_t limit;
    const pid_t reaper;
    Timer timer;
    std::map<int, std::string> tails; // of each client's output: may hold the beginning of a mark
    std::deque<Seen> seen;            // by `until`
    std::deque<Child> wanted;
    std::map<int, Child> clients;
    std::set<int> starting;
    std::set<std::pair<int, std::string>> told;
    bool stopped = false;

    void see(const Child& child, pid_t debugger);
    void await(Seen child);
    void wait();
    void look();
    static bool lookAgain(Seen& child);
    void next();
};
