#include "backend/os/pipe.h"

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

Pipe::Pipe() {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) == -1)
        throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
    reader.reset(ends[0]);
    writer.reset(ends[1]);
}

void Pipe::unblock(const Descriptor& end) { ::fcntl(end.get(), F_SETFL, O_NONBLOCK); }
