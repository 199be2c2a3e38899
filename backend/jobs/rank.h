#pragma once

#include "backend/wire/rendezvous.h"

/// Which task of the job an agent is for.
struct Rank {
    int rank = -1; // -1: nobody has told
    int size = -1;

    /// What the rendezvous says, else what the launcher has put into the environment: Open MPI's,
    /// MPICH's (PMI) or Slurm's variables.
    static Rank find(const Rendezvous& where);
};
