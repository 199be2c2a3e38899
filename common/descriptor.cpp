#include "common/descriptor.h"

#include <unistd.h>

void Descriptor::reset(int fd) {
    if (number != -1 && number != fd) ::close(number);
    number = fd;
}
