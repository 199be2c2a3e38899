#include "fold/labels.h"

#include <algorithm>
#include <charconv>
#include <map>
#include <numeric>
#include <utility>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::size_t digitsEnd(std::string_view text, std::size_t from) {
    while (from < text.size() && isDigit(text[from]))
        ++from;
    return from;
}

// The number that is all of the text as it is written: without zeros in front, below 10^18.
std::optional<std::uint64_t> wholeNumber(std::string_view text) {
    if (text.empty() || text.size() > 18 || digitsEnd(text, 0) != text.size() ||
        (text[0] == '0' && text.size() > 1))
        return std::nullopt;
    std::uint64_t value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

std::string_view withoutZeros(std::string_view number) {
    return number.substr(std::min(number.find_first_not_of('0'), number.size() - 1));
}

// Whether a comes before b when digits count as numbers.
bool naturally(std::string_view a, std::string_view b) {
    std::size_t i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (!isDigit(a[i]) || !isDigit(b[j])) {
            if (a[i] != b[j])
                return static_cast<unsigned char>(a[i]) < static_cast<unsigned char>(b[j]);
            ++i;
            ++j;
            continue;
        }
        const std::size_t endA = digitsEnd(a, i), endB = digitsEnd(b, j);
        const std::string_view numberA = withoutZeros(a.substr(i, endA - i));
        const std::string_view numberB = withoutZeros(b.substr(j, endB - j));
        if (numberA != numberB)
            return numberA.size() != numberB.size() ? numberA.size() < numberB.size()
                                                    : numberA < numberB;
        i = endA;
        j = endB;
    }
    // All else equal, the one with more zeros comes later.
    if (a.size() - i != b.size() - j) return a.size() - i < b.size() - j;
    return a.size() != b.size() ? a.size() < b.size() : a < b;
}

// Whether b is written as the number behind a: "08" and "09", "9" and "10", "099" and "100".
bool follows(std::string_view a, std::string_view b) {
    std::string next(a);
    std::size_t at = next.size();
    while (at > 0 && next[at - 1] == '9')
        next[--at] = '0';
    if (at > 0)
        ++next[at - 1];
    else
        next.insert(0, 1, '1');
    return next == b && (b.size() == a.size() || a[0] != '0');
}

} // namespace

int Labels::known(std::string_view label, int guess) const {
    return guess >= 0 && names[static_cast<std::size_t>(guess)] == label ? guess : -1;
}

int Labels::idOf(std::string_view label) {
    int id = known(label, last);
    if (id == -1 && last != -1) id = known(label, follower[static_cast<std::size_t>(last)]);
    if (id == -1) {
        if (const auto at = ids.find(label); at != ids.end()) id = at->second;
    }
    if (id == -1) {
        id = size();
        names.emplace_back(label);
        ids.emplace(names.back(), id);
        follower.push_back(-1);
    }
    if (last != -1 && last != id) follower[static_cast<std::size_t>(last)] = id;
    return last = id;
}

void Labels::rank() {
    if (rankOf.size() == names.size()) return;
    named = {};
    namesOfNamed.clear();
    idAt.resize(names.size());
    std::iota(idAt.begin(), idAt.end(), 0);
    std::vector<std::uint64_t> values;
    for (const std::string& name : names) {
        const auto value = wholeNumber(name);
        if (!value) break;
        values.push_back(*value);
    }
    numbers = values.size() == names.size();
    const auto at = [](const auto& list, int id) -> const auto& {
        return list[static_cast<std::size_t>(id)];
    };
    std::sort(idAt.begin(), idAt.end(), [&](int a, int b) {
        return numbers ? at(values, a) < at(values, b) : naturally(at(names, a), at(names, b));
    });
    inOrder = std::is_sorted(idAt.begin(), idAt.end());
    rankOf.resize(names.size());
    valueAt.clear();
    for (int rank = 0; rank < size(); ++rank) {
        rankOf[byRank(rank)] = rank;
        if (numbers) valueAt.push_back(values[byRank(rank)]);
    }
    if (!numbers) divideNames();
}

// Names fold at that number in which most of their kind differ.
void Labels::divideNames() {
    struct Kind {
        std::vector<std::string_view> first;  // the numbers of the kind's first name
        std::vector<std::size_t> differences; // from those
    };
    const auto numbersOf = [](std::string_view name, std::string& kind) {
        std::vector<std::string_view> found;
        for (std::size_t i = 0; i < name.size();) {
            const std::size_t end = digitsEnd(name, i);
            if (end == i) {
                kind += name[i++];
                continue;
            }
            found.push_back(name.substr(i, end - i));
            kind += '\0';
            i = end;
        }
        return found;
    };
    std::unordered_map<std::string, Kind> kinds;
    for (const std::string& name : names) {
        std::string text;
        const auto here = numbersOf(name, text);
        Kind& kind = kinds[text];
        if (kind.first.empty()) {
            kind.first = here;
            kind.differences.resize(here.size());
        }
        for (std::size_t i = 0; i < here.size(); ++i)
            kind.differences[i] += here[i] != kind.first[i];
    }
    std::unordered_map<std::string, std::uint32_t> index;
    parts.clear();
    families.clear();
    for (int rank = 0; rank < size(); ++rank) {
        const std::string& name = names[byRank(rank)];
        std::string text;
        const auto here = numbersOf(name, text);
        const auto& differences = kinds[text].differences;
        Name part;
        std::string family = name;
        if (!here.empty()) {
            // Of those that tie, the last one.
            const auto most = std::max_element(differences.rbegin(), differences.rend());
            part.number = here[static_cast<std::size_t>(differences.rend() - most - 1)];
            family.replace(static_cast<std::size_t>(part.number.data() - name.data()),
                           part.number.size(), 1, '\0');
        }
        const auto [place, fresh] =
            index.emplace(family, static_cast<std::uint32_t>(families.size()));
        if (fresh) families.push_back(family);
        part.family = place->second;
        parts.push_back(part);
    }
}

ClientSet Labels::ranked(ClientSet from) const {
    if (inOrder) return from;
    ClientSet ranks;
    if (from.size() < names.size() / 64) {
        std::vector<int> few;
        for (const int id : from)
            few.push_back(rankOf[static_cast<std::size_t>(id)]);
        std::sort(few.begin(), few.end());
        for (const int rank : few)
            ranks.insert(rank);
        return ranks;
    }
    std::vector<bool> present(names.size());
    for (const int id : from)
        present[static_cast<std::size_t>(rankOf[static_cast<std::size_t>(id)])] = true;
    for (std::size_t begin = 0; begin < present.size();) {
        std::size_t end = begin;
        while (end < present.size() && present[end])
            ++end;
        if (end > begin) ranks.insertRange(static_cast<int>(begin), static_cast<int>(end) - 1);
        begin = end + 1;
    }
    return ranks;
}

void Labels::addNumbers(std::string& to, const ClientSet& ranks) const {
    const std::size_t begin = to.size();
    std::uint64_t first = 0, previous = 0;
    const auto close = [&] {
        if (to.size() > begin) to += ' ';
        to += std::to_string(first);
        if (previous != first) to.append(":").append(std::to_string(previous));
    };
    bool any = false;
    for (const ClientSet::Range& run : ranks.ranges()) {
        for (int rank = run.first; rank <= run.last; ++rank) {
            const std::uint64_t value = valueAt[static_cast<std::size_t>(rank)];
            if (any && value != previous + 1) close();
            if (!any || value != previous + 1) first = value;
            previous = value;
            any = true;
        }
    }
    if (any) close();
}

void Labels::add(std::string& to, const ClientSet& ranks) {
    if (numbers) return addNumbers(to, ranks);
    // One line after the other is said by the same labels.
    if (named != ranks) {
        namesOfNamed.clear();
        addNames(namesOfNamed, ranks);
        named = ranks;
    }
    to += namesOfNamed;
}

void Labels::addNames(std::string& to, const ClientSet& ranks) const {
    struct Member {
        std::uint32_t place; // of its family, in the order in which they begin
        std::string_view number;
    };
    std::unordered_map<std::uint32_t, std::uint32_t> places;
    std::vector<Member> members;
    std::vector<std::uint32_t> order;
    for (const int rank : ranks) {
        const Name& name = parts[static_cast<std::size_t>(rank)];
        const auto [place, fresh] =
            places.emplace(name.family, static_cast<std::uint32_t>(order.size()));
        if (fresh) order.push_back(name.family);
        members.push_back({place->second, name.number});
    }
    std::stable_sort(members.begin(), members.end(),
                     [](const Member& a, const Member& b) { return a.place < b.place; });
    for (std::size_t i = 0; i < members.size();) {
        const std::uint32_t place = members[i].place;
        const std::string& family = families[order[place]];
        if (i > 0) to += ',';
        std::size_t end = i;
        while (end < members.size() && members[end].place == place)
            ++end;
        const std::size_t gap = family.find('\0');
        to.append(family, 0, gap);
        if (gap != std::string::npos) {
            if (end - i > 1) to += '[';
            for (std::size_t first = i; first < end;) {
                std::size_t until = first;
                while (until + 1 < end && follows(members[until].number, members[until + 1].number))
                    ++until;
                if (first > i) to += ',';
                to += members[first].number;
                if (until > first) to.append("-").append(members[until].number);
                first = until + 1;
            }
            if (end - i > 1) to += ']';
            to.append(family, gap + 1);
        }
        i = end;
    }
}
