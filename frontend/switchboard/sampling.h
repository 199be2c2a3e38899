#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/node.h"
#include "backend/folding/stacktree.h"
#include "backend/folding/statreport.h"
#include "backend/os/clock.h"
#include "common/clientset.h"

#include <chrono>
#include <optional>
#include <string>

/// The samples of "vex stat -t": looks at the stacks of all clients again and again, lets tasks run
/// for a moment in between, and finds out whose stacks have changed.
///
/// Only tasks run that stand where an interrupt has stopped them, and they are interrupted again: a
/// task that has stopped by itself, at a breakpoint, say, could not be brought back there. One that
/// stops by itself while it runs does not run again.
///
/// Does no I/O: is told what the clients have answered and at what time, and has them go on through
/// its Hands. A step is over when all that were told to do it have answered.
class Sampling {
  public:
    struct Options {
        int samples = 0;
        std::chrono::milliseconds pause{0}; // between two samples; 0: the usual one
    };
    static constexpr int maxSamples = 1000;
    static constexpr std::chrono::milliseconds usualPause{1000}, minPause{100}, maxPause{3600000};

    /// Does what the samples need; must not call back.
    class Hands {
      public:
        virtual ~Hands() = default;
        /// The clients, which have answered, begin with a step of the work: a line is typed at
        /// them.
        virtual void take(const ClientSet& clients, const Work& work, const std::string& line,
                          Clock::time_point now) = 0;
        /// Interrupts those of them that have not answered.
        virtual void stop(const ClientSet& clients, Clock::time_point now) = 0;
    };

    /// The driver must outlive this, and must know the commands of brief runs.
    Sampling(const Options& wanted, const Driver& kind);

    /// The first step begins: the clients have been given `work` and were typed `firstLine`.
    void begin(const ClientSet& clients) { members = awaited = clients; }
    std::string firstLine() const { return driver.standingCommand(); }
    /// Fills in what a work is told of the step.
    Work of(Work work) const;
    /// Whether what clients print is for the user.
    bool shows() const { return step == RUNNING || step == STOPPING; }

    /// The work is that of the request, whose clients have answered the step's line.
    void answered(const ClientSet& clients, const Work& work, Hands& hands, Clock::time_point now);
    /// What a client has answered when it was asked how its task stands.
    void standing(int client, const std::string& text);
    void stacks(const StackTree& tree) { current.add(tree); }
    /// The client is there no more.
    void gone(int client, const Work& work, Hands& hands, Clock::time_point now);
    /// No task runs any more, and there is no further sample.
    void cancel(Hands& hands, Clock::time_point now);
    /// When to call tick; nothing: not before something else has happened.
    std::optional<Clock::time_point> due() const { return deadline; }
    /// Whether tasks are from now on to stop that have run so far.
    bool tick(Hands& hands, Clock::time_point now);

    bool runs() const { return step == RUNNING; }
    bool over() const { return step == OVER; }
    /// Those that have not answered the step's line.
    const ClientSet& awaits() const { return awaited; }
    /// Gives the last sample and what was found out to a report.
    void tell(StatReport& report) const;

  private:
    enum Step { ASKING, LOOKING, RUNNING, STOPPING, OVER };

    Options options;
    const Driver& driver;
    Step step = ASKING;
    ClientSet members;
    ClientSet awaited;
    ClientSet runners; // those that may run when the next sample has been taken
    ClientSet ran;     // those that have run since the last one
    StackTree latest;  // the last sample, and the one that is being taken
    StackTree current;
    StatReport::Moves found;
    bool cancelled = false;
    std::optional<Clock::time_point> deadline;

    void goOn(const Work& work, Hands& hands, Clock::time_point now);
    void look(const Work& work, Hands& hands, Clock::time_point now);
    void run(const Work& work, Hands& hands, Clock::time_point now);
    void stop(Hands& hands, Clock::time_point now);
    void compare();
};
