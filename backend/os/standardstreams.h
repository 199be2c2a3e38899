#pragma once

/// The descriptors 0, 1 and 2 of this process.
namespace StandardStreams {

/// Points the standard descriptors from 0 to `last` to /dev/null, so that this process holds
/// neither the terminal nor a pipe that it was started with.
void detach(int last = 2);

} // namespace StandardStreams
