#pragma once

#include <cstddef>

/// The names of the groups that every session has and that no user can define.
namespace GroupNames {

/// The living clients.
inline constexpr const char* all = "all";
/// The clients that answered the last command of the console that asks.
inline constexpr const char* filtered = "FILTERED";
/// The clients whose answers the console that asks waits for.
inline constexpr const char* pending = "PENDING";
/// With a digit from 1 to maxPlaces: where the clients were at the last stat of the console that
/// asks. These names a user may define.
inline constexpr const char* place = "PLACE";
inline constexpr std::size_t maxPlaces = 9;

} // namespace GroupNames
