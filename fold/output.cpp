#include "fold/output.h"

#include <cerrno>
#include <system_error>
#include <unistd.h>

void Output::flush() {
    for (std::string_view left = held; !left.empty();) {
        const ssize_t put = ::write(fd, left.data(), left.size());
        if (put == -1 && errno == EINTR) continue;
        if (put == -1) throw std::system_error(errno, std::generic_category(), "standard output");
        left.remove_prefix(static_cast<std::size_t>(put));
    }
    held.clear();
}
