#pragma once

#include "common/data.h"
#include "report/conversation.h"
#include "report/findings.h"
#include "report/forkedworkers.h"
#include "report/questions.h"

#include <chrono>
#include <cstdio>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

/// Finds out by the commands of a console how a job stands: runs it where that is the task, until
/// something goes wrong or the time is up, and looks. One thread; carryOut waits.
class Inquiry : private Questions::Owner {
  public:
    enum Way { RUN, LOOK, CORES, JOIN };
    struct Plan {
        /// RUN: the tasks of the session have not run yet. CORES: they are core files. JOIN: others
        /// use the session, which stays as it is.
        Way way = RUN;
        /// Seconds that the tasks run at most; 0: as long as they want.
        int timeout = 0;
        /// The signal that came before all debuggers had started; 0: none did.
        int signal = 0;
        /// Processes that tasks fork get no debugger.
        bool forksRunFree = false;
        /// What could not be done before there was a session.
        std::vector<std::string> notes = {};
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

    Conversation& session;
    const Plan plan;
    Questions questions;
    Findings found;
    std::optional<std::chrono::system_clock::time_point> looked;
    bool running = false; // commands that let tasks run have not all ended
    bool hurried = false; // a signal has come
    std::optional<Clock::time_point> stopAt;
    std::map<std::pair<int, int>, int> passes; // by client and signal
    ClientSet suspended; // tasks that go on without the signal that they stand at
    ClientSet fresh;     // forked, and not let go on yet
    ForkedWorkers workers;

    void run();
    void stopAll(const ClientSet& stopped);
    void look();
    void judge(const ClientSet& stopped);
    ClientSet passOn(const ClientSet& stopped);
    void passUnseen(const ClientSet& passed);
    std::string faultOf(int client) const;
    void noteDetails(const ClientSet& clients);
    void crashSeen();
    void letGoOn(const ClientSet& clients, const std::string& command);
    bool stillRuns();
    ClientSet everyone() const;

    // Questions::Owner
    void onText(const Data& data) override;
    void onForked(int client) override;
    void onSignal(int number) override;
    void onSilent(const ClientSet& clients, const std::string& question,
                  std::chrono::seconds time) override;
    void onForeign(const ClientSet& clients) override;
};
