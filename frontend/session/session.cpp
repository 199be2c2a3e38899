#include "frontend/session/session.h"

#include "backend/os/directory.h"
#include "common/error.h"
#include "common/sessionfile.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <pwd.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// A socket with a name in the abstract namespace (unix(7)); none when the name is taken.
Descriptor claimName(const std::string& name) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path + 1, name.data(), name.size());
    Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
    if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), length) == -1) socket.reset();
    return socket;
}

// Whether somebody answers behind a socket file: the claim does not reach across containers that
// share /tmp.
bool answers(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    return ::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 ||
           errno == EAGAIN || errno == EACCES || errno == EPERM;
}

// Where all numbers are taken: whose socket files most of them are, and what helps.
std::string whyNone() {
    namespace fs = std::filesystem;
    const fs::path prefix = SessionFile::prefix;
    std::map<uid_t, int> filesOf;
    std::error_code fault;
    for (fs::directory_iterator at(prefix.parent_path(), fault), end; !fault && at != end;
         at.increment(fault)) {
        struct stat status {};
        const std::string& path = at->path().native();
        if (path.starts_with(prefix.native()) && ::lstat(path.c_str(), &status) == 0)
            ++filesOf[status.st_uid];
    }
    const std::string text = "no session number is free";
    const auto most =
        std::ranges::max_element(filesOf, {}, [](const auto& each) { return each.second; });
    if (most == filesOf.end()) return text + ".";
    const passwd* const entry = ::getpwuid(most->first);
    const std::string name = entry ? entry->pw_name : std::to_string(most->first);
    const std::string files = text + ": " + std::to_string(most->second) + " files " +
                              prefix.native() + "N belong to user " + name + ". ";
    if (most->first == ::getuid())
        return files + "End sessions that you do not need; vex --list shows them.";
    return files + "Have that user or root remove them: find " + prefix.parent_path().native() +
           " -maxdepth 1 -name '" + prefix.filename().native() + "*' -user " + name + " -delete";
}

std::string claimOf(int number) { return "vex-session-" + std::to_string(number); }
std::string controlName(int number) { return "vex-control-" + std::to_string(number); }

} // namespace

Session::Session(int from) {
    for (int number = from; number <= SessionFile::maxNumber; ++number) {
        if (take(number)) return;
    }
    throw std::runtime_error(whyNone());
}

bool Session::take(int number) {
    const std::string path = SessionFile::path(number);
    Descriptor name = claimName(claimOf(number));
    if (!name || answers(path)) return false;
    Descriptor entrance = Channel::listenAs(controlName(number));
    if (!entrance) return false;
    socket.emplace();
    try {
        socket->bind(path.c_str());
        socket->async();
    } catch (const ::Error&) {
        // Most likely the file of another user.
        return false;
    }
    id = number;
    file = path;
    claim = std::move(name);
    door = std::move(entrance);
    return true;
}

Session::~Session() {
    if (!file.empty()) ::unlink(file.c_str());
}

void Session::stopListening() {
    socket->drop();
    door.reset();
}

void Session::leave() {
    stopListening();
    file.clear();
}

std::optional<Channel> Session::reach(int number) { return Channel::to(controlName(number)); }

std::vector<int> Session::candidates() {
    std::vector<int> numbers;
    const std::filesystem::path prefix = SessionFile::prefix;
    for (const std::string& name : namesIn(prefix.parent_path())) {
        const std::string path = prefix.parent_path() / name;
        if (!path.starts_with(SessionFile::prefix)) continue;
        const auto number = wholeNumber<int>(std::string_view(path).substr(prefix.native().size()));
        struct stat status {};
        if (number && ::lstat(path.c_str(), &status) == 0 && S_ISSOCK(status.st_mode) &&
            status.st_uid == ::getuid())
            numbers.push_back(*number);
    }
    std::ranges::sort(numbers);
    return numbers;
}

void Session::removeDead(int number) {
    const Descriptor name = claimName(claimOf(number)); // nobody else takes it meanwhile
    const std::string path = SessionFile::path(number);
    if (name && !answers(path)) ::unlink(path.c_str());
}

std::unique_ptr<UnixSocket> Session::accept() {
    try {
        std::string peer;
        std::unique_ptr<UnixSocket> connection = socket->accept(peer);
        const unsigned user = connection->peerUser();
        if (user != ::getuid() && user != 0) return nullptr;
        connection->async();
        return connection;
    } catch (const ::Error&) {
        return nullptr;
    }
}
