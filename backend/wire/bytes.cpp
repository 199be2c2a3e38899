#include "backend/wire/bytes.h"

#include "common/brokenconnection.h"

#include <algorithm>
#include <limits>
#include <utility>
#include <vector>

// --- writing

void ByteWriter::number(std::uint64_t value) {
    for (; value >= 0x80; value >>= 7)
        bytes += static_cast<char>(0x80 | (value & 0x7f));
    bytes += static_cast<char>(value);
}

// Small numbers of either sign become small ones.
void ByteWriter::integer(int value) {
    const auto wide = static_cast<std::int64_t>(value);
    number(static_cast<std::uint64_t>(wide < 0 ? -2 * wide - 1 : 2 * wide));
}

void ByteWriter::text(std::string_view value) {
    number(value.size());
    bytes += value;
}

// A run is its distance from the run before it, its step and its length less one; without a step
// it is a single client. A range is a run of the step 1; single clients at equal distances join.
void ByteWriter::set(const ClientSet& clients) {
    struct Run {
        int first, step, more;
    };
    std::vector<Run> runs;
    for (const auto& [first, last] : clients.ranges()) {
        if (first != last) {
            runs.push_back({first, 1, last - first});
            continue;
        }
        if (!runs.empty()) {
            Run& run = runs.back();
            if (run.more == 0) {
                run.step = first - run.first;
                run.more = 1;
                continue;
            }
            if (run.step != 1 && first == run.first + run.step * (run.more + 1)) {
                ++run.more;
                continue;
            }
        }
        runs.push_back({first, 0, 0});
    }
    number(runs.size());
    int before = 0;
    for (const auto& [first, step, more] : runs) {
        number(static_cast<std::uint64_t>(first - before));
        number(static_cast<std::uint64_t>(step));
        if (step != 0) number(static_cast<std::uint64_t>(more - 1));
        before = first + step * more;
    }
}

// --- reading

std::uint64_t ByteReader::number() {
    std::uint64_t value = 0;
    for (unsigned shift = 0; shift < 64; shift += 7) {
        if (left.empty()) throw BrokenConnection();
        const auto byte = static_cast<unsigned char>(left.front());
        left.remove_prefix(1);
        value |= static_cast<std::uint64_t>(byte & 0x7f) << shift;
        if (byte >= 0x80) continue;
        // One number has one form, so that a record has one.
        if ((byte == 0 && shift > 0) || (shift == 63 && byte > 1)) break;
        return value;
    }
    throw BrokenConnection();
}

int ByteReader::number(int most) {
    const std::uint64_t value = number();
    if (value > static_cast<std::uint64_t>(most)) throw BrokenConnection();
    return static_cast<int>(value);
}

int ByteReader::integer() {
    const std::uint64_t folded = number();
    if (folded > std::numeric_limits<std::uint32_t>::max()) throw BrokenConnection();
    const auto half = static_cast<int>(folded >> 1);
    return (folded & 1) != 0 ? -half - 1 : half;
}

std::size_t ByteReader::count(std::size_t itemSize) {
    const std::uint64_t value = number();
    if (value > left.size() / itemSize) throw BrokenConnection();
    return static_cast<std::size_t>(value);
}

std::string_view ByteReader::text() {
    const std::size_t length = count(1);
    const std::string_view found = left.substr(0, length);
    left.remove_prefix(length);
    return found;
}

std::string ByteReader::word() {
    const std::string_view found = text();
    if (found.find('\0') != std::string_view::npos) throw BrokenConnection();
    return std::string(found);
}

ClientSet ByteReader::set() {
    const std::size_t most = known ? known->size() : static_cast<std::size_t>(maxClient);
    ClientSet found;
    int next = 0;
    for (std::size_t runs = count(2); runs > 0; --runs) {
        const int first = next + number(maxClient - next);
        const int step = number(maxClient);
        const int more = step == 0 ? 0 : 1 + number(maxClient / step);
        if (first >= maxClient || more > (maxClient - 1 - first) / std::max(step, 1))
            throw BrokenConnection();
        if (!found.empty() && first <= found.back()) throw BrokenConnection();
        if (found.size() + static_cast<std::size_t>(more) >= most) throw BrokenConnection();
        next = first + step * more;
        if (step == 1) {
            found.insertRange(first, next);
            continue;
        }
        for (int i = 0; i <= more; ++i)
            found.insert(first + step * i);
    }
    if (known) {
        ClientSet strange = found;
        strange.erase(*known);
        if (!strange.empty()) throw BrokenConnection();
    }
    return found;
}

int ByteReader::client() {
    const int found = number(maxClient - 1);
    if (known && !known->contains(found)) throw BrokenConnection();
    return found;
}

void ByteReader::end() const {
    if (!left.empty()) throw BrokenConnection();
}
