#include "common/line.h"

#include <algorithm>
#include <cstdio>

std::size_t hashStr(const char* text) {
    std::size_t h = 0;
    for (; *text; ++text)
        h = h * 5 + static_cast<unsigned char>(*text);
    return h;
}

void Line::addBE(int id) {
    be_ids.insert(id);
    if (max_id < id)
        max_id = id;
    else if (min_id > id)
        min_id = id;
}

void Line::addBEs(const ClientSet& ids) {
    if (ids.empty()) return;
    be_ids.insert(ids);
    // What addBE would leave behind over the ids in ascending order: only an id that does not raise
    // the upper bound can lower the other one, and the smallest is the first.
    if (ids.front() <= max_id) min_id = std::min(min_id, ids.front());
    max_id = std::max(max_id, ids.back());
}

void Line::dump() const {
    for (int id : be_ids)
        std::printf("%d | %s\n", id, content.c_str());
}
