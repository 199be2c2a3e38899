#pragma once

#include "backend/jobs/target.h"
#include "common/talconfig.h"

#include <functional>
#include <string>
#include <vector>

/// Finds the tasks of a job that runs already. Its notes tell the user what it leaves out.
class RunningJob {
  public:
    /// Whether a name or address of a host stands for this machine.
    using IsHere = std::function<bool(const std::string& host)>;

    explicit RunningJob(IsHere isHere = isThisMachine) : here(std::move(isHere)) {}

    /// Adds processes by their ids. Throws std::runtime_error for a process that is named twice.
    void addPids(const std::vector<pid_t>& pids);
    /// Adds the entries of an attach file that have a process.
    void addEntries(const TALConfig& config);

    /// Adds the tasks of a parallel job by the process of its launcher: from the table that Open
    /// MPI's and Slurm's keep for debuggers, from the process tree of MPICH's, else what runs below
    /// that process and has a rank in its environment. Throws std::runtime_error when none is
    /// found.
    void addJob(pid_t launcher);
    /// Adds the tasks of the process manager of this name on this machine.
    void addManaged(const std::string& manager);
    /// Adds a task of another host.
    void addRemote(const Target& target) { add(target); }

    /// A process manager of MPICH's on another host.
    struct Manager {
        std::string host;
        std::string name; // where its launcher listens, and its number: "host:port/1"
        bool operator==(const Manager&) const = default;
    };
    /// The process managers on other hosts of the job that was added: they alone know their tasks.
    const std::vector<Manager>& managers() const { return elsewhere; }

    /// The tasks, those with a rank in the order of their ranks.
    std::vector<Target> targets() const;
    const std::vector<std::string>& notes() const { return remarks; }

    static bool isThisMachine(const std::string& host);

  private:
    const IsHere here;
    std::vector<Target> found;
    std::vector<std::string> remarks;
    std::vector<Manager> elsewhere;

    void add(const Target& target);
    bool addTable(pid_t launcher);
    bool addByManagers(const std::vector<pid_t>& processes);
    void noteManagers(const std::vector<pid_t>& processes);
    bool addByRank(const std::vector<pid_t>& processes);
};
