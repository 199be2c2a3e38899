#include "common/wirereader.h"

#include "common/brokenconnection.h"
#include "common/unixsock.h"

#include <algorithm>
#include <arpa/inet.h>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

// What is read off at once: few calls, and it stays in the cache until it has been looked at.
constexpr std::size_t pieceSize = 262144;

std::uint32_t wordAt(const char* at) {
    std::uint32_t wire;
    std::memcpy(&wire, at, sizeof wire);
    return ntohl(wire);
}

// Two ids, the first one in the upper half.
std::uint64_t pairAt(const char* at) {
    std::uint64_t wire;
    std::memcpy(&wire, at, sizeof wire);
    if constexpr (std::endian::native == std::endian::little) return __builtin_bswap64(wire);
    return wire;
}

// How many ids, of `number` at a place, follow each other by one, from the first one on.
std::size_t runLength(const char* at, std::size_t number) {
    constexpr std::uint64_t two = 0x0000000200000002;
    const std::uint32_t first = wordAt(at);
    std::size_t length = 1;
    // Eight at a time, as long as no half of a pair runs over.
    const std::size_t room = std::min<std::size_t>(number, ~first);
    std::uint64_t pair =
        static_cast<std::uint64_t>(first + 1) << 32 | static_cast<std::uint32_t>(first + 2);
    for (; length + 8 <= room; length += 8, pair += 4 * two) {
        const char* here = at + 4 * length;
        const std::uint64_t odd = (pairAt(here) ^ pair) | (pairAt(here + 8) ^ (pair + two)) |
                                  (pairAt(here + 16) ^ (pair + 2 * two)) |
                                  (pairAt(here + 24) ^ (pair + 3 * two));
        if (odd != 0) break;
    }
    while (length < number && wordAt(at + 4 * length) == first + static_cast<std::uint32_t>(length))
        ++length;
    return length;
}

} // namespace

WireReader::WireReader(const void* record, std::size_t size)
    : at(static_cast<const char*>(record)), end(at + size) {}

WireReader::WireReader(UnixSocket& connection, std::size_t size)
    : socket(&connection),
      outside(size),
      buffer(std::make_unique_for_overwrite<char[]>(std::min(size, pieceSize))),
      capacity(std::min(size, pieceSize)),
      at(buffer.get()),
      end(at) {}

// Has at least that many bytes at hand, which the buffer can hold.
void WireReader::fill(std::size_t bytes) {
    if (bytes > remaining()) throw BrokenConnection();
    std::size_t have = static_cast<std::size_t>(end - at);
    if (have > 0) std::memmove(buffer.get(), at, have);
    at = buffer.get();
    while (have < bytes) {
        const std::size_t got =
            socket->readSome(buffer.get() + have, std::min(capacity - have, outside));
        have += got;
        outside -= got;
        end = at + have;
    }
}

int WireReader::readInt() {
    need(4);
    const std::uint32_t value = wordAt(at);
    at += 4;
    return static_cast<int>(value);
}

int WireReader::readCount(std::size_t itemSize) {
    const int count = readInt();
    if (count < 0 || static_cast<std::size_t>(count) > remaining() / itemSize)
        throw BrokenConnection();
    return count;
}

// A text that is longer than the buffer.
std::string_view WireReader::collect(std::size_t size) {
    longText.clear();
    while (size > 0) {
        need(1);
        const std::size_t piece = std::min(size, static_cast<std::size_t>(end - at));
        longText.append(at, piece);
        at += piece;
        size -= piece;
    }
    return longText;
}

std::string_view WireReader::readText() {
    const std::size_t size = static_cast<std::size_t>(readCount(1));
    std::string_view text;
    if (!socket || size <= capacity) {
        need(size);
        text = {at, size};
        at += size;
    } else {
        text = collect(size);
    }
    if (text.empty() || text.back() != '\0') throw BrokenConnection();
    return text.substr(0, text.find('\0'));
}

void WireReader::readClients(int number, Line& line) {
    if (number < 0 || static_cast<std::size_t>(number) > remaining() / 4) throw BrokenConnection();
    for (std::size_t left = static_cast<std::size_t>(number); left > 0;) {
        need(4);
        const std::size_t here = std::min(left, static_cast<std::size_t>(end - at) / 4);
        for (const char* stop = at + 4 * here; at != stop;) {
            // Ids that are spread at random come one by one.
            const std::size_t spread =
                line.appendToBits(static_cast<std::size_t>(stop - at) / 4, [this](std::size_t i) {
                    return static_cast<int>(wordAt(at + 4 * i));
                });
            at += 4 * spread;
            if (spread > 0) continue;
            const int first = static_cast<int>(wordAt(at));
            const std::size_t length = runLength(at, static_cast<std::size_t>(stop - at) / 4);
            at += 4 * length;
            const std::int64_t last =
                static_cast<std::int64_t>(first) + static_cast<std::int64_t>(length) - 1;
            constexpr std::int64_t largest = std::numeric_limits<int>::max();
            if (last <= largest) {
                line.addBEs(first, static_cast<int>(last));
            } else {
                // The largest id is followed by the smallest one.
                line.addBEs(first, static_cast<int>(largest));
                line.addBEs(std::numeric_limits<int>::min(),
                            static_cast<int>(static_cast<std::uint32_t>(last)));
            }
        }
        left -= here;
    }
}

void WireReader::skip() {
    at = end;
    while (outside > 0) {
        fill(1);
        at = end;
    }
}
