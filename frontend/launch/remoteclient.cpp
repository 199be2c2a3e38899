#include "frontend/launch/remoteclient.h"

#include "common/brokenconnection.h"

#include <utility>

namespace {

std::string lineOf(const std::string& text) {
    return text.substr(0, text.find_first_of(std::string("\0\n", 2)));
}

} // namespace

RemoteClient::RemoteClient(std::shared_ptr<AgentLink> connection, Listener& hears, Owner& whose,
                           const DebuggerStart& start)
    : link(std::move(connection)), listener(hears), owner(whose), number(start.client) {
    link->setHandler(this, AgentRecord::maxFrame);
    link->send(AgentRecords::start(start));
}

RemoteClient::~RemoteClient() {
    link->setHandler(nullptr, 0);
    link->close();
}

void RemoteClient::type(const std::string& line) { link->send({AgentRecord::TYPE, line}); }

void RemoteClient::interrupt() { link->send({AgentRecord::INTERRUPT, ""}); }

std::string RemoteClient::identity() const {
    return known.empty() ? "its agent does not answer" : known;
}

bool RemoteClient::askIdentity() {
    if (!link->open()) return false;
    ++asked;
    link->send({AgentRecord::WHO, ""});
    return true;
}

void RemoteClient::onRecord(const AgentRecord& record) {
    switch (record.type) {
    case AgentRecord::OUTPUT:
        if (alive) listener.onOutput(number, record.body);
        break;
    case AgentRecord::HOLDS:
        attached = true;
        break;
    case AgentRecord::TELL:
        if (alive) owner.onTold(number, lineOf(record.body));
        break;
    case AgentRecord::PROMPT:
        if (alive) listener.onPrompt(number);
        break;
    case AgentRecord::RUNS:
    case AgentRecord::STANDS:
        if (alive) listener.onRuns(number, record.type == AgentRecord::RUNS);
        break;
    case AgentRecord::ENDED:
        // The agent stays: a launcher takes the end of one task's process for the end of the job.
        if (std::exchange(alive, false)) owner.onEnded(number);
        break;
    case AgentRecord::IDENTITY:
        if (asked == 0) throw BrokenConnection();
        --asked;
        known = lineOf(record.body);
        owner.onIdentified(number);
        break;
    default:
        throw BrokenConnection();
    }
}

void RemoteClient::onClosed() {
    for (; asked > 0; --asked)
        owner.onIdentified(number);
    if (std::exchange(alive, false)) owner.onEnded(number);
}
