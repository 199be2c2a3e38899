#include "common/packer.h"

#include "common/brokenconnection.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>

void Packer::checkBuffer(int need) {
    const std::int64_t required = static_cast<std::int64_t>(msgLen) + need;
    if (msgBuf && bufSize >= required) return;
    std::int64_t size = bufSize;
    while (size < required)
        size *= 2;
    // The frame's length travels as a signed 32-bit number.
    if (required > std::numeric_limits<int>::max()) throw std::length_error("record too long");
    size = std::min<std::int64_t>(size, std::numeric_limits<int>::max());
    auto grown = std::make_unique_for_overwrite<char[]>(static_cast<std::size_t>(size));
    if (msgLen > 0) std::memcpy(grown.get(), msgBuf.get(), static_cast<std::size_t>(msgLen));
    msgBuf = std::move(grown);
    bufSize = static_cast<int>(size);
}

void Packer::append(const char* data, int len) {
    checkBuffer(len);
    if (len > 0) std::memcpy(msgBuf.get() + msgLen, data, static_cast<std::size_t>(len));
    msgLen += len;
}

void Packer::packInt(int value) {
    const std::uint32_t wire = htonl(static_cast<std::uint32_t>(value));
    char bytes[4];
    std::memcpy(bytes, &wire, 4);
    append(bytes, 4);
}

void Packer::packStr(const char* text) { packMem(text, static_cast<int>(std::strlen(text)) + 1); }

void Packer::packMem(const char* data, int len) {
    assert(len >= 0);
    packInt(len);
    append(data, len);
}

std::unique_ptr<char[]> Packer::getPackedMsg() {
    checkBuffer(0);
    msgLen = 0;
    bufSize = initialSize;
    return std::move(msgBuf);
}

void Packer::setPackedMsg(const void* buf, int len) {
    assert(len >= 0);
    msgPtr = static_cast<const char*>(buf);
    end = msgPtr + len;
}

int Packer::unpackInt() {
    if (remaining() < 4) throw BrokenConnection();
    std::uint32_t wire;
    std::memcpy(&wire, msgPtr, 4);
    msgPtr += 4;
    return static_cast<int>(ntohl(wire));
}

const char* Packer::unpackStr() {
    int len = 0;
    const char* text = unpackMem(&len);
    if (len < 1 || text[len - 1] != '\0') throw BrokenConnection();
    return text;
}

const char* Packer::unpackMem(int* len) {
    const int size = unpackCount(1);
    if (len) *len = size;
    const char* data = msgPtr;
    msgPtr += size;
    return data;
}

int Packer::unpackCount(std::size_t itemSize) {
    const int count = unpackInt();
    if (count < 0 || static_cast<std::size_t>(count) > remaining() / itemSize)
        throw BrokenConnection();
    return count;
}
