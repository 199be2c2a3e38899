#pragma once

#include "backend/os/eventloop.h"

#include <chrono>
#include <map>
#include <sys/types.h>
#include <vector>

/// The end of the debuggers below this process. Tasks that were there before their debuggers run on
/// after them, without breakpoints, so debuggers get time to let go of them; a killed debugger
/// would leave its breakpoints behind. One policy, in a form for the event loop and a blocking one:
/// 3 s for the debuggers, which were told to let go before; then the tasks that are still held are
/// stopped, and their debuggers get 3 s more; then everything below this process is killed, and the
/// tasks that were stopped, or lost their debugger so, go on. Nothing is killed while a task is
/// held before that, by whose debugger ever. Where the debuggers are below other processes, the
/// owner says what is held and kills. One thread.
class Detachment {
  public:
    /// How long a debugger takes, at most, to stop its task by a SIGINT. A second one within that
    /// time could stay with the task, and end it once its debugger has let go.
    static constexpr std::chrono::seconds stopping{1};

    /// An object that has debuggers to end.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// Whether a debugger still runs, or whatever else is waited for.
        virtual bool detaching() const = 0;
        /// The tasks that debuggers hold and that are no descendants of theirs.
        virtual std::vector<pid_t> heldTasks() const;
        /// Kills what is left; time is up, or nothing is waited for any more. Once, before
        /// onDetached. Need not wait until it is dead.
        virtual void killRest();
        /// The tasks that go on run. Called once.
        virtual void onDetached() = 0;
    };

    /// The owner must outlive this.
    Detachment(EventLoop& loop, Owner& owner);

    /// The debuggers were told to let go.
    void begin();
    /// Something has ended.
    void look();

    /// The same without a loop, for the reaper (PR_SET_CHILD_SUBREAPER) of a process that has ended
    /// and whose debuggers were told to let go by that. Reaps all children of this process.
    struct Rest {
        bool patient = false;        // wait where anything is left, not only where a task is held
        pid_t except = -1;           // a child that lives on, with all that is below it
        std::vector<pid_t> ran = {}; // tasks that ran before: they do in the end, whoever had
                                     // stopped them for their debuggers and was killed
    };
    static void complete(const Rest& rest);

  private:
    /// The policy: what happens when time is up.
    class Rounds {
      public:
        static constexpr std::chrono::seconds length{3};

        /// How long, and how often, to see whether tasks run that are to go on.
        static constexpr std::chrono::milliseconds pause{10};
        static constexpr int looks = 500;

        Rounds() = default;
        /// The tasks go on.
        ~Rounds();
        Rounds(const Rounds&) = delete;
        Rounds& operator=(const Rounds&) = delete;

        /// Stops the tasks that are held still, for the second and last round.
        void stop(const std::vector<pid_t>& tasks);
        bool last() const { return second; }
        /// These are to go on, too.
        void add(const std::vector<pid_t>& tasks);
        /// Lets the tasks go on, each as soon as no debugger has it; whether all run.
        bool resumeTasks();

      private:
        std::map<pid_t, bool> waiting; // tasks, and whether each was told to go on
        bool second = false;
    };

    Owner& owner;
    Timer timer;
    Rounds rounds;
    bool begun = false; // and not over

    static void completeOnce(const Rest& rest);
    void wait();
    void finish();
    void resume(int looks);
};
