#pragma once

#include "backend/jobs/target.h"
#include "common/clientset.h"
#include "common/talconfig.h"

#include <algorithm>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
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

    /// Adds the tasks of a parallel job by the process of its launcher: from the table that
    /// launchers keep for debuggers (Open MPI's up to version 4, Slurm's), from the process tree of
    /// MPICH's, else what has a rank in its environment and runs below that process or belongs to
    /// the same job. Throws std::runtime_error when none is found.
    void addJob(pid_t launcher);
    /// Adds the tasks of the process manager of this name on this machine.
    void addManaged(const std::string& manager);
    /// Adds a task of another host, unless its rank is there already.
    void addRemote(const Target& target);
    /// How many tasks the job has, as a host tells it.
    void noteSize(int tasks) { jobSize = std::max(jobSize, tasks); }
    /// A host could not be asked for its tasks.
    void noteSilent(const std::string& host) { silent.insert(host); }

    /// A process manager on another host.
    struct Manager {
        std::string host;
        /// Of MPICH's: where its launcher listens, and its number: "host:port/1". Of Open MPI's:
        /// the job, see JobProcesses.
        std::string name;
        bool operator==(const Manager&) const = default;
    };
    /// The process managers on other hosts of the job that was added: only there can its tasks be
    /// found.
    const std::vector<Manager>& managers() const { return elsewhere; }

    /// The tasks, those with a rank in the order of their ranks.
    std::vector<Target> targets() const;
    /// How many tasks the job has; -1: not known.
    int size() const { return jobSize; }
    /// Which ranks of the job were not found and why; nothing when none is known to
    /// be missing.
    struct Shortfall {
        ClientSet ranks;
        int size = 0; // of the job
        std::string why;
        std::string str() const;
    };
    std::optional<Shortfall> shortfall() const;
    const std::vector<std::string>& notes() const { return remarks; }

    static bool isThisMachine(const std::string& host);

  private:
    const IsHere here;
    std::vector<Target> found;
    std::vector<std::string> remarks;
    std::vector<Manager> elsewhere;
    std::set<std::pair<std::string, pid_t>> known; // hosts and processes of what was found
    std::set<int> ranks;                           // of what was found
    std::set<std::string> silent;
    std::map<std::string, bool> answers; // of `here`: to find them out takes the system's time
    int jobSize = -1;

    bool isHere(const std::string& host);
    void add(const Target& target);
    bool addTable(pid_t launcher);
    bool addByManagers(const std::vector<pid_t>& processes);
    void noteManagers(const std::vector<pid_t>& processes);
    void noteManager(const Manager& manager);
    bool addByRank(const std::vector<pid_t>& processes);
    bool addNamed(const std::string& job);
};
