#pragma once

#include "backend/os/eventloop.h"

#include <chrono>
#include <sys/types.h>
#include <vector>

/// The end of the debuggers below this process. Tasks that were there before their debuggers run on
/// after them, without breakpoints, so debuggers get time to let go of them; a killed debugger
/// would leave its breakpoints behind. One policy, in a form for the event loop and a blocking one:
/// 3 s for the debuggers, which were told to let go before; then the tasks that are still held are
/// stopped, and their debuggers get 3 s more; then everything below this process is killed, and the
/// stopped tasks go on. Where the debuggers are below other processes, the owner says what is held
/// and kills. One thread.
class Detachment {
  public:
    /// An object that has debuggers to end.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// Whether a debugger still runs, or whatever else is waited for.
        virtual bool detaching() const = 0;
        /// The tasks that debuggers hold and that are no descendants of theirs.
        virtual std::vector<pid_t> heldTasks() const;
        /// Kills what is left; time is up, or nothing is waited for any more. Once, before
        /// onDetached.
        virtual void killRest();
        /// Called once.
        virtual void onDetached() = 0;
    };

    /// The owner must outlive this.
    Detachment(EventLoop& loop, Owner& owner);

    /// The debuggers were told to let go.
    void begin();
    /// Something has ended.
    void look();

    /// The same without a loop, for the reaper (PR_SET_CHILD_SUBREAPER) of a process that has ended
    /// and whose debuggers were told to let go by that. Waits only where a task is held, or, when
    /// `patient`, where anything is left. Reaps all children of this process.
    static void complete(bool patient);

  private:
    /// The policy: what happens when time is up.
    class Rounds {
      public:
        static constexpr std::chrono::seconds length{3};

        Rounds() = default;
        /// The tasks that were stopped go on.
        ~Rounds();
        Rounds(const Rounds&) = delete;
        Rounds& operator=(const Rounds&) = delete;

        /// Stops the tasks that are held still, for the second and last round.
        void stop(std::vector<pid_t> tasks);
        bool last() const { return second; }
        /// The tasks that were stopped go on.
        void resumeTasks();

      private:
        std::vector<pid_t> stopped;
        bool second = false;
    };

    Owner& owner;
    Timer timer;
    Rounds rounds;
    bool begun = false; // and not over

    static void completeOnce(bool patient);
    void wait();
    void finish();
};
