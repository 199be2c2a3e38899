#pragma once

#include <cstddef>
#include <string>
#include <vector>

class UnixSocket;

/// The word that announces a frame from the front end to a console, in the host's byte order.
enum MessageKind : int { KIND_DATA = 1000, KIND_REPLY = 1001 };

/// Framing of packed records: a 4-byte big-endian length, then the body.
namespace Frame {

/// The frame around a packed body of len bytes, ready to be written at once.
std::string wrap(const char* body, int len);
/// The same, behind a message kind, as the front end sends it.
std::string wrap(MessageKind kind, const char* body, int len);

/// The packed form of a record.
template <class Record>
std::string packed(const Record& record) {
    int length = 0;
    const auto body = record.pack(&length);
    return {body.get(), static_cast<std::size_t>(length)};
}

/// The frame of a record behind its kind.
template <class Record>
std::string of(MessageKind kind, const Record& record) {
    const std::string body = packed(record);
    return wrap(kind, body.data(), static_cast<int>(body.size()));
}

/// Writes one frame. Throws BrokenConnection.
void send(UnixSocket* socket, const char* body, int len);
/// Reads one frame's body. Memory grows with the bytes that arrive, never with the length alone.
/// Throws BrokenConnection, also for a negative length.
std::vector<char> recv(UnixSocket* socket);
/// Reads the head of a frame alone: the length of its body. Throws BrokenConnection, also for a
/// negative length.
std::size_t recvLength(UnixSocket* socket);

/// The length that stands at the head of a frame (4 bytes).
int length(const char* head);

} // namespace Frame
