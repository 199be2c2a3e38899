#include "backend/jobs/rank.h"

#include <charconv>
#include <cstdlib>
#include <string_view>

namespace {

int variable(const char* name) {
    const char* text = std::getenv(name);
    if (!text) return -1;
    const std::string_view digits = text;
    int value = -1;
    const auto [stop, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    return fault == std::errc() && stop == digits.data() + digits.size() ? value : -1;
}

} // namespace

Rank Rank::find(const Rendezvous& where) {
    if (where.rank != -1) return {where.rank, where.size};
    // The MPI's own before those of Slurm: an mpirun may itself run in a step of Slurm's.
    static constexpr const char* names[][2] = {
        {"OMPI_COMM_WORLD_RANK", "OMPI_COMM_WORLD_SIZE"},
        {"PMI_RANK", "PMI_SIZE"},
        {"PMIX_RANK", "SLURM_STEP_NUM_TASKS"},
        {"SLURM_PROCID", "SLURM_STEP_NUM_TASKS"},
        {"SLURM_PROCID", "SLURM_NTASKS"},
    };
    for (const auto& [rank, size] : names) {
        const Rank place{variable(rank), variable(size)};
        if (place.rank >= 0 && place.size > 0) return place;
    }
    return {};
}
