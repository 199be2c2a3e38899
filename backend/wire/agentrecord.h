#pragma once

#include "backend/drivers/debuggerstart.h"

#include <string>
#include <string_view>
#include <sys/types.h>

/// What an agent and the front end tell each other: a frame (common/frame.h) around a type and a
/// body. Unpacking checks every length and throws BrokenConnection.
struct AgentRecord {
    enum Type : int {
        // From the agent.
        HELLO = 1, // first: AgentHello
        OUTPUT,    // what the debugger printed, without its prompts
        PROMPT,
        ENDED,    // the debugger has ended; all its output has gone before
        IDENTITY, // the answer to WHO: one line
        PROOF,    // the answer to CHALLENGE: the agent knows the secret (Handshake)
        HOLDS,    // the debugger has attached to its process; before its first PROMPT
        TELL,     // one line for the user
        // From the front end.
        START = 101, // DebuggerStart
        TYPE,        // a line for the debugger
        INTERRUPT,
        WHO,
        CHALLENGE, // the answer to HELLO: AgentChallenge
    };

    Type type = HELLO;
    std::string body;

    /// The largest frame that either side has reason to send, in bytes: a START with an argument
    /// list as long as the system allows.
    static constexpr int maxFrame = 4 * 1024 * 1024;
    /// The same of an agent that has not proved itself yet.
    static constexpr int maxHello = 4096;

    /// The whole frame.
    std::string frame() const;
    static AgentRecord unpack(std::string_view frameBody);
};

/// How an agent introduces itself.
struct AgentHello {
    static constexpr int version = 3;

    int protocol = version;
    /// Chosen for this connection.
    std::string nonce;
    /// -1: the launcher does not tell it.
    int rank = -1;
    int size = -1;
    std::string host;
    pid_t pid = 0;
    /// The process that a task has forked, of a connection for such a process; the rank is then the
    /// number of the task's client. 0: the connection is for a task.
    pid_t forked = 0;

    AgentRecord record() const;
    static AgentHello of(const AgentRecord& record);
};

/// How the front end proves that it knows the secret, and asks the agent for the same.
struct AgentChallenge {
    std::string nonce;
    std::string proof;

    AgentRecord record() const;
    static AgentChallenge of(const AgentRecord& record);
};

namespace AgentRecords {

AgentRecord start(const DebuggerStart& start);
DebuggerStart startOf(const AgentRecord& record);

} // namespace AgentRecords
