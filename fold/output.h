#pragma once

#include <string>
#include <string_view>

/// What is written to a descriptor, in large pieces. Does not own the descriptor.
class Output {
  public:
    explicit Output(int descriptor) : fd(descriptor) {}

    /// Text to add to; call grown behind it.
    std::string& text() { return held; }
    /// Writes what is held when it is much. Throws std::system_error when it cannot be written.
    void grown() {
        if (held.size() >= chunk) flush();
    }
    void flush();

  private:
    static constexpr std::size_t chunk = 256 * 1024;

    const int fd;
    std::string held;
};
