#pragma once

#include "agent/script/follower.h"

/// Makes this process what the model is, but for its number and its parents: its descriptors,
/// directory, limits, priority, processors, ignored signals, and in the end its program with
/// arguments and environment. Comes back only by std::system_error.
[[noreturn]] void imitate(Follower::Found found);
