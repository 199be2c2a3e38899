#pragma once

#include <string>

/// The living sessions of this user, asked one by one.
namespace SessionList {

/// A table with a line for each session: number, tasks, open consoles, age, program; or a line
/// that says that no session runs.
std::string text();
/// Seconds as "12 s", "3 min", "2 h 05 min", "4 d 03 h".
std::string age(long seconds);

} // namespace SessionList
