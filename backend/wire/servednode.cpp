#include "backend/wire/servednode.h"

#include <algorithm>
#include <utility>

namespace {

// Bytes that are kept of what a debugger prints before its first prompt.
constexpr std::size_t maxStartText = 64 * 1024;

} // namespace

ServedNode::ServedNode(const Driver& driver, const std::string& errorMark, Outlet& out)
    : report(out),
      node(driver, out, report),
      errors(errorMark.empty() ? nullptr : std::make_unique<ErrorWatch>(driver, errorMark)) {}

void ServedNode::add(int client, bool errorsCount) {
    known.insert(client);
    starts[client].errorsCount = errorsCount;
}

bool ServedNode::take(const AgentRecord& record, Clock::time_point now) {
    const bool taken = NodeRecords::carryOut(record, known, *this, now);
    report.tick(now);
    return taken;
}

// --- what the session asks

void ServedNode::begin(const ClientSet& clients, const Work& work, Clock::time_point now) {
    // What they said before leaves as a part of what they did before.
    node.begin(clients, work, now);
    report.begun(clients, work, now);
}

void ServedNode::type(const ClientSet& clients, const std::string& line) {
    for (const int id : errors ? clients : ClientSet())
        errors->typed(id, line);
    report.typed(clients);
    node.type(clients, line);
}

void ServedNode::interrupt(const ClientSet& clients, Clock::time_point now) {
    node.interrupt(clients, now);
}

ClientSet ServedNode::reply(const ClientSet& clients, const std::string& text,
                            Clock::time_point now) {
    for (const int id : errors ? clients : ClientSet())
        errors->typed(id, text);
    return node.reply(clients, text, now);
}

// --- what debuggers say

void ServedNode::output(int id, std::string_view text, Clock::time_point now) {
    const auto start = starts.find(id);
    std::string plain;
    if (errors) {
        const bool counts = start == starts.end() || start->second.errorsCount;
        text = plain = errors->pass(id, text, counts);
        reportErrors();
    }
    if (start == starts.end())
        node.output(id, text, now);
    else if (start->second.text.size() < maxStartText)
        start->second.text += text;
    report.tick(now);
}

void ServedNode::prompted(int id, bool holds, Clock::time_point now) {
    if (starting(id))
        endStart(id, false, holds, now);
    else
        node.prompted(id, now);
    report.tick(now);
}

void ServedNode::ended(int id, Clock::time_point now) {
    if (starting(id)) {
        endStart(id, true, false, now);
    } else {
        node.gone(id, now);
        if (errors) errors->ended(id);
        if (errors) reportErrors();
        report.ended(id, now);
    }
    report.tick(now);
}

void ServedNode::endStart(int id, bool over, bool holds, Clock::time_point now) {
    const std::string text = std::exchange(starts[id].text, {});
    starts.erase(id);
    if (!over) report.begun({id}, {}, now);
    report.started(id, {{}, over, holds, errors && errors->canTell(id), text}, starts.size(), now);
}

void ServedNode::reportErrors() {
    const auto [count, whose] = errors->take();
    if (count > 0) report.errors({count, whose});
}

// --- time

std::optional<Clock::time_point> ServedNode::deadline() const {
    const auto one = node.deadline(), other = report.deadline();
    return one && other ? std::min(*one, *other) : one ? one : other;
}

void ServedNode::tick(Clock::time_point now) {
    node.tick(now);
    report.tick(now);
}
