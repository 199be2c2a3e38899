#pragma once

#include <atomic>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string_view>

/// Text on its way to standard output: gathered, and written straight to the descriptor in pieces
/// of about 64 KiB that end with a line; what stdio holds back goes first. Does not write by itself
/// at the end: call flush. One thread only. What cannot be written is lost, as with stdio.
class Screen {
  public:
    /// A short text that is written very often; longer ones are appended like any other.
    class Stamp {
      public:
        void set(std::string_view text) {
            length = text.size() <= sizeof bytes ? text.size() : 0;
            if (length > 0) std::memcpy(bytes, text.data(), length);
        }
        bool empty() const { return length == 0; }

      private:
        friend class Screen;
        char bytes[16] = {};
        std::size_t length = 0; // bytes; 0 for none
    };

    void append(std::string_view text) {
        char* to = room(text.size());
        if (!text.empty()) std::memcpy(to, text.data(), text.size());
        length += text.size();
    }
    void append(const Stamp& stamp) {
        std::memcpy(room(sizeof stamp.bytes), stamp.bytes, sizeof stamp.bytes);
        length += stamp.length;
    }
    void append(char c) {
        *room(1) = c;
        ++length;
    }
    /// To be called behind each line.
    void lineDone() {
        if (length >= piece) flush();
    }
    void flush();

    /// Writes what stdio holds back. Any thread.
    static void flushStdio();
    /// Whether standard output can never be written again: its reader, or its terminal, has gone
    /// (EPIPE, EIO). Any thread.
    static bool isGone() { return gone; }
    /// The errno of another failure by which output was lost; 0: there was none. Any thread.
    static int lostBy() { return lost; }

  private:
    static std::atomic<bool> gone;
    static std::atomic<int> lost;

    static void fail();

    static constexpr std::size_t piece = 65536; // bytes

    std::unique_ptr<char[]> buffer;
    std::size_t capacity = 0;
    std::size_t length = 0;

    char* room(std::size_t bytes) {
        if (capacity - length < bytes) grow(bytes);
        return buffer.get() + length;
    }
    void grow(std::size_t bytes);
};
