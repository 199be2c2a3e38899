#include "agent/rank.h"

#include "backend/os/rankvariables.h"

#include <cstdlib>

Rank Rank::find(const Rendezvous& where) {
    if (where.rank != -1) return {where.rank, where.size};
    for (const auto& names : RankVariables::all) {
        const Rank rank{RankVariables::valueOf(std::getenv(names.rank)),
                        RankVariables::valueOf(std::getenv(names.jobSize))};
        if (rank.number >= 0 && rank.jobSize > 0) return rank;
    }
    return {};
}
