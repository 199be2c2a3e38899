#pragma once

#include <chrono>

/// The front end's time: monotonic, and handed to the parts that have no I/O of their own.
using Clock = std::chrono::steady_clock;

namespace Wait {

/// Output waits at most this long for more of its kind before it is sent.
constexpr auto window = std::chrono::milliseconds(200);
/// Lines with which others still merge wait at most this long.
constexpr auto fold = std::chrono::milliseconds(1000);
/// What all have said waits so long for what is read in the same breath.
constexpr auto breath = std::chrono::milliseconds(20);
/// A line that a running program has not ended may still get its end; after this time it is shown
/// as it is.
constexpr auto halfLine = std::chrono::milliseconds(500);
/// A debugger that goes on printing a line does so within this time; else it waits for an answer.
constexpr auto silence = std::chrono::seconds(2);
/// An interrupt is answered after this time at the latest, even when clients have not stopped.
constexpr auto interrupt = std::chrono::milliseconds(1000);
/// A client that got an interrupt gets no other one before this time has passed.
constexpr auto again = std::chrono::milliseconds(500);
/// A client whose command ended just as the interrupt came shows a second prompt within this time.
constexpr auto settle = std::chrono::milliseconds(150);

/// In a script's session, what waits for a task that is kept from ending its job goes on for
/// this time.
constexpr auto abort = std::chrono::seconds(2);

/// In a script's session, the user is told after this time that a task has crashed while others go
/// on.
constexpr auto crash = std::chrono::seconds(10);

/// After this time the console is told which clients have not answered yet.
constexpr auto answer = std::chrono::seconds(5);

} // namespace Wait
