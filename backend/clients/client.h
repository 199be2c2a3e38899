#pragma once

#include "mpitrace/mpistate.h"

#include <string>
#include <string_view>
#include <sys/types.h>

/// One debugger as the session sees it, wherever it runs.
class Client {
  public:
    /// Hears of clients, by their numbers in the session; from the event loop or from ended. Must
    /// not destroy the client from within a call.
    class Listener {
      public:
        virtual ~Listener() = default;
        /// The debugger printed something, without its prompts.
        virtual void onOutput(int client, std::string_view text) = 0;
        virtual void onPrompt(int client) = 0;
        /// The debugger tells that its task runs from now on, or stands still.
        virtual void onRuns(int client, bool runs) = 0;
        /// Whether to go on reading; when not, resume begins again.
        virtual bool mayRead(int client) = 0;
    };

    Client() = default;
    virtual ~Client() = default;
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Types a line, given without its newline.
    virtual void type(const std::string& line) = 0;
    /// Interrupts what the debugger does at the moment.
    virtual void interrupt() = 0;
    /// Reads on after mayRead has said no.
    virtual void resume() = 0;
    /// Makes a debugger that has attached to its program let it go, and end.
    virtual void release() = 0;
    /// Looks whether the debugger has ended. When it has, hands over what it still said and says
    /// true, once.
    virtual bool ended() = 0;
    /// Whether it holds the process that it was to attach to. Known when it prompts first.
    virtual bool holds() const = 0;
    /// Which process its task is, in one line (Identity); on another machine: as was told last.
    virtual std::string identity() const = 0;
    /// Asks the agent that knows it; false when there is none to ask.
    virtual bool askIdentity() { return false; }
    /// What its task does in MPI; on another machine, its node knows.
    virtual MpiState mpiState() const { return {}; }
    /// The debugger's process on this machine; -1: it runs on another machine, or not at all.
    virtual pid_t pid() const = 0;
    virtual bool running() const = 0;
};
