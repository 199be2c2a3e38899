#pragma once

/// Exit statuses of vex beside 0, 1 and 128 + the number of a signal.
namespace ExitStatus {

/// Not all commands of a script were carried out, or debuggers reported errors.
constexpr int refused = 3;

} // namespace ExitStatus
