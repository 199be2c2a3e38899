#pragma once

#include "backend/drivers/debuggerstart.h"
#include "backend/wire/agentrecord.h"

#include <string>
#include <sys/types.h>

/// How a keeper introduces itself to the agent of its node.
struct KeeperJoin {
    static constexpr int version = 1;

    int protocol = version;
    pid_t pid = 0;
    int rank = -1; // -1: the launcher does not tell it
    int jobSize = -1;

    AgentRecord record() const;
    /// Of another version, only that is known.
    static KeeperJoin of(const AgentRecord& record);
};

/// What became of a debugger that a keeper was to start. A FAILED one has a problem; a RUNS comes
/// with the descriptors of DebuggerProcess::Terminals, in their order.
struct KeeperStarted {
    int client = -1;
    pid_t pid = -1;
    pid_t target = 0;    // the process that it attaches to; 0: none
    std::string notice;  // for the user, empty or a line
    std::string problem; // for the user; empty: it was started

    AgentRecord record() const;
    /// Of a RUNS or FAILED.
    static KeeperStarted of(const AgentRecord& record);
};

/// What a node's agent asks of a keeper.
struct KeeperOrder {
    /// FORK.
    static AgentRecord fork(const DebuggerStart& start);
    /// SIGNAL: for a debugger, or for its process group.
    static AgentRecord signal(int client, int number, bool group);
    /// FINISH: with this exit status, and this text on the standard error.
    static AgentRecord finish(int status, const std::string& text);
    /// GONE: what a keeper itself tells.
    static AgentRecord gone(int client);

    int client = -1;
    DebuggerStart start;
    int number = 0; // of the signal
    bool group = false;
    int status = 0;
    std::string text;

    /// Of a FORK, SIGNAL, FINISH or GONE.
    static KeeperOrder of(const AgentRecord& record);
};
