#pragma once

#include "backend/os/eventloop.h"
#include "common/clientset.h"
#include "frontend/session/options.h"

#include <string>
#include <vector>

/// The tasks of which a session has no debugger from its start on, and why. At a report, nobody may
/// be there to give the start up: then this tells its owner when debuggers have been waited for
/// long enough. One thread.
class StartLosses {
  public:
    class Owner {
      public:
        virtual ~Owner() = default;
        /// In so many seconds, none of those that are waited for has come; `again`: nor in the same
        /// time before. 0 seconds: the others are not waited for any more.
        virtual void onStandstill(int seconds, bool again) = 0;
    };
    struct Row {
        std::string why;
        ClientSet tasks;
        bool ofDebugger = false; // it is at fault, not the way to the task
        bool operator==(const Row&) const = default;
    };

    /// The options and the owner must outlive this.
    StartLosses(EventLoop& loop, const Options& options, Owner& owner);

    /// Debuggers are waited for from now on; again, when one has come or will not.
    void wait(bool again = false);
    void end() { timer.cancel(); }
    /// Nobody is waited for any more.
    void cutShort();
    bool isCut() const { return cut; }

    void add(const Row& row);
    /// Some did not come in time; 0 seconds: before cutShort.
    void giveUp(const ClientSet& tasks, int seconds);
    /// These have come, before the start was over. Gives those that had been given up; then the
    /// others are waited for anew.
    ClientSet arrived(const ClientSet& tasks);
    /// Whether the start was cut short, or some were given up that have not come since.
    bool gaveUp() const { return cut || !inVain.empty(); }

    /// Of the ranks that are missing; where ranks are not known, of the numbers of the tasks.
    std::vector<Row> rows() const;

  private:
    const Options& options;
    Owner& owner;
    std::vector<Row> known; // by tasks
    ClientSet inVain;       // given up
    bool cut = false;
    Timer timer;
};
