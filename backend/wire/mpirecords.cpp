#include "backend/wire/mpirecords.h"

#include "backend/wire/bytes.h"
#include "common/brokenconnection.h"

#include <limits>
#include <string>

namespace {

constexpr int maxNumber = std::numeric_limits<int>::max();

void put(ByteWriter& out, const MpiState::Comm& comm) {
    out.number(comm.id);
    out.number(comm.size);
    out.number(comm.collectives);
}

std::uint32_t count(ByteReader& in) { return static_cast<std::uint32_t>(in.number(maxNumber)); }

MpiState::Comm commOf(ByteReader& in) {
    MpiState::Comm comm;
    comm.id = in.number();
    comm.size = count(in);
    comm.collectives = count(in);
    return comm;
}

MpiState stateOf(ByteReader& in) {
    MpiState state;
    state.kind = static_cast<MpiState::Kind>(in.number(MpiState::OVER));
    state.stopped = in.flag();
    state.rank = in.integer();
    state.size = in.integer();
    state.calls = in.number();
    for (std::size_t left = in.count(3); left > 0; --left)
        state.comms.push_back(commOf(in));
    if (state.kind != MpiState::INSIDE) return state;
    state.call = std::string(in.text());
    state.tag = in.integer();
    for (std::size_t left = in.count(1); left > 0; --left)
        state.peers.push_back(in.integer());
    state.collective = count(in);
    state.comm = commOf(in);
    return state;
}

} // namespace

AgentRecord MpiRecords::states(const States& states) {
    ByteWriter out;
    out.number(states.size());
    for (const auto& [client, state] : states) {
        out.number(static_cast<std::uint64_t>(client));
        out.number(state.kind);
        out.number(state.stopped ? 1 : 0);
        out.integer(state.rank);
        out.integer(state.size);
        out.number(state.calls);
        out.number(state.comms.size());
        for (const MpiState::Comm& comm : state.comms)
            put(out, comm);
        if (state.kind != MpiState::INSIDE) continue;
        out.text(state.call);
        out.integer(state.tag);
        out.number(state.peers.size());
        for (const int peer : state.peers)
            out.integer(peer);
        out.number(state.collective);
        put(out, state.comm);
    }
    return {AgentRecord::MPISTATES, out.take()};
}

MpiRecords::States MpiRecords::statesOf(const AgentRecord& record, const ClientSet& known) {
    ByteReader in(record.body, &known);
    States states;
    for (std::size_t left = in.count(7); left > 0; --left) {
        const int client = in.client();
        states.emplace_back(client, stateOf(in));
    }
    in.end();
    return states;
}
