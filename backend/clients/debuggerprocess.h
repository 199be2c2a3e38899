#pragma once

#include "common/descriptor.h"

#include <sys/types.h>

/// The process of a debugger, for the client that speaks with it; its parent may be another process
/// than this one. One thread.
class DebuggerProcess {
  public:
    /// The front end's ends of its terminals, non-blocking. Closing one hangs up.
    struct Terminals {
        Descriptor debugger; // its own
        Descriptor program;  // its program's
    };

    virtual ~DebuggerProcess() = default;
    /// Hands them over, once.
    virtual Terminals takeTerminals() = 0;
    virtual pid_t pid() const = 0;
    virtual bool running() const = 0;
    /// Looks whether it has ended, and says true then, once.
    virtual bool ended() = 0;
    virtual void signal(int number) = 0;
    /// The same to all of its process group.
    virtual void signalGroup(int number) = 0;
};
