#include "fold/source.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace {

bool isStandardInput(const std::string& name) { return name.empty() || name == "-"; }

int openedFile(const std::string& name) {
    if (isStandardInput(name)) return -1;
    const int fd = ::open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd == -1) throw std::system_error(errno, std::generic_category(), name);
    return fd;
}

} // namespace

Source::Source(const std::string& name)
    : path(isStandardInput(name) ? "standard input" : name),
      opened(openedFile(name)),
      fd(isStandardInput(name) ? STDIN_FILENO : opened.get()) {}

Source::Result Source::read(std::optional<std::chrono::milliseconds> patience,
                            std::vector<std::string_view>& lines) {
    lines.clear();
    if (patience) {
        pollfd waited{fd, POLLIN, 0};
        const timespec time{patience->count() / 1000, patience->count() % 1000 * 1000000};
        sigset_t none;
        ::sigemptyset(&none);
        // No signal comes between the caller's look and the wait.
        if (::ppoll(&waited, 1, patience->count() < 0 ? nullptr : &time, &none) <= 0)
            return NOTHING;
        // Where there is always something to read, the wait lets no signal in.
        const timespec atOnce{};
        if (::ppoll(nullptr, 0, &atOnce, &none) == -1) return NOTHING;
    }
    // What was handed over makes room.
    std::memmove(buffer.data(), buffer.data() + done, filled - done);
    filled -= done;
    searched -= done;
    done = 0;
    if (buffer.size() < filled + piece) buffer.resize(std::max(filled + piece, 2 * filled));
    const ssize_t got = ::read(fd, buffer.data() + filled, buffer.size() - filled);
    if (got == -1 && (errno == EINTR || errno == EAGAIN)) return NOTHING;
    if (got == -1) throw std::system_error(errno, std::generic_category(), path);
    if (got == 0) {
        if (filled > 0) lines.emplace_back(buffer.data(), filled);
        done = searched = filled;
        return END;
    }
    filled += static_cast<std::size_t>(got);
    const std::string_view text(buffer.data(), filled);
    for (std::size_t newline; (newline = text.find('\n', searched)) != std::string_view::npos;) {
        lines.push_back(text.substr(done, newline - done));
        done = searched = newline + 1;
    }
    searched = filled;
    return LINES;
}
