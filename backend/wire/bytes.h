#pragma once

#include "common/clientset.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

/// Writes the fields of a record compactly: numbers in groups of seven bits, the lowest first, each
/// but the last with its highest bit set; texts behind their lengths; sets of clients as runs of
/// equal steps, so that each eightieth client is as short as all clients.
class ByteWriter {
  public:
    void number(std::uint64_t value);
    /// That may be negative.
    void integer(int value);
    void text(std::string_view value);
    /// No member is negative.
    void set(const ClientSet& clients);

    std::string take() { return std::move(bytes); }

  private:
    std::string bytes;
};

/// Reads the fields back. Checks every length against the bytes that are there, before it takes
/// memory, and throws BrokenConnection.
class ByteReader {
  public:
    /// The bytes must outlive this. Sets are subsets of `clients`, when that is given, which must
    /// outlive this, too.
    explicit ByteReader(std::string_view body, const ClientSet* clients = nullptr)
        : left(body), known(clients) {}

    std::uint64_t number();
    /// At most `most`.
    int number(int most);
    int integer();
    bool flag() { return number(1) == 1; }
    /// A number of items of at least `itemSize` bytes each.
    std::size_t count(std::size_t itemSize);
    std::string_view text();
    /// A text that becomes a C string: a NUL in it would make two readers see two texts.
    std::string word();
    ClientSet set();
    /// One of the known clients.
    int client();
    /// Nothing is left.
    void end() const;

    /// Client numbers are below this.
    static constexpr int maxClient = 1 << 24;

  private:
    std::string_view left;
    const ClientSet* const known;
};
