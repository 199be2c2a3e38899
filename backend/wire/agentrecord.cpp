#include "backend/wire/agentrecord.h"

#include "backend/wire/bytes.h"
#include "common/brokenconnection.h"
#include "common/frame.h"
#include "common/packer.h"

#include <algorithm>
#include <utility>

namespace {

void pack(Packer& packer, const std::string& text) {
    packer.packMem(text.data(), static_cast<int>(text.size()));
}

std::string unpackText(Packer& packer) {
    int length = 0;
    const char* data = packer.unpackMem(&length);
    return {data, static_cast<std::size_t>(length)};
}

// For what becomes a C string: a NUL in it would make two readers see two texts.
std::string unpackWord(Packer& packer) {
    std::string text = unpackText(packer);
    if (text.find('\0') != std::string::npos) throw BrokenConnection();
    return text;
}

AgentRecord finished(AgentRecord::Type type, Packer& packer) {
    const int length = packer.getPackedMsgLen();
    const auto bytes = packer.getPackedMsg();
    return {type, {bytes.get(), static_cast<std::size_t>(length)}};
}

Packer reader(const AgentRecord& record, AgentRecord::Type type) {
    if (record.type != type) throw BrokenConnection();
    Packer packer;
    packer.setPackedMsg(record.body.data(), static_cast<int>(record.body.size()));
    return packer;
}

void expectEnd(const Packer& packer) {
    if (packer.remaining() != 0) throw BrokenConnection();
}

std::string frameOf(AgentRecord::Type type, std::string_view body) {
    Packer packer;
    packer.packInt(type);
    std::string whole(packer.getPackedMsg().get(), 4);
    whole += body;
    return Frame::wrap(whole.data(), static_cast<int>(whole.size()));
}

} // namespace

std::string AgentRecord::frames() const {
    constexpr std::size_t piece = maxFrame - 64;
    std::string all;
    std::string_view rest = body;
    for (; rest.size() > piece; rest.remove_prefix(piece))
        all += frameOf(PART, rest.substr(0, piece));
    return all + frameOf(type, rest);
}

AgentRecord AgentRecord::unpack(std::string_view bytes) {
    Packer packer;
    packer.setPackedMsg(bytes.data(), static_cast<int>(bytes.size()));
    const int type = packer.unpackInt();
    const bool known = type == PART || type == HELLO || type == PROOF || type == CHALLENGE ||
                       (type >= TASKS && type <= MPISTATES) || (type >= START && type <= ASKMPI) ||
                       (type >= JOIN && type <= LEAVE) || (type >= WELCOME && type <= FINISH);
    if (!known) throw BrokenConnection();
    return {static_cast<Type>(type), std::string(bytes.substr(bytes.size() - packer.remaining()))};
}

AgentRecord AgentHello::record() const {
    Packer packer;
    packer.packInt(protocol);
    pack(packer, program);
    pack(packer, nonce);
    pack(packer, host);
    packer.packInt(pid);
    packer.packInt(login);
    return finished(AgentRecord::HELLO, packer);
}

AgentHello AgentHello::of(const AgentRecord& record) {
    // Protocols before this one did not name the program.
    constexpr int firstWithProgram = 3;
    Packer packer = reader(record, AgentRecord::HELLO);
    AgentHello hello;
    hello.protocol = packer.unpackInt();
    hello.program = hello.protocol >= firstWithProgram ? unpackWord(packer) : "";
    if (hello.protocol != AgentHello::version) return hello;
    hello.nonce = unpackText(packer);
    hello.host = unpackWord(packer);
    hello.pid = packer.unpackInt();
    hello.login = packer.unpackInt();
    expectEnd(packer);
    return hello;
}

AgentRecord AgentChallenge::record() const {
    Packer packer;
    pack(packer, nonce);
    pack(packer, proof);
    return finished(AgentRecord::CHALLENGE, packer);
}

AgentChallenge AgentChallenge::of(const AgentRecord& record) {
    Packer packer = reader(record, AgentRecord::CHALLENGE);
    AgentChallenge challenge;
    challenge.nonce = unpackText(packer);
    challenge.proof = unpackText(packer);
    expectEnd(packer);
    return challenge;
}
