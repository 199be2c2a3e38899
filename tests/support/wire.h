#pragma once

#include "common/brokenconnection.h"
#include "common/frame.h"
#include "tests/support/testing.h"

/// Bytes written as pairs of hexadecimal digits and 'text', with blanks anywhere between them:
/// "00000003 'ab' 00".
inline std::string bytes(const std::string& notation) {
    std::string data;
    for (std::size_t at = 0, end = 0; at < notation.size(); at = end) {
        if (notation[at] == '\'') {
            end = notation.find('\'', at + 1) + 1;
            data += notation.substr(at + 1, end - at - 2);
        } else if (end = at + 1; notation[at] != ' ') {
            data += static_cast<char>(std::stoi(notation.substr(at, 2), nullptr, 16));
            ++end;
        }
    }
    return data;
}

using Frame::packed;

/// Unpacks a record from a buffer of exactly these bytes, so that a read past them is found.
template <class Record>
void unpackFrom(Record& record, const std::string& data) {
    const std::string exact(data.begin(), data.end());
    record.unpack(exact.data(), static_cast<int>(exact.size()));
}

/// Each of these, in the notation of bytes, is unpacked and packed again unchanged, also by a
/// record that held another one, and every proper beginning of it is refused.
template <class Record>
void expectWire(std::initializer_list<std::string> wholes) {
    Record used;
    for (const std::string& whole : wholes) {
        const std::string data = bytes(whole);
        unpackFrom(used, data);
        EXPECT_EQ(packed(used), data);
        for (std::size_t size = 0; size < data.size(); ++size) {
            Record record;
            EXPECT_THROW(unpackFrom(record, data.substr(0, size)), BrokenConnection) << size;
        }
    }
}

/// Each of these, in the notation of bytes, is refused.
template <class Record>
void expectRefused(std::initializer_list<std::string> lies) {
    for (const std::string& lie : lies) {
        Record record;
        EXPECT_THROW(unpackFrom(record, bytes(lie)), BrokenConnection) << lie;
    }
}
