#include "common/line.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

std::size_t hashStr(std::string_view text) {
    std::size_t h = 0;
    for (const char c : text) {
        if (c == '\0') break;
        h = h * 5 + static_cast<unsigned char>(c);
    }
    return h;
}

Line::Line(const Line& other)
    : be_ids(other.be_ids),
      key(other.key),
      line_no(other.line_no),
      state(other.state),
      min_id(other.min_id),
      max_id(other.max_id) {
    setContent(other.getContent());
}

Line& Line::operator=(const Line& other) {
    if (this != &other) *this = Line(other);
    return *this;
}

void Line::setContent(std::string_view text) {
    auto copied = std::make_unique_for_overwrite<char[]>(text.size());
    if (!text.empty()) std::memcpy(copied.get(), text.data(), text.size());
    content = std::move(copied);
    length = static_cast<std::uint32_t>(text.size());
}

// What one addBE an id would leave behind: only an id that does not raise the upper bound can lower
// the other one, and the smallest is the first.
void Line::raise(int first, int last) {
    if (first <= max_id) min_id = std::min(min_id, first);
    max_id = std::max(max_id, last);
}

void Line::addBEs(int first, int last) {
    be_ids.insertRange(first, last);
    raise(first, last);
}

void Line::addBEs(const ClientSet& ids) {
    if (ids.empty()) return;
    be_ids.insert(ids);
    raise(ids.front(), ids.back());
}

void Line::dump() const {
    for (int id : be_ids)
        std::printf("%d | %.*s\n", id, static_cast<int>(length), content.get());
}
