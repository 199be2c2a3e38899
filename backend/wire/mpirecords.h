#pragma once

#include "backend/wire/agentrecord.h"
#include "common/clientset.h"
#include "mpitrace/mpistate.h"

#include <utility>
#include <vector>

/// What tasks do in MPI, as an agent tells it in the body of a record MPISTATES.
namespace MpiRecords {

using States = std::vector<std::pair<int, MpiState>>;

AgentRecord states(const States& states);
/// Throws BrokenConnection, also for clients that are not known.
States statesOf(const AgentRecord& record, const ClientSet& known);

} // namespace MpiRecords
