#include "report/wholefile.h"

#include "common/descriptor.h"

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace {

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(),
                            "cannot write the report '" + path + "'");
}

bool writeAll(int descriptor, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = ::write(descriptor, text.data(), text.size());
        if (put == -1 && errno != EINTR) return false;
        if (put > 0) text.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

} // namespace

WholeFile::WholeFile(const std::string& where) : path(where) {
    if (path == "-") return;
    // The file that a link names, not the link.
    std::error_code fault;
    const auto real = std::filesystem::canonical(path, fault);
    if (!fault) path = real.string();
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        errno = S_ISDIR(status.st_mode) ? EISDIR : EEXIST;
        fail(where);
    }
    int descriptor = -1;
    const std::string trial = temporary(descriptor);
    const Descriptor owner(descriptor);
    ::unlink(trial.c_str());
}

std::string WholeFile::temporary(int& descriptor) const {
    std::string name = path + ".XXXXXX";
    descriptor = ::mkstemp(name.data());
    if (descriptor == -1) fail(path);
    return name;
}

void WholeFile::write(const std::string& text) const {
    if (path == "-") {
        // Who closes a pipe has read enough.
        if (!writeAll(STDOUT_FILENO, text) && errno != EPIPE) fail("-");
        return;
    }
    int descriptor = -1;
    const std::string name = temporary(descriptor);
    const Descriptor owner(descriptor);
    // As any other file of this user.
    const mode_t mask = ::umask(0);
    ::umask(mask);
    if (writeAll(descriptor, text) && ::fchmod(descriptor, 0666 & ~mask) == 0 &&
        ::fsync(descriptor) == 0 && ::rename(name.c_str(), path.c_str()) == 0)
        return;
    const int reason = errno;
    ::unlink(name.c_str());
    errno = reason;
    fail(path);
}
