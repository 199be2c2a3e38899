#include "backend/os/drain.h"

#include <poll.h>

bool hasInput(int fd) {
    pollfd ready{fd, POLLIN, 0};
    return ::poll(&ready, 1, 0) == 1 && (ready.revents & POLLIN) != 0;
}
