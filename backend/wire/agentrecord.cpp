#include "backend/wire/agentrecord.h"

#include "common/brokenconnection.h"
#include "common/frame.h"
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

constexpr std::string DebuggerStart::*startTexts[] = {
    &DebuggerStart::prompt,   &DebuggerStart::terminal, &DebuggerStart::inputTerminal,
    &DebuggerStart::process,  &DebuggerStart::program,  &DebuggerStart::folder,
    &DebuggerStart::forkMark,
};

void expectEnd(const Packer& packer) {
    if (packer.remaining() != 0) throw BrokenConnection();
}

} // namespace

std::string AgentRecord::frame() const {
    Packer packer;
    packer.packInt(type);
    std::string whole(packer.getPackedMsg().get(), 4);
    whole += body;
    return Frame::wrap(whole.data(), static_cast<int>(whole.size()));
}

AgentRecord AgentRecord::unpack(std::string_view bytes) {
    Packer packer;
    packer.setPackedMsg(bytes.data(), static_cast<int>(bytes.size()));
    const int type = packer.unpackInt();
    if (!(type >= HELLO && type <= TELL) && !(type >= START && type <= CHALLENGE))
        throw BrokenConnection();
    return {static_cast<Type>(type), std::string(bytes.substr(bytes.size() - packer.remaining()))};
}

AgentRecord AgentHello::record() const {
    Packer packer;
    packer.packInt(protocol);
    pack(packer, nonce);
    packer.packInt(rank);
    packer.packInt(size);
    pack(packer, host);
    packer.packInt(pid);
    packer.packInt(forked);
    return finished(AgentRecord::HELLO, packer);
}

AgentHello AgentHello::of(const AgentRecord& record) {
    Packer packer = reader(record, AgentRecord::HELLO);
    AgentHello hello;
    hello.protocol = packer.unpackInt();
    if (hello.protocol != AgentHello::version) return hello; // its host and pid are unknown
    hello.nonce = unpackText(packer);
    hello.rank = packer.unpackInt();
    hello.size = packer.unpackInt();
    hello.host = unpackWord(packer);
    hello.pid = packer.unpackInt();
    hello.forked = packer.unpackInt();
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

AgentRecord AgentRecords::start(const DebuggerStart& start) {
    Packer packer;
    for (const auto* words : {&start.argv, &start.indexCacheWords}) {
        packer.packInt(static_cast<int>(words->size()));
        for (const std::string& word : *words)
            pack(packer, word);
    }
    packer.packInt(static_cast<int>(start.environment.size()));
    for (const auto& [name, value] : start.environment) {
        pack(packer, name);
        pack(packer, value);
    }
    for (const auto text : startTexts)
        pack(packer, start.*text);
    packer.packInt(start.attach);
    packer.packInt(start.throughShells);
    packer.packInt(start.client);
    return finished(AgentRecord::START, packer);
}

DebuggerStart AgentRecords::startOf(const AgentRecord& record) {
    Packer packer = reader(record, AgentRecord::START);
    DebuggerStart start;
    for (auto* words : {&start.argv, &start.indexCacheWords}) {
        for (int left = packer.unpackCount(4); left > 0; --left)
            words->push_back(unpackWord(packer));
    }
    for (int left = packer.unpackCount(8); left > 0; --left) {
        std::string name = unpackWord(packer);
        std::string value = unpackWord(packer);
        start.environment.emplace_back(std::move(name), std::move(value));
    }
    for (const auto text : startTexts)
        start.*text = unpackWord(packer);
    start.attach = packer.unpackInt();
    const int throughShells = packer.unpackInt();
    start.throughShells = throughShells == 1;
    start.client = packer.unpackInt();
    expectEnd(packer);
    if (start.argv.empty() || start.prompt.empty() || start.terminal.empty() ||
        start.inputTerminal.empty() || start.process.empty() || start.attach < 0 ||
        (throughShells & ~1) != 0)
        throw BrokenConnection();
    return start;
}
