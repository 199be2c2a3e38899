#include "backend/wire/rendezvous.h"

#include "backend/os/directory.h"
#include "backend/os/thismachine.h"
#include "backend/wire/handshake.h"
#include "common/descriptor.h"
#include "common/wholenumber.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sstream>
#include <stdexcept>
#include <sys/random.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string digits(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        text += "0123456789abcdef"[static_cast<unsigned char>(c) >> 4];
        text += "0123456789abcdef"[static_cast<unsigned char>(c) & 15];
    }
    return text;
}

std::string randomDigits(std::size_t bytes) {
    std::string raw(bytes, '\0');
    if (::getrandom(raw.data(), raw.size(), 0) != static_cast<ssize_t>(raw.size()))
        throw std::system_error(errno, std::generic_category(), "cannot get random bytes");
    return digits(raw);
}

int number(const std::string& text) {
    const auto value = wholeNumber<int>(text);
    if (!value) throw std::runtime_error("the rendezvous has no number where one belongs");
    return *value;
}

// A file of this folder, and the front end's process that wrote it.
struct Written {
    fs::path file;
    pid_t process = 0;
};

// The files that front ends of this machine have written; their names are "HOST,PID,RANDOM".
std::vector<Written> ownFiles(const fs::path& folder) {
    std::vector<Written> found;
    for (const std::string& each : namesIn(folder)) {
        std::istringstream name(each);
        std::string host, pid;
        if (std::getline(name, host, ',') && std::getline(name, pid, ',') &&
            host == ThisMachine::hostName())
            found.push_back({folder / each, wholeNumber<pid_t>(pid).value_or(0)});
    }
    return found;
}

// A file whose front end lives no more was left behind; a young one may belong to another machine
// of the same name.
void removeStale(const fs::path& folder) {
    for (const auto& [file, process] : ownFiles(folder)) {
        std::error_code fault;
        const auto age = fs::file_time_type::clock::now() - fs::last_write_time(file, fault);
        if (!fault && process > 0 && ::kill(process, 0) == -1 && errno == ESRCH &&
            age > std::chrono::hours(1))
            fs::remove(file, fault);
    }
}

[[noreturn]] void fail(const fs::path& path) {
    const std::string reason = std::strerror(errno);
    throw std::runtime_error("cannot write " + path.string() + ": " + reason +
                             ". Agents find their way by a file there; VEX_LAUNCH_DIR can name "
                             "another directory that all hosts of the job see.");
}

void makeDirectory(const fs::path& path) {
    if (::mkdir(path.c_str(), 0700) == -1 && errno != EEXIST) fail(path);
}

[[noreturn]] void refuse(const fs::path& path, const std::string& kind, const std::string& mode) {
    throw std::runtime_error(path.string() + " must be a " + kind +
                             " of yours that nobody else can read: chmod " + mode + " " +
                             path.string());
}

bool isOurs(const struct stat& status) {
    return status.st_uid == ::geteuid() || status.st_uid == 0;
}

} // namespace

std::string Rendezvous::str() const {
    std::ostringstream text;
    if (!socketName.empty()) text << "socket " << socketName << '\n';
    if (!nodeName.empty()) text << "node " << nodeName << '\n';
    for (const std::string& address : addresses)
        text << "address " << address << '\n';
    text << "port " << port << "\nsecret " << secret << '\n';
    for (const int rank : ranks)
        text << "rank " << rank << '\n';
    if (!ranks.empty()) text << "size " << size << '\n';
    text << "end .\n";
    return text.str();
}

Rendezvous Rendezvous::parse(std::istream& in) {
    Rendezvous result;
    for (std::string name, value; in >> name >> value;) {
        if (name == "socket")
            result.socketName = value;
        else if (name == "node")
            result.nodeName = value;
        else if (name == "address")
            result.addresses.push_back(value);
        else if (name == "port")
            result.port = number(value);
        else if (name == "secret")
            result.secret = value;
        else if (name == "rank")
            result.ranks.push_back(number(value));
        else if (name == "size")
            result.size = number(value);
        else if (name == "end" && !result.secret.empty() && result.port >= 0 &&
                 result.port <= 65535)
            return result;
    }
    throw std::runtime_error("the rendezvous is not complete");
}

std::string Rendezvous::newSecret() { return randomDigits(32); }

std::string Rendezvous::nodeNameOf(const std::string& secret) {
    return "vex-node-" + digits(Handshake::hash("node" + secret).substr(0, 16));
}

RendezvousFile::RendezvousFile(const fs::path& folder, const Rendezvous& content) {
    // Of a folder that others can rename, they can put another in its place. The settings directory
    // is made as private as the folder in it.
    const fs::path parent = (folder / "").parent_path().parent_path(); // "launch/" is "launch"
    makeDirectory(parent);
    struct stat status {};
    if (::stat(parent.c_str(), &status) == -1) fail(folder);
    // Above a folder that the user has chosen, a group's directory may be its administrator's.
    if ((parent.filename() == ".vex" && !isOurs(status)) ||
        (status.st_mode & (S_IWOTH | S_ISVTX)) == S_IWOTH)
        refuse(parent, "directory", "700");
    makeDirectory(folder);
    if (::lstat(folder.c_str(), &status) == -1) fail(folder);
    if (!S_ISDIR(status.st_mode) || status.st_uid != ::geteuid() || (status.st_mode & 077) != 0)
        refuse(folder, "directory", "700");
    removeStale(folder);
    file = folder /
           (ThisMachine::hostName() + "," + std::to_string(::getpid()) + "," + randomDigits(4));
    Descriptor out(::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!out) fail(file);
    const std::string text = content.str();
    std::size_t written = 0;
    for (ssize_t put = 0; put != -1 && written < text.size();
         written += static_cast<std::size_t>(std::max(put, ssize_t{0})))
        put = ::write(out.get(), text.data() + written, text.size() - written);
    if (written < text.size() || ::fsync(out.get()) == -1) {
        const int reason = errno;
        ::unlink(file.c_str());
        errno = reason;
        fail(file);
    }
}

RendezvousFile::~RendezvousFile() {
    if (!file.empty()) ::unlink(file.c_str());
}

Rendezvous RendezvousFile::read(const fs::path& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat status {};
    if (!file || ::fstat(file.get(), &status) == -1)
        throw std::runtime_error("cannot read " + path.string() +
                                 "; is the home directory shared?");
    if (!S_ISREG(status.st_mode) || !isOurs(status) || (status.st_mode & 077) != 0)
        refuse(path, "file", "600");
    std::string text;
    char piece[4096];
    for (ssize_t got; (got = ::read(file.get(), piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<std::size_t>(got));
    std::istringstream in(text);
    return Rendezvous::parse(in);
}

void RendezvousFile::removeOf(pid_t pid) {
    try {
        for (const auto& [written, process] : ownFiles(defaultFolder())) {
            std::error_code fault;
            if (process == pid) fs::remove(written, fault);
        }
    } catch (const std::runtime_error&) {
        // Without a home there is no file.
    }
}

fs::path RendezvousFile::defaultFolder() {
    if (const char* given = std::getenv("VEX_LAUNCH_DIR"); given && *given)
        return fs::absolute(given);
    const char* home = std::getenv("HOME");
    if (!home || !*home)
        throw std::runtime_error("HOME is not set; agents find their way by a file in ~/.vex.");
    return fs::path(home) / ".vex" / "launch";
}
