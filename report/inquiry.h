#pragma once

#include "common/data.h"
#include "report/conversation.h"
#include "report/findings.h"

#include <chrono>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

/// Finds out by the commands of a console how a job stands: runs it where that is the task, until
/// something goes wrong or the time is up, and looks. One thread; carryOut waits.
class Inquiry {
  public:
    enum Way { RUN, LOOK, JOIN };
    struct Plan {
        /// RUN: the tasks of the session have not run yet. JOIN: others use the session, which
        /// stays as it is.
        Way way = RUN;
        /// Seconds that the tasks run at most; 0: as long as they want.
        int timeout = 0;
        /// Where what the tasks say is shown at once.
        std::FILE* echo = stdout;
    };

    Inquiry(Conversation& conversation, const Plan& plan);

    /// The session may end meanwhile: then the findings are what was found so far.
    const Findings& carryOut();
    /// When the tasks were looked at; nothing when they were not.
    std::optional<std::chrono::system_clock::time_point> lookedAt() const { return looked; }

  private:
    using Clock = Conversation::Clock;
    struct Answer {
        bool complete = false;
        int error = 0; // of a command that was refused
        std::vector<Row> rows;
    };

    Conversation& session;
    const Plan plan;
    // Of this report alone: the session may be that of others, who have groups of their own.
    const std::string group;
    Findings found;
    std::optional<std::chrono::system_clock::time_point> looked;
    bool running = false; // commands that let tasks run have not all ended
    bool hurried = false; // a signal has come
    std::optional<Clock::time_point> stopAt;
    ClientSet busy;      // tasks that cannot be stopped
    ClientSet suspended; // tasks that go on without the signal that they stand at

    void run();
    void stopAll();
    void look();
    void judge(const ClientSet& stopped);
    ClientSet passOn(const ClientSet& stopped);
    void noteDetails(const ClientSet& clients);
    void crashSeen();
    void letGoOn(const ClientSet& clients, const std::string& command);
    Answer ask(const ClientSet& clients, const std::string& command);
    Answer askGroup(const std::string& group, const std::string& command);
    void learn(const Data& data);
    void onSignal(int number);
    ClientSet idleOf(const ClientSet& clients);
    bool gather(const ClientSet& clients);
    bool stillRuns();
};
