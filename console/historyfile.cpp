#include "console/historyfile.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace {

constexpr int trimAbove = 1000;
constexpr std::size_t keptLines = 800;
constexpr std::size_t countedBytes = 255;
constexpr int lockTries = 100; // of 10 ms each
constexpr mode_t privateFile = 0600;

// Owns a descriptor; closing it gives up its lock.
class File {
  public:
    explicit File(int descriptor) : fd(descriptor) {}
    File(File&& other) noexcept : fd(std::exchange(other.fd, -1)) {}
    File& operator=(File&& other) noexcept {
        std::swap(fd, other.fd);
        return *this;
    }
    ~File() {
        if (fd != -1) ::close(fd);
    }
    int get() const { return fd; }
    explicit operator bool() const { return fd != -1; }

  private:
    int fd;
};

// Another console holds the lock for moments only; one that is stopped meanwhile must not stop us.
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
// console that trims puts a new file in its place.
File openLocked(const std::string& path) {
    for (int i = 0; i < lockTries; ++i) {
        File file(::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, privateFile));
        if (!file || !lock(file.get())) return File(-1);
        struct stat ours {};
        struct stat named {};
        if (::fstat(file.get(), &ours) == 0 && ::stat(path.c_str(), &named) == 0 &&
            ours.st_ino == named.st_ino && ours.st_dev == named.st_dev)
            return file;
    }
    return File(-1);
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
    const ssize_t put = ::write(fd, text.data(), text.size());
    if (put == static_cast<ssize_t>(text.size())) return true;
    if (put > 0) {
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

// Puts a new file with these lines in the place of the old one; the new one comes back locked.
File replace(const std::string& path, const std::string& text) {
    std::string name = path + ".XXXXXX";
    File fresh(::mkostemp(name.data(), O_APPEND | O_CLOEXEC));
    if (!fresh) return fresh;
    if (lock(fresh.get()) && append(fresh.get(), text) && ::fsync(fresh.get()) == 0 &&
        ::rename(name.c_str(), path.c_str()) == 0)
        return fresh;
    ::unlink(name.c_str());
    return File(-1);
}

// The file that a link of the user's leads to, so that a trim does not replace the link.
std::string target(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                           &std::free);
    return real ? real.get() : path;
}

} // namespace

void HistoryFile::write(const std::string& path, const std::string& line) {
    if (path.empty()) return;
    const std::string name = target(path);
    File file = openLocked(name);
    if (!file) return;
    struct stat status {};
    if (::fstat(file.get(), &status) == 0 && (status.st_mode & 0777) != privateFile)
        ::fchmod(file.get(), privateFile);
    const std::string text = readAll(file.get());
    if (countPieces(text) > trimAbove) {
        // The old file's lock is held until the new one, locked too, has its name.
        file = replace(name, lastLines(text, keptLines));
        if (!file) return;
    }
    // A last line without its newline stays a line of its own.
    const bool open = !text.empty() && text.back() != '\n';
    append(file.get(), open ? "\n" + line : line);
}

int HistoryFile::countLines(const std::string& path) {
    const File file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file ? countPieces(readAll(file.get())) : 0;
}

std::string HistoryFile::tail(const std::string& path, std::size_t lines) {
    const File file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    return file ? lastLines(readAll(file.get()), lines) : "";
}
