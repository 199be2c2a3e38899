#pragma once

#include "common/descriptor.h"

/// A pipe whose ends are closed in the programs that this process executes.
struct Pipe {
    Descriptor reader, writer;

    /// Throws std::system_error.
    Pipe();
    /// Makes one end of it non-blocking: ours, since another program need not expect that.
    static void unblock(const Descriptor& end);
};
