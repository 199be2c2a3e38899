#include "report/conversation.h"

#include "common/catalog.h"
#include "common/error.h"
#include "common/frame.h"
#include "common/groupnames.h"
#include "common/sessionfile.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int attempts = 60; // one a second

bool lives(pid_t process) { return ::kill(process, 0) == 0 || errno != ESRCH; }

sigset_t heardSignals() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int number : {SIGTERM, SIGINT, SIGHUP})
        ::sigaddset(&set, number);
    return set;
}

} // namespace

Conversation::Conversation(int session, pid_t starter) {
    const sigset_t set = heardSignals();
    ::sigprocmask(SIG_BLOCK, &set, nullptr);
    signals.reset(::signalfd(-1, &set, SFD_CLOEXEC));
    const std::string path = SessionFile::path(session);
    for (int attempt = 1; socket.connect(path.c_str(), 1) != 0; ++attempt) {
        if (attempt == attempts || (starter != -1 && !lives(starter)))
            throw Error(ERR_CONNECTION_TIMEOUT, attempt);
    }
    if (const unsigned peer = socket.peerUser(); peer != ::getuid() && peer != 0)
        throw Error("The front end at '%s' belongs to another user (user id %u).", path.c_str(),
                    peer);
}

Conversation::~Conversation() {
    const sigset_t set = heardSignals();
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

bool Conversation::begin() {
    std::array<pollfd, 2> ends{{{socket.getFd(), POLLIN, 0}, {signals.get(), POLLIN, 0}}};
    while (::poll(ends.data(), ends.size(), -1) == -1 && errno == EINTR) {
    }
    if (ends[1].revents != 0) return false;
    socket.read(&id, sizeof id);
    if (id == -1) throw Error(ERR_CONNECTION_LIMIT);
    return true;
}

Conversation::Heard Conversation::hear(std::optional<Clock::time_point> until) {
    using std::chrono::milliseconds;
    while (waiting.empty()) {
        int left = -1;
        if (until) {
            const auto rest = std::chrono::ceil<milliseconds>(*until - Clock::now()).count();
            left = static_cast<int>(std::clamp<long long>(rest, 0, 3600 * 1000));
        }
        std::array<pollfd, 2> ends{{{socket.getFd(), POLLIN, 0}, {signals.get(), POLLIN, 0}}};
        if (::poll(ends.data(), ends.size(), left) == -1) continue;
        if (ends[1].revents != 0) {
            signalfd_siginfo what{};
            if (::read(signals.get(), &what, sizeof what) != sizeof what) continue;
            Heard heard;
            heard.kind = Heard::SIGNAL;
            heard.signal = static_cast<int>(what.ssi_signo);
            return heard;
        }
        if (ends[0].revents != 0) {
            read();
            if (waiting.empty() || waiting.front().kind != Heard::READY) continue;
            // As a console does; here, nobody uses the group.
            sendGroup(GroupCommand::ASSIGN, GroupNames::filtered, {});
            awaitReply();
        } else if (until && Clock::now() >= *until) {
            return {};
        }
    }
    Heard next = std::move(waiting.front());
    waiting.pop_front();
    return next;
}

// Reads one record; what is to be heard waits then.
void Conversation::read() {
    int kind = 0;
    socket.read(&kind, sizeof kind);
    Heard heard;
    if (kind == KIND_REPLY) {
        heard.kind = Heard::REPLY;
        heard.reply.recv(&socket);
        const Reply::Value value = heard.reply.getRetValue();
        if (value == Reply::CLIENT_ADD || value == Reply::CLIENT_REMOVE) return;
        // The session has lost its last client.
        if (value == Reply::FAILED && heard.reply.getErrCode() == INFO_ALL_CLIENTS_BROKEN)
            throw BrokenConnection();
    } else {
        heard.data.recv(&socket);
        switch (heard.data.getType()) {
        case Data::READY:
            heard.kind = Heard::READY;
            break;
        case Data::TEXT:
        case Data::URGENTTEXT:
            heard.kind = Heard::TEXT;
            break;
        default:
            return;
        }
        // Of other consoles.
        if (heard.data.getConsoleID() != id) return;
    }
    waiting.push_back(std::move(heard));
}

// Replies come in the order of their requests; behind a READY that comes meanwhile another one
// follows, to the answer that READY wants.
Reply Conversation::awaitReply() {
    std::deque<Heard> others = std::move(waiting);
    waiting.clear();
    std::optional<Reply> found;
    for (int due = 1; due > 0;) {
        read();
        if (waiting.empty()) continue;
        Heard heard = std::move(waiting.front());
        waiting.clear();
        if (heard.kind == Heard::REPLY) {
            if (!found) found = heard.reply;
            --due;
            continue;
        }
        if (heard.kind == Heard::READY) {
            sendGroup(GroupCommand::ASSIGN, GroupNames::filtered, {});
            ++due;
        }
        others.push_back(std::move(heard));
    }
    waiting = std::move(others);
    return *found;
}

void Conversation::send(Command::Type type, const std::string& group, const char* text,
                        int length) {
    Command command;
    command.init(id, group, type, text, length);
    command.send(&socket);
}

void Conversation::command(const std::string& group, const std::string& text) {
    send(Command::CLIENT, group, text.c_str(), -1);
}

void Conversation::interrupt() { send(Command::INTERRUPT, GroupNames::all, nullptr, 0); }

void Conversation::quit() { send(Command::QUIT, GroupNames::all, nullptr, 0); }

void Conversation::sendGroup(GroupCommand::Type type, const std::string& group,
                             const ClientSet& clients) {
    GroupCommand operation;
    operation.setOpType(type);
    operation.setBase(group);
    if (type != GroupCommand::QUERY) operation.addOperands(clients);
    const std::string body = Frame::packed(operation);
    send(Command::GROUP, GroupNames::all, body.data(), static_cast<int>(body.size()));
}

Reply Conversation::askGroup(GroupCommand::Type type, const std::string& group,
                             const ClientSet& clients) {
    sendGroup(type, group, clients);
    return awaitReply();
}

Reply Conversation::assign(const std::string& group, const ClientSet& clients) {
    return askGroup(GroupCommand::ASSIGN, group, clients);
}

Reply Conversation::forget(const std::string& group, const ClientSet& clients) {
    return askGroup(GroupCommand::DELETE, group, clients);
}

Reply Conversation::query(const std::string& group) {
    return askGroup(GroupCommand::QUERY, group, {});
}

Reply Conversation::standIn(const std::string& group) {
    send(Command::ON, GroupNames::all, group.c_str(), -1);
    return awaitReply();
}
