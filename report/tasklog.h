#pragma once

#include "common/clientset.h"
#include "report/transcript.h"

#include <algorithm>
#include <cstddef>
#include <string>
#include <vector>

/// What has become of tasks that gdb runs, read off what it prints, and what the tasks have said
/// themselves. Does no I/O.
class TaskLog {
  public:
    struct Task {
        enum State { RUNS, STOPPED, ENDED, KILLED } state = RUNS;
        /// Of STOPPED and KILLED: "SIGSEGV", "Segmentation fault".
        std::string signal, meaning;
        /// Of ENDED.
        int status = 0;
        /// Whether it stands in a call that would end the job, and whether that is so because MPI
        /// has found an error.
        bool aborts = false, errs = false;
        bool operator==(const Task&) const = default;
    };

    explicit TaskLog(int tasks) : known(static_cast<std::size_t>(tasks)) {}

    /// From now on, of so many: others were forked.
    void grow(int tasks) { known.resize(std::max(known.size(), static_cast<std::size_t>(tasks))); }

    /// A line of the answers to the commands that let tasks run; whether the tasks have said it,
    /// not their debuggers.
    bool add(const ClientSet& from, const std::string& line);
    /// The clients whose tasks have stopped by a signal since the last call.
    ClientSet takeStopped();
    /// The clients are let run again.
    void goOn(const ClientSet& clients);

    int tasks() const { return static_cast<int>(known.size()); }
    const Task& of(int client) const { return known[static_cast<std::size_t>(client)]; }
    /// The clients whose tasks are in the state.
    ClientSet in(Task::State state) const;
    /// The last lines that each task has said.
    std::vector<Transcript::Part> lastLines() const { return output.parts(); }

  private:
    static constexpr std::size_t kept = 20; // lines of a task

    std::vector<Task> known; // by client
    ClientSet fresh;
    Transcript output{kept};

    void each(const ClientSet& clients, const Task& now);
};
