#include "common/clientset.h"

#include <algorithm>
#include <cassert>

namespace {

std::size_t width(const ClientSet::Range& r) {
    return static_cast<std::size_t>(static_cast<std::int64_t>(r.last) - r.first + 1);
}

// Appends a run to an ascending list, joining it with the last one when they touch.
void append(std::vector<ClientSet::Range>& runs, const ClientSet::Range& r) {
    if (!runs.empty() && static_cast<std::int64_t>(runs.back().last) + 1 >= r.first)
        runs.back().last = std::max(runs.back().last, r.last);
    else
        runs.push_back(r);
}

// The first run that does not end before the id.
template <class Runs>
auto seek(Runs& runs, int id) {
    return std::lower_bound(runs.begin(), runs.end(), id,
                            [](const ClientSet::Range& r, int value) { return r.last < value; });
}

} // namespace

ClientSet::const_iterator& ClientSet::const_iterator::operator++() {
    if (id < range->last)
        ++id;
    else if (++range != stop)
        id = range->first;
    else
        id = 0;
    return *this;
}

ClientSet::ClientSet(std::initializer_list<int> ids) {
    for (int id : ids)
        insert(id);
}

ClientSet::ClientSet(std::vector<Range> ranges) {
    std::sort(ranges.begin(), ranges.end(),
              [](const Range& a, const Range& b) { return a.first < b.first; });
    for (const Range& r : ranges)
        append(runs, r);
    recount();
}

bool ClientSet::insert(int id) {
    if (runs.empty() || runs.back().last < id) {
        append(runs, {id, id});
        ++count;
        return true;
    }
    auto next = seek(runs, id);
    if (next->first <= id) return false;
    const bool joinsNext = static_cast<std::int64_t>(id) + 1 == next->first;
    const bool joinsPrev =
        next != runs.begin() && static_cast<std::int64_t>(std::prev(next)->last) + 1 == id;
    if (joinsNext && joinsPrev) {
        std::prev(next)->last = next->last;
        runs.erase(next);
    } else if (joinsNext) {
        next->first = id;
    } else if (joinsPrev) {
        std::prev(next)->last = id;
    } else {
        runs.insert(next, {id, id});
    }
    ++count;
    return true;
}

void ClientSet::insertRange(int first, int last) {
    assert(first <= last);
    ClientSet range;
    range.runs.push_back({first, last});
    range.count = width(range.runs.front());
    insert(range);
}

void ClientSet::insert(const ClientSet& other) {
    if (other.empty()) return;
    if (runs.empty() || runs.back().last < other.runs.front().first) {
        for (const Range& r : other.runs)
            append(runs, r);
        count += other.count;
        return;
    }
    if (other.runs.size() == 1 && other.count == 1) {
        insert(other.runs.front().first);
        return;
    }
    std::vector<Range> merged;
    merged.reserve(runs.size() + other.runs.size());
    auto a = runs.begin();
    auto b = other.runs.begin();
    while (a != runs.end() || b != other.runs.end()) {
        const bool takeA = b == other.runs.end() || (a != runs.end() && a->first <= b->first);
        append(merged, takeA ? *a++ : *b++);
    }
    runs = std::move(merged);
    recount();
}

bool ClientSet::erase(int id) {
    auto at = seek(runs, id);
    if (at == runs.end() || at->first > id) return false;
    const Range whole = *at;
    if (whole.first == whole.last) {
        runs.erase(at);
    } else if (id == whole.first) {
        at->first = id + 1;
    } else if (id == whole.last) {
        at->last = id - 1;
    } else {
        at->last = id - 1;
        runs.insert(std::next(at), {id + 1, whole.last});
    }
    --count;
    return true;
}

void ClientSet::erase(const ClientSet& other) {
    std::vector<Range> rest;
    auto b = other.runs.begin();
    for (Range a : runs) {
        bool used = false;
        while (b != other.runs.end() && b->last < a.first)
            ++b;
        for (auto cut = b; cut != other.runs.end() && cut->first <= a.last; ++cut) {
            if (cut->first > a.first) rest.push_back({a.first, cut->first - 1});
            if (cut->last >= a.last) {
                used = true;
                break;
            }
            a.first = cut->last + 1;
        }
        if (!used) rest.push_back(a);
    }
    runs = std::move(rest);
    recount();
}

ClientSet ClientSet::intersection(const ClientSet& other) const {
    ClientSet both;
    auto a = runs.begin();
    auto b = other.runs.begin();
    while (a != runs.end() && b != other.runs.end()) {
        const int first = std::max(a->first, b->first);
        const int last = std::min(a->last, b->last);
        if (first <= last) both.runs.push_back({first, last});
        if (a->last < b->last)
            ++a;
        else
            ++b;
    }
    both.recount();
    return both;
}

bool ClientSet::contains(int id) const {
    auto at = seek(runs, id);
    return at != runs.end() && at->first <= id;
}

bool ClientSet::intersects(const ClientSet& other) const { return !intersection(other).empty(); }

void ClientSet::clear() {
    runs.clear();
    count = 0;
}

ClientSet::const_iterator ClientSet::begin() const {
    if (runs.empty()) return end();
    const_iterator it;
    it.range = runs.data();
    it.stop = runs.data() + runs.size();
    it.id = runs.front().first;
    return it;
}

ClientSet::const_iterator ClientSet::end() const {
    const_iterator it;
    it.range = it.stop = runs.data() + runs.size();
    return it;
}

std::string ClientSet::str() const {
    std::string text;
    for (const Range& r : runs) {
        text += std::to_string(r.first);
        if (r.last != r.first) text.append(":").append(std::to_string(r.last));
        text += ' ';
    }
    return text;
}

void ClientSet::recount() {
    count = 0;
    for (const Range& r : runs)
        count += width(r);
}
