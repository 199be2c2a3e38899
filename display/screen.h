#pragma once

#include <cstddef>
#include <string>
#include <string_view>

/// Text on its way to standard output: gathered, and written straight to the descriptor in pieces
/// of about 64 KiB that end with a line; what stdio holds back goes first. Does not write by itself
/// at the end: call flush. One thread only. What cannot be written is lost, as with stdio.
class Screen {
  public:
    /// Where text is appended; call lineDone behind each line.
    std::string text;

    void lineDone() {
        if (text.size() >= piece) flush();
    }
    void flush();

  private:
    static constexpr std::size_t piece = 65536; // bytes
};
