#include "frontend/session/consoles.h"

#include "common/brokenconnection.h"
#include "common/frame.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace {

template <typename Record>
std::string frameOf(MessageKind kind, const Record& record) {
    const std::string body = Frame::packed(record);
    return Frame::wrap(kind, body.data(), static_cast<int>(body.size()));
}

std::string bytesOf(int number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

} // namespace

Consoles::Consoles(EventLoop& eventLoop, Session& claimed, std::size_t limit, Handler handler)
    : loop(eventLoop),
      session(claimed),
      most(limit),
      handle(std::move(handler)),
      listener(loop, session.listener()),
      pause(loop) {}

Consoles::~Consoles() = default;

void Consoles::listen() {
    listener.whenReadable([this] {
        if (closed) return;
        if (auto connection = session.accept()) {
            add(std::move(connection));
            return listen();
        }
        // One that cannot be accepted, for want of descriptors, goes on asking.
        pause.after(std::chrono::milliseconds(100), [this] { listen(); });
    });
}

void Consoles::add(std::unique_ptr<UnixSocket> connection) {
    auto link = std::make_shared<ConsoleLink>(loop, std::move(connection));
    if (links.size() >= most) {
        // It hears so in place of its number.
        link->start({[](const Command&) {}, [] {}, [] {}});
        link->send(bytesOf(-1));
        link->finish();
        return;
    }
    const int id = ++last;
    links[id] = link;
    link->start({[this, id](const Command& command) {
                     if (command.getConsoleID() != id) throw BrokenConnection();
                     if (serving) handle.command(id, command);
                 },
                 [this, id] {
                     links.erase(id);
                     handle.left(id);
                 },
                 handle.drained});
    if (serving) number(id);
}

void Consoles::serve() {
    serving = true;
    for (const auto& [id, link] : links)
        number(id);
}

void Consoles::number(int id) {
    handle.joined(id);
    sendBytes(id, bytesOf(id));
}

void Consoles::close() {
    closed = true;
    serving = false;
    pause.cancel();
}

// A link that closes is erased later, from the loop.
void Consoles::finish() {
    for (const auto& [id, link] : links)
        link->finish();
}

void Consoles::send(int id, const Reply& reply) { sendBytes(id, frameOf(KIND_REPLY, reply)); }

void Consoles::send(int id, const Data& data) {
    // The one who has asked gets all; his clients wait for him.
    if (data.getType() == Data::TEXT && data.getConsoleID() != id && congested(id)) return;
    sendBytes(id, frameOf(KIND_DATA, data));
}

void Consoles::sendBytes(int id, const std::string& bytes) {
    if (const auto link = links.find(id); link != links.end()) link->second->send(bytes);
}

bool Consoles::congested(int id) const {
    const auto link = links.find(id);
    return link != links.end() && link->second->congested();
}

std::size_t Consoles::open() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(links, [](const auto& each) { return !each.second->abandoned(); }));
}
