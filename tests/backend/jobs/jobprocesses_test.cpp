#include "backend/jobs/jobprocesses.h"
#include "tests/support/tempdir.h"
#include "tests/support/testing.h"

namespace {

// A folder that shows processes as /proc does.
class MadeUpProc {
  public:
    void add(pid_t pid, pid_t parent, const std::string& environment, int start = 0,
             char state = 'S') const {
        std::string bytes = environment + " ";
        std::ranges::replace(bytes, ' ', '\0');
        const std::string own = std::to_string(pid);
        std::filesystem::create_directory(folder.path(own));
        folder.write(own + "/environ", bytes);
        std::string stat = own + " (a) b) " + state + " " + std::to_string(parent);
        for (int field = 5; field < 22; ++field)
            stat += " 9";
        folder.write(own + "/stat", stat + " " + std::to_string(start) + " 9");
    }
    std::string tasksOf(const std::string& job) const {
        const JobProcesses::Job found = JobProcesses::find(job, folder.path());
        std::string text = std::to_string(found.size) + ":";
        for (const auto& task : found.tasks)
            text += " " + std::to_string(task.rank) + "=" + std::to_string(task.pid);
        return text;
    }
    std::string nameOf(pid_t pid) const { return JobProcesses::nameOf(pid, folder.path()); }

  private:
    const TempDir folder;
};

std::string openMpi(const std::string& space, int rank, int size = 4) {
    return "OMPI_COMM_WORLD_RANK=" + std::to_string(rank) +
           " OMPI_COMM_WORLD_SIZE=" + std::to_string(size) + " PMIX_NAMESPACE=" + space +
           " PMIX_RANK=" + std::to_string(rank);
}

TEST(JobProcesses, FindsTheTasksOfOneJobByTheirEnvironment) {
    const MadeUpProc proc;
    proc.add(10, 1, "HOME=/x");
    proc.add(21, 10, openMpi("run-a-7@1", 1));
    proc.add(20, 10, openMpi("run-a-7@1", 0));
    proc.add(22, 21, openMpi("run-a-7@1", 1));         // what task 1 has started
    proc.add(23, 1, openMpi("run-a-7@1", 1), 5);       // the same, its parent gone
    proc.add(24, 10, openMpi("run-a-7@1", 3), 0, 'Z'); // a task that has ended
    proc.add(30, 10, openMpi("run-a-71@1", 2));        // another launcher's
    proc.add(31, 20, openMpi("run-a-7@2", 2, 1));      // started by MPI_Comm_spawn
    proc.add(40, 10, "SLURM_PROCID=5 SLURM_JOB_ID=7 SLURM_STEP_ID=0 SLURM_NTASKS=6");
    proc.add(41, 10, "SLURM_PROCID=4 SLURM_JOB_ID=7 SLURM_STEP_ID=1 SLURM_NTASKS=6");
    proc.add(42, 10, "SLURM_PROCID=4 SLURM_JOB_ID=7"); // no step: a shell of the allocation
    proc.add(50, 10, "PMI_RANK=0 PMI_SIZE=2 PMI_JOBID=x SLURM_JOB_ID=7 SLURM_STEP_ID=0");
    proc.add(51, 10, "PMI_RANK=0 PMI_SIZE=2 SLURM_PROCID=0 SLURM_JOB_ID=7 SLURM_STEP_ID=0");
    const std::pair<const char*, const char*> cases[] = {
        {"PMIX_NAMESPACE=run-a-7@1", "4: 0=20 1=21"},
        {"PMIX_NAMESPACE=run-a-7@2", "1: 2=31"},
        {"PMIX_NAMESPACE=run-a-7", "-1:"},
        {"PMIX_NAMESPACE=run-a-71@", "4: 2=30"},
        {"SLURM_JOB_ID=7 SLURM_STEP_ID=0", "6: 5=40"},
        {"PMI_JOBID=x", "2: 0=50"},
        {"", "-1:"},
    };
    for (const auto& [job, tasks] : cases)
        EXPECT_EQ(proc.tasksOf(job), tasks) << job;
    const std::pair<pid_t, const char*> names[] = {{20, "PMIX_NAMESPACE=run-a-7@1"},
                                                   {41, "SLURM_JOB_ID=7 SLURM_STEP_ID=1"},
                                                   {42, ""},
                                                   {51, ""},
                                                   {10, ""},
                                                   {99, ""}};
    for (const auto& [pid, name] : names)
        EXPECT_EQ(proc.nameOf(pid), name) << pid;
}

TEST(JobProcesses, ReadsTheLaunchersWords) {
    using Words = std::vector<std::string>;
    const std::pair<Words, int> sizes[] = {
        {{"mpirun", "-np", "4", "./a", "-n", "100"}, 4},
        {{"mpirun", "--host", "a,b", "./a", "-n", "100"}, -1},
        {{"mpirun", "--mca", "x", "y", "-n", "2", "./a", ":", "-n", "3", "./b"}, 5},
        {{"srun", "--ntasks"}, -1},
        {{"mpirun", "-n", "many", "./a"}, -1},
    };
    for (const auto& [words, size] : sizes)
        EXPECT_EQ(JobProcesses::sizeIn(words), size) << words.back();
    const auto daemon = [](const Words& words) {
        const auto found = JobProcesses::daemonIn(words);
        return found ? found->host + " " + found->job : "";
    };
    const std::string expected = "node2 PMIX_NAMESPACE=prterun-a-7@";
    EXPECT_EQ(daemon({"ssh", "-x", "node2",
                      "X=/usr;export X;/usr/bin/prted --prtemca ess "
                      "\"env\" --prtemca ess_base_nspace \"prterun-a-7@0\" -x"}),
              expected);
    EXPECT_EQ(daemon({"ssh", "node2", "prted", "--prtemca", "ess_base_nspace", "prterun-a-7@0"}),
              expected);
    EXPECT_EQ(daemon({"prted", "--prtemca", "ess_base_nspace", "prterun-a-7@0"}), "");
    EXPECT_EQ(daemon({"ssh", "node2", "/usr/bin/prted", "--daemonize"}), "");
}

} // namespace
