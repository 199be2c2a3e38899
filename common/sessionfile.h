#pragma once

#include <string>

/// The socket files of sessions, where consoles connect.
namespace SessionFile {

/// Sessions have numbers from 1 to this: five digits.
inline constexpr int maxNumber = 99999;
inline constexpr const char* prefix = "/tmp/.vexsock.";

inline std::string path(int session) { return prefix + std::to_string(session); }

} // namespace SessionFile
