#include "agent/keeperrecords.h"

#include "backend/wire/bytes.h"
#include "backend/wire/noderecords.h"
#include "common/brokenconnection.h"

AgentRecord KeeperJoin::record() const {
    ByteWriter out;
    for (const int each : {protocol, int{pid}, jobSize})
        out.integer(each);
    out.number(ranks.size());
    for (const int each : ranks)
        out.integer(each);
    return {AgentRecord::JOIN, out.take()};
}

KeeperJoin KeeperJoin::of(const AgentRecord& record) {
    if (record.type != AgentRecord::JOIN) throw BrokenConnection();
    ByteReader in(record.body);
    KeeperJoin join;
    join.protocol = in.integer();
    if (join.protocol != version) return join;
    join.pid = in.integer();
    join.jobSize = in.integer();
    for (std::size_t left = in.count(1); left > 0; --left)
        join.ranks.push_back(in.integer());
    in.end();
    return join;
}

AgentRecord KeeperStarted::record() const {
    ByteWriter out;
    for (const int each : {client, int{pid}, int{target}})
        out.integer(each);
    out.text(notice);
    out.text(problem);
    return {problem.empty() ? AgentRecord::RUNS : AgentRecord::FAILED, out.take()};
}

KeeperStarted KeeperStarted::of(const AgentRecord& record) {
    ByteReader in(record.body);
    KeeperStarted started;
    started.client = in.integer();
    started.pid = in.integer();
    started.target = in.integer();
    started.notice = in.text();
    started.problem = in.text();
    in.end();
    // These are killed later: a wrong number is everybody's.
    const bool runs = record.type == AgentRecord::RUNS;
    if (started.target < 0 || runs != started.problem.empty() || (runs && started.pid < 2))
        throw BrokenConnection();
    return started;
}

AgentRecord KeeperOrder::fork(const DebuggerStart& start) {
    DebuggerStart whole = start;
    whole.clientVariable.clear(); // its environment has it already
    return {AgentRecord::FORK, NodeRecords::start({whole, {{start.client, start.attach}}}).body};
}

AgentRecord KeeperOrder::signal(int client, int number, bool group) {
    ByteWriter out;
    for (const int each : {client, number, int{group}})
        out.integer(each);
    return {AgentRecord::SIGNAL, out.take()};
}

AgentRecord KeeperOrder::finish(int status, const std::string& text) {
    ByteWriter out;
    out.integer(status);
    out.text(text);
    return {AgentRecord::FINISH, out.take()};
}

AgentRecord KeeperOrder::gone(int client) {
    ByteWriter out;
    out.integer(client);
    return {AgentRecord::GONE, out.take()};
}

KeeperOrder KeeperOrder::of(const AgentRecord& record) {
    ByteReader in(record.body);
    KeeperOrder order;
    switch (record.type) {
    case AgentRecord::FORK: {
        const NodeRecords::Start start = NodeRecords::startOf({AgentRecord::START, record.body});
        if (start.clients.size() != 1) throw BrokenConnection();
        order.client = start.clients[0].first;
        order.start = start.common.with(order.client, start.clients[0].second);
        return order;
    }
    case AgentRecord::SIGNAL:
        order.client = in.integer();
        order.number = in.integer();
        order.group = in.integer() != 0;
        break;
    case AgentRecord::FINISH:
        order.status = in.integer();
        order.text = in.text();
        break;
    case AgentRecord::GONE:
        order.client = in.integer();
        break;
    default:
        throw BrokenConnection();
    }
    in.end();
    return order;
}
