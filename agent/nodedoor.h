#pragma once

#include "agent/keeperrecords.h"
#include "common/descriptor.h"

#include <optional>
#include <string>
#include <sys/socket.h>

/// How the agents of a launch find each other on a host: an abstract socket (unix(7)), whose name
/// only they know beforehand. Both ends check that they belong to the same user.
namespace NodeDoor {

/// What a keeper has found: a node's agent, which has welcomed it; or nobody, then it has the
/// socket where those who come later find the node's agent that it is to start; or neither, when
/// such a socket cannot be had.
struct Found {
    Descriptor link;
    Descriptor listener; // does not block
};
/// Waits at most about ten seconds. An empty name: neither.
Found find(const std::string& name, const KeeperJoin& join);

/// Introduces a keeper over a connected socket; false when the other end does not welcome it.
bool introduce(const Descriptor& link, const KeeperJoin& join);
/// The process at the other end of a local socket; nothing when it cannot be told.
std::optional<ucred> peerOf(const Descriptor& socket);

} // namespace NodeDoor
