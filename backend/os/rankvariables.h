#pragma once

#include <sys/types.h>

/// The environment variables by which the launchers of parallel jobs tell each task its rank.
namespace RankVariables {

struct Names {
    const char* rank;
    const char* jobSize; // how many tasks the job has
};

/// In the order in which they count: Open MPI's, MPICH's (PMI), then Slurm's. An MPI's own come
/// before Slurm's since its launcher may itself run in a step of Slurm's.
constexpr Names all[] = {
    {"OMPI_COMM_WORLD_RANK", "OMPI_COMM_WORLD_SIZE"},
    {"PMI_RANK", "PMI_SIZE"},
    {"PMIX_RANK", "SLURM_STEP_NUM_TASKS"},
    {"SLURM_PROCID", "SLURM_STEP_NUM_TASKS"},
    {"SLURM_PROCID", "SLURM_NTASKS"},
};

/// A rank or a size as a variable holds it; -1 for a null pointer and for what is no number from 0
/// up.
int valueOf(const char* text);
/// The rank in the environment that a process was started with; -1: there is none.
int rankOf(pid_t process);

} // namespace RankVariables
