#pragma once

#include "agent/keeperrecords.h"
#include "backend/clients/debuggerchild.h"
#include "backend/os/clock.h"
#include "common/descriptor.h"
#include "common/framereader.h"

#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// The process that a launcher has started for a task, as a parent of the task's debuggers and
/// nothing else: the agent of its node says what to start, is handed the terminals, and speaks with
/// the debuggers. Keeps to two descriptors and no event loop, so that it costs little. When the
/// node's agent is gone, whatever has killed it, the debuggers let go of what they attached to, and
/// everything below this process is killed. One thread.
class Keeper {
  public:
    /// Takes a link to a node's agent that has welcomed it. `nodeAgent`: that is a child of this
    /// process, which outlives it; -1: it is not.
    Keeper(Descriptor link, pid_t nodeAgent);

    /// Until the task is over; gives the exit status.
    int run();

  private:
    struct Kept {
        explicit Kept(const DebuggerStart& start) : process(start), attaches(start.attach != 0) {}
        DebuggerChild process;
        const bool attaches;
        Clock::time_point interruptedAt = {}; // last
    };

    Descriptor link;
    const Descriptor signals; // signalfd(2)
    FrameReader reader{AgentRecord::maxFrame};
    pid_t nodeAgent;                      // -1: none of ours, or it has ended
    std::map<int, Kept> debuggers;        // by their clients
    std::vector<pid_t> ran;               // what they have attached to, and was not stopped before
    std::optional<KeeperOrder> over = {}; // the FINISH

    bool receive();
    void obey(const AgentRecord& record);
    void start(const KeeperOrder& order);
    KeeperStarted tryToStart(const KeeperOrder& order);
    void onSignals();
    void collect();
    void killRest();
    int finish();
    int loseNode();
    void awaitNode();
    void send(const AgentRecord& record);
};
