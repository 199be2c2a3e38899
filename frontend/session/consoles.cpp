#include "frontend/session/consoles.h"

#include "common/brokenconnection.h"
#include "common/frame.h"

#include <algorithm>
#include <chrono>
#include <cstring>

namespace {

// What a console hears in place of its number when the session is full.
constexpr int refused = -1;

// Bytes of unfinished records, of one console and of all.
constexpr std::size_t largeRecord = 1024 * 1024;
constexpr std::size_t maxParked = 64 * 1024 * 1024;

std::string bytesOf(int number) {
    std::string bytes(sizeof number, '\0');
    std::memcpy(bytes.data(), &number, sizeof number);
    return bytes;
}

} // namespace

Consoles::Consoles(EventLoop& eventLoop, Session& claimed, std::size_t maxConsoles, Owner& whose)
    : loop(eventLoop),
      session(claimed),
      limit(maxConsoles),
      owner(whose),
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
        // A console that cannot be accepted, for want of descriptors, goes on asking.
        pause.after(std::chrono::milliseconds(100), [this] { listen(); });
    });
}

void Consoles::add(std::unique_ptr<UnixSocket> connection) {
    const bool room = links.size() < limit;
    const int id = room ? ++lastNumber : refused;
    const auto link = std::make_shared<ConsoleLink>(loop, *this, id, std::move(connection));
    link->start();
    if (!room) {
        link->send(bytesOf(refused));
        link->finish();
        return;
    }
    links[id] = link;
    if (serving) number(id);
}

std::string Consoles::describe(int console) const {
    const auto link = links.find(console);
    const std::string terminal = link == links.end() ? "" : link->second->terminal();
    return "console " + std::to_string(console) + (terminal.empty() ? "" : " on " + terminal);
}

void Consoles::onLinkCommand(int id, const Command& command) {
    if (id == refused) return;
    if (command.getConsoleID() != id) throw BrokenConnection();
    if (serving) owner.onCommand(id, command);
}

void Consoles::onLinkClosed(int id) {
    if (id == refused) return;
    links.erase(id);
    owner.onConsoleLeft(id);
}

void Consoles::onLinkDrained(int id) {
    if (id != refused) owner.onConsoleDrained();
}

void Consoles::onLinkStuck(int id, const std::string& why) {
    if (id != refused) owner.onConsoleDropped(id, why);
}

// Records that are never finished must not fill the memory, from however many consoles they come.
void Consoles::onLinkParked(int id) {
    const auto link = links.find(id);
    if (link == links.end() || link->second->parked() < largeRecord) return;
    std::size_t parked = 0;
    std::shared_ptr<ConsoleLink> most = link->second;
    for (const auto& [number, each] : links) {
        parked += each->parked();
        if (each->parked() > most->parked()) most = each;
    }
    if (parked > maxParked)
        most->drop("it does not finish a record, of which " + std::to_string(most->parked() >> 20) +
                   " MB have come");
}

void Consoles::serve() {
    serving = true;
    for (const auto& [id, link] : links)
        number(id);
}

void Consoles::number(int id) {
    owner.onConsoleJoined(id);
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

void Consoles::send(int id, const Reply& reply) { sendBytes(id, Frame::of(KIND_REPLY, reply)); }

void Consoles::send(const std::vector<int>& to, const Data& data) {
    std::shared_ptr<const std::string> packed;
    for (const int id : to) {
        // The console that has asked gets all; its clients wait for it.
        const auto link = links.find(id);
        if (link == links.end() ||
            (data.getType() == Data::TEXT && data.getConsoleID() != id && congested(id)))
            continue;
        if (!packed) packed = std::make_shared<const std::string>(Frame::of(KIND_DATA, data));
        link->second->send(packed);
    }
}

void Consoles::sendBytes(int id, const std::string& bytes) {
    if (const auto link = links.find(id); link != links.end()) link->second->send(bytes);
}

bool Consoles::congested(int id) const {
    const auto link = links.find(id);
    return link != links.end() && link->second->congested();
}

bool Consoles::full(int id) const {
    const auto link = links.find(id);
    return link != links.end() && link->second->full();
}

std::size_t Consoles::open() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(links, [](const auto& each) { return !each.second->abandoned(); }));
}
