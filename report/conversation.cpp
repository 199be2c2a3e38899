#include "report/conversation.h"

#include "common/catalog.h"
#include "common/error.h"
#include "common/frame.h"
#include "common/groupnames.h"
#include "common/sessionfile.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <string_view>
#include <sys/signalfd.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int attempts = 60; // one a second

// How the answer to a question for all clients begins, "all (3): 0:2".
constexpr std::string_view allMark = "all (";

constexpr std::chrono::seconds serving(10);

// What poll is to wait; no time: for ever.
int left(std::optional<Conversation::Clock::time_point> until) {
    using std::chrono::milliseconds;
    if (!until) return -1;
    const auto rest = std::chrono::ceil<milliseconds>(*until - Conversation::Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(rest, 0, 3600 * 1000));
}

bool lives(pid_t process) { return ::kill(process, 0) == 0 || errno != ESRCH; }

// "REPORT (3): 0:1 4", as groups are told.
ClientSet parseGroup(const std::string& text) {
    ClientSet found;
    const std::size_t colon = text.find("): ");
    std::size_t at = colon == std::string::npos ? text.size() : colon + 3;
    while (at < text.size()) {
        const std::size_t end = std::min(text.find_first_of(" \n", at), text.size());
        const std::string word = text.substr(at, end - at);
        const std::size_t middle = word.find(':');
        const auto first = wholeNumber<int>(word.substr(0, middle));
        const auto last =
            middle == std::string::npos ? first : wholeNumber<int>(word.substr(middle + 1));
        if (first && last && *first <= *last) found.insertRange(*first, *last);
        at = end + 1;
    }
    return found;
}

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

int Conversation::begin(pid_t starter) {
    std::optional<Clock::time_point> until;
    int number = 0;
    for (std::array<pollfd, 2> ends;;) {
        ends = {{{socket.getFd(), POLLIN, 0}, {signals.get(), POLLIN, 0}}};
        const int found = ::poll(ends.data(), ends.size(), left(until));
        if (found == -1 && errno == EINTR) continue;
        if (ends[0].revents != 0) break;
        const int heard = found > 0 ? takeSignal() : 0;
        if (number == 0) number = heard;
        if (number != 0 && (starter == -1 || found == 0))
            throw Error("The %s when %s came, and no report is written.",
                        starter == -1 ? "session had not answered"
                                      : "debuggers had not all started",
                        ("SIG" + std::string(::sigabbrev_np(number))).c_str());
        if (number != 0 && !until) {
            until = Clock::now() + serving;
            ::kill(starter, SIGUSR1);
        }
    }
    socket.read(&id, sizeof id);
    if (id == -1) throw Error(ERR_CONNECTION_LIMIT);
    return number;
}

int Conversation::takeSignal() {
    signalfd_siginfo what{};
    const bool whole = ::read(signals.get(), &what, sizeof what) == sizeof what;
    return whole ? static_cast<int>(what.ssi_signo) : 0;
}

Conversation::Heard Conversation::hear(std::optional<Clock::time_point> until) {
    while (waiting.empty()) {
        std::array<pollfd, 2> ends{{{socket.getFd(), POLLIN, 0}, {signals.get(), POLLIN, 0}}};
        if (::poll(ends.data(), ends.size(), left(until)) == -1) continue;
        if (ends[1].revents != 0) {
            const int number = takeSignal();
            if (number == 0) continue;
            Heard heard;
            heard.kind = Heard::SIGNAL;
            heard.signal = number;
            return heard;
        }
        if (ends[0].revents != 0) {
            read();
            if (waiting.empty() || waiting.front().kind != Heard::READY) continue;
            // As a console does; here, nobody uses the group.
            sendGroup(GroupCommand::ASSIGN, GroupNames::filtered, {});
        } else if (until && Clock::now() >= *until) {
            return {};
        }
    }
    Heard next = std::move(waiting.front());
    waiting.pop_front();
    return next;
}

// Reads one record: gives a reply back; what is to be heard waits then.
std::optional<Reply> Conversation::read() {
    int kind = 0;
    socket.read(&kind, sizeof kind);
    if (kind == KIND_REPLY) {
        Reply reply;
        reply.recv(&socket);
        const Reply::Value value = reply.getRetValue();
        // The session has lost its last client.
        if (value == Reply::FAILED && reply.getErrCode() == INFO_ALL_CLIENTS_BROKEN)
            throw BrokenConnection();
        if (value == Reply::CLIENT_ADD) {
            Heard heard;
            heard.kind = Heard::FORKED;
            heard.client = reply.getErrCode();
            waiting.push_back(std::move(heard));
        }
        return reply;
    }
    Heard heard;
    heard.data.recv(&socket);
    const Data::Type type = heard.data.getType();
    const bool text = type == Data::TEXT || type == Data::URGENTTEXT;
    // Others are those of other consoles.
    if ((!text && type != Data::READY) || heard.data.getConsoleID() != id) return std::nullopt;
    heard.kind = text ? Heard::TEXT : Heard::READY;
    waiting.push_back(std::move(heard));
    return std::nullopt;
}

// Asks for a group and waits for the answer, the only one of its kind: all that was sent before has
// been dealt with then. Requests that have failed are told; what tells of success may as well be
// the session's own words about interrupts and questions.
Conversation::Settled Conversation::settle(bool alone) {
    std::deque<Heard> others = std::move(waiting);
    waiting.clear();
    Settled settled;
    sendGroup(GroupCommand::QUERY, GroupNames::all, {});
    for (;;) {
        const std::optional<Reply> reply = read();
        if (reply && reply->getRetValue() == Reply::GROUP_QUERY) {
            const bool last = reply->getRetInfo().starts_with(allMark);
            (last ? settled.all : settled.members) = parseGroup(reply->getRetInfo());
            if (last) break;
        }
        if (reply && reply->getRetValue() == Reply::FAILED) {
            settled.failure = reply->getErrCode();
            // A session without clients has no group.
            if (alone && settled.failure == CMD_GROUP_NOT_FOUND) break;
        }
        if (waiting.empty()) continue;
        if (waiting.front().kind == Heard::READY)
            sendGroup(GroupCommand::ASSIGN, GroupNames::filtered, {});
        others.push_back(std::move(waiting.front()));
        waiting.clear();
    }
    waiting = std::move(others);
    return settled;
}

void Conversation::send(Command::Type type, const std::string& group, const char* text,
                        int length) {
    Command command;
    command.init(id, group, type, text, length);
    command.send(&socket);
}

std::optional<int> Conversation::command(const std::string& group, const std::string& text) {
    send(Command::CLIENT, group, text.c_str(), -1);
    return settle().failure;
}

void Conversation::interrupt(const std::string& group) {
    send(Command::INTERRUPT, group, nullptr, 0);
}

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

bool Conversation::assign(const std::string& group, const ClientSet& clients) {
    sendGroup(GroupCommand::ASSIGN, group, clients);
    return !settle().failure;
}

void Conversation::forget(const std::string& group, const ClientSet& clients) {
    sendGroup(GroupCommand::DELETE, group, clients);
    settle();
}

ClientSet Conversation::members(const std::string& group) {
    if (group == GroupNames::all) return settle(true).all;
    sendGroup(GroupCommand::QUERY, group, {});
    return settle().members;
}

ClientSet Conversation::atWork() { return members(GroupNames::pending); }

void Conversation::awaitAll() {
    send(Command::ON, GroupNames::all, GroupNames::all, -1);
    settle();
}
