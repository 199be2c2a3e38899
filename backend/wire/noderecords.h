#pragma once

#include "backend/drivers/debuggerstart.h"
#include "backend/folding/linecutter.h"
#include "backend/folding/node.h"
#include "backend/wire/agentrecord.h"

#include <cstdint>
#include <optional>
#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/// What the session and the agent of a node tell each other once they know each other: mostly what
/// a Node is asked for and what its Listener hears, about sets of the node's clients. Reading takes
/// those clients, and throws BrokenConnection for any other.
namespace NodeRecords {

// --- the start

/// A task whose debugger the node can run.
struct Task {
    int rank = -1; // -1: the launcher does not tell it
    int size = -1; // of the job; the same
    pid_t pid = 0; // of its agent
    bool operator==(const Task&) const = default;
};
AgentRecord tasks(const std::vector<Task>& tasks);
std::vector<Task> tasksOf(const AgentRecord& record);

/// Debuggers to start: what they have in common, and each client with the process that its debugger
/// attaches to, 0 for the task of the rank that is the client's number.
struct Start {
    DebuggerStart common; // `with` gives that of a client
    std::vector<std::pair<int, pid_t>> clients;
};
AgentRecord start(const Start& start);
Start startOf(const AgentRecord& record);

/// The start of debuggers is over: they have prompted, or ended.
struct Started {
    ClientSet clients;
    bool ended = false;
    bool holds = false;       // the processes that they were to attach to
    bool tellsErrors = false; // ErrorWatch::canTell
    std::string text;         // what each has printed before
};
AgentRecord started(const Started& started);
Started startedOf(const AgentRecord& record, const ClientSet& known);

// --- to a node

AgentRecord begin(const ClientSet& clients, const Work& work);
AgentRecord type(const ClientSet& clients, const std::string& line);
AgentRecord interrupt(const ClientSet& clients);
AgentRecord reply(const ClientSet& clients, const std::string& text);
/// Has a node do one of these; false: the record is none of them.
bool carryOut(const AgentRecord& record, const ClientSet& known, Node& node, Clock::time_point now);

// --- from a node

/// The next line of each of some clients.
struct Row {
    ClientSet clients;
    LineCutter::Piece piece; // Node::Listener::saidPart, when it is no whole line
};
/// Rows in the order of each client, of which the first is that old.
AgentRecord lines(int work, std::chrono::milliseconds age, const std::vector<Row>& rows);
/// Equal answers of clients.
AgentRecord whole(int work, const ClientSet& clients, const std::string& text);
AgentRecord stacks(int work, const StackTree& tree);
AgentRecord answered(int work, const ClientSet& clients);
AgentRecord asks(int work, const ClientSet& clients, const std::string& question);
/// Whom a record of `answered` or `asks` is about.
ClientSet workersOf(const AgentRecord& record, const ClientSet& known);
/// Tells a listener one of these; false: the record is none of them.
bool tell(const AgentRecord& record, const ClientSet& known, Node::Listener& listener,
          Clock::time_point now);

// --- both ways

/// A set of clients and no more, for WHO, RELEASE and ENDED.
AgentRecord about(AgentRecord::Type type, const ClientSet& clients);
ClientSet clientsOf(const AgentRecord& record, const ClientSet& known);

/// Lines about single clients, for IDENTITY and TELL.
using Notes = std::vector<std::pair<int, std::string>>;
AgentRecord notes(AgentRecord::Type type, const Notes& notes);
Notes notesOf(const AgentRecord& record, const ClientSet& known);

/// How many errors there were since the last such record, and whose debuggers have reported them.
struct Errors {
    int count = 0;
    ClientSet clients;
};
AgentRecord errors(const Errors& errors);
Errors errorsOf(const AgentRecord& record, const ClientSet& known);

/// A process that the task of a client has forked, for FORKED and LEAVEFORK.
struct Fork {
    int parent = -1;
    pid_t process = 0;
};
AgentRecord fork(AgentRecord::Type type, const Fork& fork);
Fork forkOf(const AgentRecord& record, const ClientSet& known);

} // namespace NodeRecords
