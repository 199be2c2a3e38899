#include "agent/keeperrecords.h"

#include "common/brokenconnection.h"
#include "common/packer.h"

namespace {

void pack(Packer& packer, const std::string& text) {
    packer.packMem(text.data(), static_cast<int>(text.size()));
}

std::string unpackText(Packer& packer) {
    int length = 0;
    const char* data = packer.unpackMem(&length);
    return {data, static_cast<std::size_t>(length)};
}

AgentRecord finished(AgentRecord::Type type, Packer& packer) {
    const int length = packer.getPackedMsgLen();
    const auto bytes = packer.getPackedMsg();
    return {type, {bytes.get(), static_cast<std::size_t>(length)}};
}

Packer reader(const AgentRecord& record) {
    Packer packer;
    packer.setPackedMsg(record.body.data(), static_cast<int>(record.body.size()));
    return packer;
}

} // namespace

AgentRecord KeeperJoin::record() const {
    Packer packer;
    for (const int each : {protocol, int{pid}, rank, jobSize})
        packer.packInt(each);
    return finished(AgentRecord::JOIN, packer);
}

KeeperJoin KeeperJoin::of(const AgentRecord& record) {
    if (record.type != AgentRecord::JOIN) throw BrokenConnection();
    Packer packer = reader(record);
    KeeperJoin join;
    join.protocol = packer.unpackInt();
    if (join.protocol != version) return join;
    join.pid = packer.unpackInt();
    join.rank = packer.unpackInt();
    join.jobSize = packer.unpackInt();
    return join;
}

AgentRecord KeeperStarted::record() const {
    Packer packer;
    for (const int each : {debugger, int{pid}, int{target}})
        packer.packInt(each);
    pack(packer, notice);
    pack(packer, problem);
    return finished(problem.empty() ? AgentRecord::STARTED : AgentRecord::FAILED, packer);
}

KeeperStarted KeeperStarted::of(const AgentRecord& record) {
    Packer packer = reader(record);
    KeeperStarted started;
    started.debugger = packer.unpackInt();
    started.pid = packer.unpackInt();
    started.target = packer.unpackInt();
    started.notice = unpackText(packer);
    started.problem = unpackText(packer);
    return started;
}

AgentRecord KeeperOrder::fork(int debugger, const DebuggerStart& start) {
    Packer packer;
    packer.packInt(debugger);
    pack(packer, AgentRecords::start(start).body);
    return finished(AgentRecord::FORK, packer);
}

AgentRecord KeeperOrder::signal(int debugger, int number, bool group) {
    Packer packer;
    for (const int each : {debugger, number, int{group}})
        packer.packInt(each);
    return finished(AgentRecord::SIGNAL, packer);
}

AgentRecord KeeperOrder::finish(int status, const std::string& text) {
    Packer packer;
    packer.packInt(status);
    pack(packer, text);
    return finished(AgentRecord::FINISH, packer);
}

AgentRecord KeeperOrder::gone(int debugger) {
    Packer packer;
    packer.packInt(debugger);
    return finished(AgentRecord::GONE, packer);
}

KeeperOrder KeeperOrder::of(const AgentRecord& record) {
    Packer packer = reader(record);
    KeeperOrder order;
    switch (record.type) {
    case AgentRecord::FORK:
        order.debugger = packer.unpackInt();
        order.start = AgentRecords::startOf({AgentRecord::START, unpackText(packer)});
        break;
    case AgentRecord::SIGNAL:
        order.debugger = packer.unpackInt();
        order.number = packer.unpackInt();
        order.group = packer.unpackInt() != 0;
        break;
    case AgentRecord::FINISH:
        order.status = packer.unpackInt();
        order.text = unpackText(packer);
        break;
    case AgentRecord::GONE:
        order.debugger = packer.unpackInt();
        break;
    default:
        throw BrokenConnection();
    }
    return order;
}
