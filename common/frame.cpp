#include "common/frame.h"

#include "common/unixsock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cassert>
#include <cstdint>
#include <cstring>

std::string Frame::wrap(const char* body, int len) {
    const std::uint32_t head = htonl(static_cast<std::uint32_t>(len));
    std::string frame(sizeof head, '\0');
    std::memcpy(frame.data(), &head, sizeof head);
    frame.append(body, static_cast<std::size_t>(len));
    return frame;
}

std::string Frame::wrap(MessageKind kind, const char* body, int len) {
    const int word = kind;
    std::string frame(sizeof word, '\0');
    std::memcpy(frame.data(), &word, sizeof word);
    return frame + wrap(body, len);
}

int Frame::length(const char* head) {
    std::uint32_t wire;
    std::memcpy(&wire, head, sizeof wire);
    return static_cast<int>(ntohl(wire));
}

void Frame::send(UnixSocket* socket, const char* body, int len) {
    assert(socket);
    const std::string frame = wrap(body, len);
    socket->write(frame.data(), static_cast<int>(frame.size()));
}

std::size_t Frame::recvLength(UnixSocket* socket) {
    assert(socket);
    char head[4];
    socket->read(head, sizeof head);
    const int len = length(head);
    if (len < 0) throw BrokenConnection();
    return static_cast<std::size_t>(len);
}

std::vector<char> Frame::recv(UnixSocket* socket) {
    const std::size_t len = recvLength(socket);
    std::vector<char> body;
    while (body.size() < len) {
        const std::size_t have = body.size();
        const std::size_t step = std::min(len - have, std::max<std::size_t>(have, 65536));
        body.resize(have + step);
        socket->read(body.data() + have, static_cast<int>(step));
    }
    return body;
}
