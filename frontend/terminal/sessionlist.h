#pragma once

#include <string>

/// The sessions of this user that live, asked one by one.
namespace SessionList {

/// A table, a line for each: its number, the open consoles, the tasks, its age, its program; or a
/// line that says that there is none.
std::string text();
/// Seconds as "12 s", "3 min", "2 h 05 min", "4 d 3 h".
std::string age(long seconds);

} // namespace SessionList
