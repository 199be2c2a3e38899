#pragma once

#include "backend/os/eventloop.h"
#include "common/command.h"

#include <utility>
#include <vector>

/// The commands of consoles that want to know which processes the tasks are: wait here while the
/// agents are asked. One thread.
class WhoQueries {
  public:
    class Owner {
      public:
        virtual ~Owner() = default;
        /// Asks the agents; gives how many will answer.
        virtual int askIdentities() = 0;
        /// All agents have answered, or a moment has passed.
        virtual void onIdentitiesKnown(int console, const Command& command) = 0;
    };

    /// The owner must outlive this.
    WhoQueries(EventLoop& loop, Owner& owner);

    void want(int console, const Command& command);
    /// The console waits for its answer no longer.
    void forget(int console);
    /// An agent has answered, or will not.
    void answered();

  private:
    Owner& owner;
    std::vector<std::pair<int, Command>> waiting;
    int due = 0; // answers
    Timer patience;

    void finish();
};
