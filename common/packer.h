#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

/// Turns the fields of a record into one contiguous byte buffer, and reads them back.
///
/// Items, without padding or tags: int = 4 bytes big-endian; string = int length with its NUL, then
/// the bytes and the NUL; memory block = int length, then the bytes.
///
/// Packing: any pack calls, then getPackedMsgLen and getPackedMsg. Unpacking: setPackedMsg, then
/// the unpack calls in the order of packing. The unpacked buffer is borrowed and must outlive the
/// pointers that unpackStr and unpackMem return. Every unpack call checks the length it was told
/// against the bytes that are there and throws BrokenConnection when they do not fit.
class Packer {
  public:
    Packer() = default;

    void packInt(int value);
    /// Packs first, first + 1, ..., last.
    void packInts(int first, int last);
    /// Packs the text up to its first NUL.
    void packStr(std::string_view text);
    void packMem(const char* data, int len);

    /// Hands over the buffer; the packer is empty afterwards. Take the length first.
    std::unique_ptr<char[]> getPackedMsg();
    /// Bytes packed so far.
    int getPackedMsgLen() const { return msgLen; }
    /// Bytes that the buffer holds before it must grow: 256, doubled as needed.
    int getBufSize() const { return bufSize; }

    /// Points the packer at a received buffer of len bytes.
    void setPackedMsg(const void* buf, int len);
    int unpackInt();
    /// A NUL-terminated text inside the received buffer.
    const char* unpackStr();
    /// A block inside the received buffer; its length goes to *len when len is not null.
    const char* unpackMem(int* len);
    /// An int that counts items of at least itemSize bytes each; throws BrokenConnection when it is
    /// negative or the bytes that are left cannot hold as many.
    int unpackCount(std::size_t itemSize);
    /// Bytes not yet read.
    std::size_t remaining() const { return static_cast<std::size_t>(end - msgPtr); }

  private:
    static constexpr int initialSize = 256;

    // Packing.
    std::unique_ptr<char[]> msgBuf;
    int msgLen = 0;
    int bufSize = initialSize;

    // Unpacking: the cursor and the end of the borrowed buffer.
    const char* msgPtr = nullptr;
    const char* end = nullptr;

    void checkBuffer(int need);
    void append(const char* data, int len);
};
