#pragma once

#include "common/brokenconnection.h"
#include "common/frame.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

/// An input as libFuzzer hands it over, held in a string of exactly its size.
inline std::string textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Ends the run as a crash does. Unlike an assertion it says what was expected of the input.
inline void expect(bool condition) {
    if (!condition) std::abort();
}

using Frame::packed;

/// False when the bytes are no such record; any other end of unpack is a fault.
template <class Record>
bool unpacks(Record& record, const std::string& bytes) {
    try {
        record.unpack(bytes.data(), static_cast<int>(bytes.size()));
        return true;
    } catch (const BrokenConnection&) {
        return false;
    }
}

/// What was accepted once packs into a form that reads back as the same record.
template <class Record>
void expectStable(const Record& record) {
    const std::string once = packed(record);
    Record again;
    expect(unpacks(again, once));
    expect(packed(again) == once);
}
