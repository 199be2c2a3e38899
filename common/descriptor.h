#pragma once

#include <utility>

/// Owns one file descriptor; -1 means none. Move only.
class Descriptor {
  public:
    Descriptor() = default;
    explicit Descriptor(int fd) : number(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(Descriptor&& other) noexcept : number(other.release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        reset(other.release());
        return *this;
    }

    int get() const { return number; }
    explicit operator bool() const { return number != -1; }
    int release() { return std::exchange(number, -1); }
    void reset(int fd = -1);

  private:
    int number = -1;
};
