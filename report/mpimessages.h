#pragma once

#include "common/clientset.h"

#include <string_view>

/// What MPI libraries say in their own words, through a task or its launcher, of those that have
/// ended their job. A value.
struct MpiMessages {
    /// The ranks that have called MPI_Abort, and those in which MPI has found an error.
    ClientSet aborts, errors;

    void add(std::string_view line);
    /// Forgets the others.
    void keepOnly(const ClientSet& clients);
};
