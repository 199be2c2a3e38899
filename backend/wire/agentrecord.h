#pragma once

#include <string>
#include <string_view>
#include <sys/types.h>

/// What an agent and the front end tell each other: a frame (common/frame.h) around a type and a
/// body. What the bodies hold is told in NodeRecords, but for the greeting, which is here and which
/// agents of all versions understand. Unpacking checks every length and throws BrokenConnection.
struct AgentRecord {
    enum Type : int {
        // Of both sides.
        PART = 0, // the beginning of the body of the next record, which is too long for a frame
        // From the agent.
        HELLO = 1,  // first: AgentHello
        PROOF = 6,  // the answer to CHALLENGE: the agent knows the secret (Handshake)
        TASKS = 10, // tasks whose debuggers it can run
        STARTED,    // debuggers have prompted first
        LINES,      // what clients have said, folded
        WHOLE,      // whole answers, for filters
        STACKS,     // a tree of stacks
        ANSWERED,
        ASKS,
        ENDED,     // debuggers have ended; all their output has gone before
        IDENTITY,  // the answer to WHO
        ERRORS,    // that debuggers have reported
        TELL,      // one line for the user
        FORKED,    // a task has forked a process that could be debugged
        MPISTATES, // the answer to ASKMPI (MpiRecords)
        // From the front end.
        CHALLENGE = 105, // the answer to HELLO: AgentChallenge
        START = 110,     // debuggers
        BEGIN,           // a work
        TYPE,            // a line
        INTERRUPT,
        REPLY, // to questions
        WHO,
        RELEASE,   // debuggers end, and let go of what they have attached to
        LEAVEFORK, // the answer to FORKED that is no START
        ASKMPI,    // what tasks do in MPI
        // From the keeper of a task to the agent of its node, on the same host.
        JOIN = 201, // first
        RUNS,       // a debugger that was to be started, with its terminals
        FAILED,     // it could not be
        GONE,       // a debugger has ended
        LEAVE,      // the launcher ends the task
        // From a node's agent to a keeper.
        WELCOME = 301, // the answer to JOIN
        REFUSED,       // the other one
        FORK,          // start a debugger
        SIGNAL,        // for a debugger
        FINISH,        // kill what is left, and end
    };

    Type type = HELLO;
    std::string body;

    /// The largest frame that either side has reason to send, in bytes: a START with an argument
    /// list as long as the system allows.
    static constexpr int maxFrame = 4 * 1024 * 1024;
    /// The same of an agent that has not proved itself yet.
    static constexpr int maxHello = 4096;
    /// The largest body, in parts or not: the whole answer of a client, or a node's trees.
    static constexpr std::size_t maxBody = 96 * 1024 * 1024;

    /// Its frames, of which all but the last are parts.
    std::string frames() const;
    static AgentRecord unpack(std::string_view frameBody);
};

/// How an agent introduces itself.
struct AgentHello {
    static constexpr int version = 4;

    int protocol = version;
    /// The program's own; empty: the protocol is older than this field.
    std::string program = VEX_VERSION;
    /// Chosen for this connection.
    std::string nonce;
    std::string host;
    pid_t pid = 0;
    /// Which of the front end's logins has started it; -1: a launcher has.
    int login = -1;

    AgentRecord record() const;
    /// Of another protocol, only its number is known, and the program's version.
    static AgentHello of(const AgentRecord& record);
};

/// How the front end proves that it knows the secret, and asks the agent for the same.
struct AgentChallenge {
    std::string nonce;
    std::string proof;

    AgentRecord record() const;
    static AgentChallenge of(const AgentRecord& record);
};
