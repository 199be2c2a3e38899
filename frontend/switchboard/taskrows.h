#pragma once

#include "backend/folding/stacktree.h"
#include "common/clientset.h"
#include "frontend/switchboard/owncommand.h"
#include "frontend/switchboard/switchboard.h"

#include <string>
#include <vector>

/// The answers that the session knows without its debuggers, as rows about clients.
namespace TaskRows {

/// Whether a line, "vex who", asks for such an answer and for nothing else.
bool answers(OwnCommand::Name what, const std::string& line);
std::vector<StackTree::Row> of(OwnCommand::Name what, const ClientSet& members,
                               Switchboard::Outlet& outlet);

} // namespace TaskRows
