#include "console/historyfile.h"

#include "common/descriptor.h"
#include "console/userfile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int trimAbove = 1000;
constexpr std::size_t keptLines = 800;
constexpr std::size_t countedBytes = 255;
constexpr int lockTries = 100; // of 10 ms each

// Another console holds the lock for moments only; a console that is stopped meanwhile must
// not stop this one.
// A file system without locks does without.
bool lock(int fd) {
    for (int i = 0; i < lockTries; ++i) {
        if (::flock(fd, LOCK_EX | LOCK_NB) == 0) return true;
        if (errno != EWOULDBLOCK && errno != EINTR) return true;
        const timespec pause{0, 10'000'000};
        ::nanosleep(&pause, nullptr);
    }
    return false;
}

// Opens the file for appending, locked, and makes sure that it still is the one of that name: a
// console that trims puts a new file in its place. The name becomes that of the file itself.
Descriptor openLocked(std::string& name) {
    for (int i = 0; i < lockTries; ++i) {
        const UserFile history(name);
        Descriptor file = history.open(O_RDWR | O_APPEND | O_CREAT);
        if (!file && errno == EACCES) file = history.open(O_WRONLY | O_APPEND);
        if (!file || !lock(file.get())) return {};
        struct stat ours {};
        struct stat named {};
        if (::fstat(file.get(), &ours) == 0 && ::lstat(history.path().c_str(), &named) == 0 &&
            ours.st_ino == named.st_ino && ours.st_dev == named.st_dev) {
            name = history.path();
            return file;
        }
    }
    return {};
}

std::string readAll(int fd) {
    std::string text;
    char piece[65536];
    off_t at = 0;
    for (ssize_t got; (got = ::pread(fd, piece, sizeof piece, at)) > 0; at += got)
        text.append(piece, static_cast<std::size_t>(got));
    return text;
}

// All or nothing: what a full disk has cut short is taken back.
bool append(int fd, const std::string& text) {
    struct stat before {};
    if (::fstat(fd, &before) == -1) return false;
    std::size_t written = 0;
    for (ssize_t put = 0; put != -1 && written < text.size();) {
        put = ::write(fd, text.data() + written, text.size() - written);
        if (put > 0) written += static_cast<std::size_t>(put);
    }
    if (written == text.size()) return true;
    if (written > 0) {
        [[maybe_unused]] const int cut = ::ftruncate(fd, before.st_size);
    }
    return false;
}

std::string lastLines(const std::string& text, std::size_t lines) {
    if (lines == 0 || text.empty()) return "";
    std::size_t at = text.size() - (text.back() == '\n' ? 1 : 0);
    while (at > 0) {
        if (text[at - 1] == '\n' && --lines == 0) break;
        --at;
    }
    return text.substr(at);
}

int countPieces(const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t newline = text.find('\n', at);
        const std::size_t next = newline == std::string::npos ? text.size() : newline + 1;
        count += (next - at + countedBytes - 1) / countedBytes;
        at = next;
    }
    return static_cast<int>(count);
}

enum class Trim { DONE, FAILED, FORBIDDEN };

bool isForbidden(int fault) {
    return fault == EACCES || fault == EPERM || fault == EROFS || fault == EBUSY;
}

bool takeOwnerAndMode(int fresh, int old) {
    struct stat status {};
    return ::fstat(old, &status) == 0 && ::fchown(fresh, status.st_uid, status.st_gid) == 0 &&
           ::fchmod(fresh, status.st_mode & 07777) == 0;
}

// Puts a new file with these lines in the place of the old one, whose lock is held until the new
// one, locked too, has its name.
Trim replace(Descriptor& file, const std::string& path, const std::string& kept) {
    std::string name = path + ".XXXXXX";
    Descriptor fresh(::mkostemp(name.data(), O_APPEND | O_CLOEXEC));
    if (!fresh) return isForbidden(errno) ? Trim::FORBIDDEN : Trim::FAILED;
    Trim outcome = Trim::FAILED;
    if (!takeOwnerAndMode(fresh.get(), file.get()))
        outcome = Trim::FORBIDDEN;
    else if (lock(fresh.get()) && append(fresh.get(), kept) && ::fsync(fresh.get()) == 0) {
        if (::rename(name.c_str(), path.c_str()) == 0) {
            file = std::move(fresh);
            return Trim::DONE;
        }
        if (isForbidden(errno)) outcome = Trim::FORBIDDEN;
    }
    ::unlink(name.c_str());
    return outcome;
}

// Writes the last lines over the first ones and cuts the file off behind them.
bool rewrite(int fd, const std::string& text, const std::string& kept) {
    // Linux appends what pwrite(2) writes to a file that is open for appending.
    const int flags = ::fcntl(fd, F_GETFL);
    if (::fcntl(fd, F_SETFL, flags & ~O_APPEND) == -1) return false;
    const ssize_t put = ::pwrite(fd, kept.data(), kept.size(), 0);
    const bool whole = put == static_cast<ssize_t>(kept.size()) && ::ftruncate(fd, put) == 0;
    if (!whole && put > 0) (void)!::pwrite(fd, text.data(), static_cast<std::size_t>(put), 0);
    ::fcntl(fd, F_SETFL, flags);
    return whole;
}

bool trim(Descriptor& file, const std::string& path, const std::string& text) {
    const std::string kept = lastLines(text, keptLines);
    const Trim outcome = replace(file, path, kept);
    return outcome == Trim::DONE || (outcome == Trim::FORBIDDEN && rewrite(file.get(), text, kept));
}

} // namespace

void HistoryFile::write(const std::string& line) const {
    if (path.empty()) return;
    std::string name = path;
    Descriptor file = openLocked(name);
    if (!file) return;
    const std::string text = readAll(file.get());
    if (countPieces(text) > trimAbove && !trim(file, name, text)) return;
    // A last line without its newline stays a line of its own.
    const bool open = !text.empty() && text.back() != '\n';
    append(file.get(), open ? "\n" + line : line);
}

int HistoryFile::countLines() const {
    const Descriptor file = UserFile(path).open(O_RDONLY);
    return file ? countPieces(readAll(file.get())) : 0;
}

std::string HistoryFile::tail(std::size_t lines) const {
    const Descriptor file = UserFile(path).open(O_RDONLY);
    return file ? lastLines(readAll(file.get()), lines) : "";
}
