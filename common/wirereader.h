#pragma once

#include "common/line.h"

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

class UnixSocket;

/// Reads the items of one packed record (see Packer) from memory, or from a connection while they
/// arrive, so that a large record never stands in memory as a whole. Every length is checked
/// against the bytes that are left of the record; what does not fit throws BrokenConnection.
/// Borrows the memory, or the socket.
class WireReader {
  public:
    WireReader(const void* record, std::size_t size);
    /// Reads the record of that many bytes off the connection, piece by piece, and never beyond its
    /// end. Memory grows with the bytes that arrive.
    WireReader(UnixSocket& connection, std::size_t size);

    int readInt();
    /// An int that counts items of at least itemSize bytes each.
    int readCount(std::size_t itemSize);
    /// A text, up to its first NUL. It stands until the next read.
    std::string_view readText();
    /// Ids, of which there are so many, as clients of the line, in the order in which they come.
    void readClients(int number, Line& line);
    /// Bytes of the record that have not been read.
    std::size_t remaining() const { return static_cast<std::size_t>(end - at) + outside; }
    /// Reads and drops the rest.
    void skip();

  private:
    UnixSocket* socket = nullptr;
    std::size_t outside = 0; // bytes of the record still to be read off the socket
    std::unique_ptr<char[]> buffer;
    std::size_t capacity = 0;
    const char* at = nullptr; // what has been read off, up to end
    const char* end = nullptr;
    std::string longText;

    void need(std::size_t bytes) {
        if (static_cast<std::size_t>(end - at) < bytes) fill(bytes);
    }
    void fill(std::size_t bytes);
    std::string_view collect(std::size_t size);
};
