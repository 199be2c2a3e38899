#include "agent/rank.h"

#include "backend/os/rankvariables.h"

#include <cstdlib>

Rank Rank::find(const Rendezvous& where) {
    if (!where.ranks.empty()) return {where.ranks, where.size};
    for (const auto& names : RankVariables::all) {
        const int number = RankVariables::valueOf(std::getenv(names.rank));
        const int jobSize = RankVariables::valueOf(std::getenv(names.jobSize));
        if (number >= 0 && jobSize > 0) return {{number}, jobSize};
    }
    return {};
}
