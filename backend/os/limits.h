#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <sys/resource.h>

/// What this system lets one session have.
namespace Limits {

/// A session starts with at most this many tasks; forked processes join it later.
inline constexpr int maxTasks = 131072;

/// What the system has left. A quantity that is not limited is the largest of its type.
struct Facts {
    rlim_t descriptors = RLIM_INFINITY;  // of this process
    long terminals = 0;                  // pseudo-terminals that are not in use
    long usedTerminals = 0;              // pseudo-terminals that are in use
    rlim_t processes = RLIM_INFINITY;    // that this user may still start
    rlim_t usedProcesses = 0;            // that this user has
    rlim_t maxProcesses = RLIM_INFINITY; // as many as the user can allow himself
    std::uint64_t memory = UINT64_MAX;   // bytes
};

/// What a session takes.
struct Need {
    int tasks = 0;
    /// Of the tasks: those whose debuggers run on this machine, and of these again those whose
    /// debuggers run already.
    int here = 0;
    int started = 0;
    /// The least memory that a debugger takes, in bytes.
    std::uint64_t debugger = 0;
    /// Of the other tasks: the hosts that they are on, where that is known. Each is a connection.
    int hosts = 0;
};

/// As the system says at this moment. Where it tells nothing, there is taken to be no limit.
Facts facts();
/// Why such a session does not fit and what to do about it, as a sentence, with the command that
/// raises the limit; nothing when it fits.
std::optional<std::string> refusal(const Need& need, const Facts& facts);
/// The least memory that a debugger takes: as much as its program's file holds. Bytes.
std::uint64_t memoryOf(const std::string& debugger);

/// Lets this process have as many descriptors as it may. What it starts finds its own limit.
void liftDescriptors();
/// Gives a child of this process the limit that stood before. Async-signal-safe.
void restoreDescriptors();

} // namespace Limits
