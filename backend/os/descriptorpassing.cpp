#include "backend/os/descriptorpassing.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

bool DescriptorPassing::send(int socket, std::string_view bytes,
                             const std::vector<int>& descriptors) {
    assert(!bytes.empty() && descriptors.size() <= most);
    alignas(cmsghdr) std::array<char, CMSG_SPACE(most * sizeof(int))> control{};
    bool handed = descriptors.empty();
    while (!bytes.empty()) {
        iovec piece{const_cast<char*>(bytes.data()), bytes.size()};
        msghdr message{};
        message.msg_iov = &piece;
        message.msg_iovlen = 1;
        if (!handed) {
            message.msg_control = control.data();
            message.msg_controllen = CMSG_SPACE(descriptors.size() * sizeof(int));
            cmsghdr* const head = CMSG_FIRSTHDR(&message);
            head->cmsg_level = SOL_SOCKET;
            head->cmsg_type = SCM_RIGHTS;
            head->cmsg_len = CMSG_LEN(descriptors.size() * sizeof(int));
            std::memcpy(CMSG_DATA(head), descriptors.data(), descriptors.size() * sizeof(int));
        }
        const ssize_t put = ::sendmsg(socket, &message, MSG_NOSIGNAL);
        if (put == -1 && errno == EINTR) continue;
        if (put == -1) return false;
        handed = true;
        bytes.remove_prefix(static_cast<std::size_t>(put));
    }
    return true;
}

std::pair<ssize_t, std::vector<Descriptor>> DescriptorPassing::receive(int socket, char* buffer,
                                                                       std::size_t size) {
    alignas(cmsghdr) std::array<char, CMSG_SPACE(most * sizeof(int))> control{};
    iovec piece{buffer, size};
    msghdr message{};
    message.msg_iov = &piece;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t got = ::recvmsg(socket, &message, MSG_CMSG_CLOEXEC);
    std::vector<Descriptor> descriptors;
    for (cmsghdr* each = got == -1 ? nullptr : CMSG_FIRSTHDR(&message); each;
         each = CMSG_NXTHDR(&message, each)) {
        if (each->cmsg_level != SOL_SOCKET || each->cmsg_type != SCM_RIGHTS) continue;
        std::array<int, most> numbers;
        const std::size_t bytes = std::min(each->cmsg_len - CMSG_LEN(0), sizeof numbers);
        std::memcpy(numbers.data(), CMSG_DATA(each), bytes);
        for (std::size_t i = 0; i < bytes / sizeof(int); ++i)
            descriptors.emplace_back(numbers[i]);
    }
    return {got, std::move(descriptors)};
}
