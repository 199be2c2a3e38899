#pragma once

#include "backend/wire/rendezvous.h"

#include <vector>

/// Which tasks of a job an agent is for. A value.
struct Rank {
    std::vector<int> numbers = {-1}; // -1: not told
    int jobSize = -1;                // how many tasks the job has; -1: not told

    /// What the rendezvous says, else what the launcher has put into this process's environment
    /// (RankVariables).
    static Rank find(const Rendezvous& where);
};
