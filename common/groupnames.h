#pragma once

/// The names of the groups that every session has and that no user can define.
namespace GroupNames {

/// The living clients.
inline constexpr const char* all = "all";
/// The clients that answered the last command of the console that asks.
inline constexpr const char* filtered = "FILTERED";
/// The clients whose answers the console that asks waits for.
inline constexpr const char* pending = "PENDING";

} // namespace GroupNames
