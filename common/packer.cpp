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

void Packer::packInts(int first, int last) {
    const std::int64_t number = static_cast<std::int64_t>(last) - first + 1;
    if (number > std::numeric_limits<int>::max() / 4) throw std::length_error("record too long");
    checkBuffer(static_cast<int>(number) * 4);
    char* to = msgBuf.get() + msgLen;
    for (std::int64_t i = 0; i < number; ++i, to += 4) {
        const std::uint32_t wire = htonl(static_cast<std::uint32_t>(first + i));
        std::memcpy(to, &wire, 4);
    }
    msgLen += static_cast<int>(number) * 4;
}

void Packer::packStr(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    const int length = static_cast<int>(text.size());
    packInt(length + 1);
    append(text.data(), length);
    append("", 1);
}

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
