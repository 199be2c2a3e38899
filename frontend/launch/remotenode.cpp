#include "frontend/launch/remotenode.h"

#include "backend/wire/mpirecords.h"
#include "common/brokenconnection.h"

namespace {

std::string lineOf(const std::string& text) {
    return text.substr(0, text.find_first_of(std::string("\0\n", 2)));
}

} // namespace

RemoteNode::RemoteNode(std::shared_ptr<AgentLink> connection, std::string where, Owner& whose)
    : link(std::move(connection)), hostName(std::move(where)), owner(whose) {
    link->setHandler(this, AgentRecord::maxFrame);
}

RemoteNode::~RemoteNode() {
    link->setHandler(nullptr, 0);
    link->close();
}

// --- what it is to do

void RemoteNode::start(const NodeRecords::Start& wanted) {
    for (const auto& [client, process] : wanted.clients) {
        known.insert(client);
        starting.insert(client);
        living.insert(client);
    }
    link->send(NodeRecords::start(wanted));
}

void RemoteNode::begin(const ClientSet& clients, const Work& work, Clock::time_point /*now*/) {
    asking.erase(clients);
    link->send(NodeRecords::begin(clients, work));
}

void RemoteNode::type(const ClientSet& clients, const std::string& line) {
    link->send(NodeRecords::type(clients, line));
}

void RemoteNode::interrupt(const ClientSet& clients, Clock::time_point /*now*/) {
    link->send(NodeRecords::interrupt(clients));
}

ClientSet RemoteNode::reply(const ClientSet& clients, const std::string& text,
                            Clock::time_point /*now*/) {
    ClientSet taken = asking.intersection(clients);
    if (taken.empty()) return taken;
    asking.erase(taken);
    link->send(NodeRecords::reply(taken, text));
    return taken;
}

bool RemoteNode::askIdentities(const ClientSet& clients) {
    if (!link->open() || clients.empty()) return false;
    asked.push_back(clients);
    link->send(NodeRecords::about(AgentRecord::WHO, clients));
    return true;
}

std::string RemoteNode::identity(int client) const {
    const auto told = identities.find(client);
    return told == identities.end() ? "its agent does not answer" : told->second;
}

bool RemoteNode::askMpiStates() {
    if (!link->open() || living.empty()) return false;
    ++mpiAsked;
    link->send(NodeRecords::about(AgentRecord::ASKMPI, living));
    return true;
}

MpiState RemoteNode::mpiState(int client) const {
    const auto told = mpiStates.find(client);
    return told == mpiStates.end() ? MpiState() : told->second;
}

void RemoteNode::leaveFork(const NodeRecords::Fork& fork) {
    link->send(NodeRecords::fork(AgentRecord::LEAVEFORK, fork));
}

void RemoteNode::release(const ClientSet& clients) {
    link->send(NodeRecords::about(AgentRecord::RELEASE, clients));
}

// --- what it tells

void RemoteNode::onRecord(const AgentRecord& record) {
    switch (record.type) {
    case AgentRecord::TASKS:
        owner.onTasks(*this, NodeRecords::tasksOf(record));
        break;
    case AgentRecord::STARTED: {
        const NodeRecords::Started started = NodeRecords::startedOf(record, starting);
        if (started.clients.empty()) throw BrokenConnection();
        starting.erase(started.clients);
        if (started.ended) living.erase(started.clients);
        owner.onStarted(*this, started);
        break;
    }
    case AgentRecord::ENDED:
        // The agent stays: a launcher takes the end of one task's process for the end of the job.
        end(NodeRecords::clientsOf(record, known));
        break;
    case AgentRecord::IDENTITY:
        if (asked.empty()) throw BrokenConnection();
        for (const auto& [client, text] : NodeRecords::notesOf(record, known))
            identities[client] = lineOf(text);
        identified();
        break;
    case AgentRecord::MPISTATES:
        if (mpiAsked == 0) throw BrokenConnection();
        for (auto& [client, state] : MpiRecords::statesOf(record, known))
            mpiStates[client] = std::move(state);
        --mpiAsked;
        owner.onMpiStates();
        break;
    case AgentRecord::TELL:
        for (const auto& [client, text] : NodeRecords::notesOf(record, known)) {
            if (living.contains(client)) owner.onTold(client, lineOf(text));
        }
        break;
    case AgentRecord::ERRORS:
        owner.onErrors(NodeRecords::errorsOf(record, known));
        break;
    case AgentRecord::FORKED:
        owner.onForked(*this, NodeRecords::forkOf(record, known));
        break;
    default: {
        if (record.type == AgentRecord::ASKS) asking.insert(NodeRecords::workersOf(record, known));
        if (record.type == AgentRecord::ANSWERED)
            asking.erase(NodeRecords::workersOf(record, known));
        Node::Listener* const listener = owner.listener();
        if (listener && !NodeRecords::tell(record, known, *listener, Clock::now()))
            throw BrokenConnection();
    }
    }
}

void RemoteNode::end(ClientSet clients) {
    clients = clients.intersection(living);
    living.erase(clients);
    starting.erase(clients);
    asking.erase(clients);
    if (!clients.empty()) owner.onEnded(clients);
}

void RemoteNode::identified() {
    const ClientSet clients = std::move(asked.front());
    asked.pop_front();
    owner.onIdentified(clients);
}

void RemoteNode::onClosed() {
    while (!asked.empty())
        identified();
    for (; mpiAsked > 0; --mpiAsked)
        owner.onMpiStates();
    end(living);
}
