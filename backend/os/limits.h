#pragma once

#include <optional>
#include <string>
#include <sys/resource.h>

/// What this system lets one session have.
namespace Limits {

/// A session starts with at most this many tasks; forked processes join it later.
inline constexpr int maxTasks = 4096;

/// What is there to be had.
struct Facts {
    rlim_t descriptors = 0; // of this process
    long terminals = 0;     // pseudo-terminals that are not in use
};

/// As the system says at this moment. What it does not tell is taken to be no limit.
Facts facts();
/// Why a session of so many tasks does not fit and what to do about it, as a sentence; nothing when
/// it fits. So many of them run already and hold their terminals.
std::optional<std::string> refusal(int tasks, const Facts& facts, int running = 0);

/// Lets this process have as many descriptors as it may. What it starts finds its own limit.
void liftDescriptors();
/// Gives a child of this process the limit that stood before. Async-signal-safe.
void restoreDescriptors();

} // namespace Limits
