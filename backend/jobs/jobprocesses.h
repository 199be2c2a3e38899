#pragma once

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// The tasks of a parallel job on one host, found by what their launcher has put into their
/// environment, wherever they stand in the tree of processes. The same on any host of the job.
namespace JobProcesses {

/// A job by the variables that all its tasks share and no task of another job has, one blank
/// between them: "PMIX_NAMESPACE=prterun-node1-4711@1", "SLURM_JOB_ID=7 SLURM_STEP_ID=0". A value
/// that ends with "@" stands for all namespaces that begin so: what one launcher has started.
using Name = std::string;

struct Task {
    int rank = -1;
    pid_t pid = 0;
    bool operator==(const Task&) const = default;
};
struct Job {
    std::vector<Task> tasks; // of one host, by their ranks, each rank once
    int size = -1;           // of the whole job; -1: no task tells it
};

/// The name of the job to which a process belongs; empty: none is known. `proc` is where the system
/// shows processes.
Name nameOf(pid_t process, const std::string& proc = "/proc");
/// The tasks of a job among the processes of this user. What a task has started has the task's
/// environment, and is none.
Job find(const Name& job, const std::string& proc = "/proc");
/// How many tasks the job of a process has; -1: it does not tell.
int sizeOf(pid_t process, const std::string& proc = "/proc");
/// How many tasks a launcher starts, by its command line: "mpirun -n 2 a : -np 3 b"; -1: it does
/// not tell.
int sizeIn(const std::vector<std::string>& words);

/// Another host of a job, by the command line of a login that has started Open MPI's daemon there
/// (prted): the host, and the launcher's namespaces. Nothing when it is none.
struct Daemon {
    std::string host;
    Name job;
};
std::optional<Daemon> daemonIn(const std::vector<std::string>& words);

} // namespace JobProcesses
