#pragma once

#include "backend/folding/stacktree.h"
#include "backend/os/eventloop.h"
#include "common/clientset.h"
#include "common/command.h"
#include "mpitrace/mpistate.h"

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

/// The commands of consoles that want to know who waits for whom in MPI: wait here while the tasks
/// are looked at twice, so that a task that goes on is not taken for one that hangs. No debugger is
/// asked. One thread.
class WaitQueries {
  public:
    class Owner {
      public:
        virtual ~Owner() = default;
        /// Asks the agents; gives how many will answer.
        virtual int askMpiStates() = 0;
        /// The tasks that have not ended.
        virtual ClientSet mpiTasks() const = 0;
        /// What a task does, or did when its agent was asked.
        virtual MpiState mpiState(int task) const = 0;
        /// Where a task that stands still has stopped; empty: it is not known.
        virtual std::string placeOf(int task) const = 0;
        /// All tasks were looked at, or a moment has passed: `rows` tells.
        virtual void onWaitsKnown(int console, const Command& command) = 0;
    };

    /// The owner must outlive this.
    WaitQueries(EventLoop& loop, Owner& owner);

    void want(int console, const Command& command);
    /// The console waits for its answer no longer.
    void forget(int console);
    /// An agent has answered, or will not.
    void answered();
    /// Who waits for whom.
    std::vector<StackTree::Row> rows() const;

  private:
    enum Phase { IDLE, FIRST, BETWEEN, SECOND };

    Owner& owner;
    Phase phase = IDLE;
    std::vector<std::pair<int, Command>> waiting;
    int due = 0;                                  // answers
    std::unordered_map<int, std::uint64_t> calls; // of each task at the first look
    Timer patience;

    void look(Phase which);
    void looked();
};
