#include "console/userfile.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace {

namespace fs = std::filesystem;

constexpr int maxLinks = 40;
constexpr off_t maxSize = off_t{16} << 20;
constexpr mode_t privateFile = 0600;
constexpr mode_t privateDirectory = 0700;

bool isOurs(const struct stat& status) {
    return status.st_uid == ::geteuid() || status.st_uid == 0;
}

bool isTrusted(const struct stat& status) {
    return isOurs(status) && (status.st_mode & S_IWOTH) == 0;
}

bool isRegular(const struct stat& status) {
    return S_ISREG(status.st_mode) && status.st_size <= maxSize;
}

} // namespace

UserFile::UserFile(std::string path) : name(std::move(path)), state(follow()) {}

UserFile::State UserFile::follow() {
    for (int links = 0; links < maxLinks; ++links) {
        const fs::path folder = fs::path(name).parent_path();
        struct stat status {};
        if (::stat(folder.c_str(), &status) == -1) return MISSING;
        if (!isTrusted(status)) {
            name = folder;
            return FOREIGN;
        }
        if (::lstat(name.c_str(), &status) == -1) return errno == ENOENT ? MISSING : OTHER;
        if (!S_ISLNK(status.st_mode)) {
            if (!isRegular(status)) return OTHER;
            return isTrusted(status) ? REGULAR : FOREIGN;
        }
        if (!isOurs(status)) return FOREIGN;
        std::error_code fault;
        const fs::path target = fs::read_symlink(name, fault);
        if (fault) return OTHER;
        name = folder / target;
    }
    return OTHER;
}

Descriptor UserFile::open(int flags) const {
    constexpr int careful = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    if (state == MISSING && (flags & O_CREAT)) {
        Descriptor made(::open(name.c_str(), flags | O_EXCL | careful, privateFile));
        if (made) ::fchmod(made.get(), privateFile);
        // Another console may have been faster.
        if (made || errno != EEXIST) return made;
    } else if (state != REGULAR) {
        errno = state == MISSING ? ENOENT : EPERM;
        return {};
    }
    Descriptor file(::open(name.c_str(), (flags & ~O_CREAT) | careful));
    struct stat status {};
    if (file && (::fstat(file.get(), &status) == -1 || !isRegular(status) || !isTrusted(status))) {
        file.reset();
        errno = EPERM;
    }
    return file;
}

File UserFile::read() const {
    Descriptor file = open(O_RDONLY);
    File stream(file ? ::fdopen(file.get(), "r") : nullptr);
    if (stream) file.release();
    return stream;
}

bool UserFile::makeDirectory(const std::string& path) {
    if (::access(path.c_str(), F_OK) == 0) return true;
    const mode_t mask = ::umask(~privateDirectory & 0777);
    const bool made = ::mkdir(path.c_str(), privateDirectory) == 0;
    ::umask(mask);
    return made;
}

bool UserFile::isForeignDirectory(const std::string& path) {
    struct stat link {};
    struct stat status {};
    return (::lstat(path.c_str(), &link) == 0 && !isOurs(link)) ||
           (::stat(path.c_str(), &status) == 0 && !isTrusted(status));
}
