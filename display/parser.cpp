#include "display/parser.h"

#include "common/bytes/decimal.h"
#include "common/catalog.h"
#include "display/perclient.h"

#include <algorithm>
#include <bit>
#include <cassert>
#include <cstdint>
#include <cstdio>
#include <string>
#include <utility>

namespace {

// Lines that are printed between two questions whether to stop.
constexpr unsigned questionInterval = 64;
constexpr std::size_t longText = 1000; // bytes

std::string clientPrefix(int client) {
    char digits[Decimal::size];
    return std::string(digits, static_cast<std::size_t>(Decimal::write(digits, client) - digits)) +
           " | ";
}

} // namespace

std::size_t hash2Key(std::size_t a, std::size_t b) { return std::max(a, b) * 5 + std::min(a, b); }

std::string itoa(int number) { return std::to_string(number); }

void Parser::setColor(const char* color, ColorT type) {
    switch (type) {
    case EQUAL_COLOR:
        ecolor = color;
        return;
    case SIMILAR_COLOR:
        scolor = color;
        return;
    case DIFFERENT_COLOR:
        dcolor = color;
        return;
    }
    std::puts("wrong color type. ");
}

// Which pairs of a record have a key that may come twice: two bits, seen and seen again, for each
// place of a table that is far larger than the number of pairs. Two pairs that meet at a place are
// remembered in vain at worst.
class Parser::Pairs {
  public:
    explicit Pairs(std::size_t number) : places(std::bit_ceil(16 * number + 64) / 32) {}

    void add(std::size_t pair) {
        const std::size_t at = place(pair);
        std::uint64_t& word = places[at / 32];
        const std::uint64_t seen = std::uint64_t{1} << (at % 32 * 2);
        word |= (word & seen) << 1 | seen;
    }
    /// A bit for each of 64 variants, from one on: whether its pair with the leader may recur.
    /// Asked at once, since the table is far larger than the caches: the answers come side by side.
    std::uint64_t recurring(const Line& leader, const Data::Variants& variants,
                            std::size_t from) const {
        const std::size_t number = std::min<std::size_t>(64, variants.size() - from);
        std::uint64_t bits = 0;
        for (std::size_t i = 0; i < number; ++i)
            bits |= mayRecur(hash2Key(leader.getKey(), variants[from + i].getKey())) << i;
        return bits;
    }

  private:
    std::vector<std::uint64_t> places;

    std::uint64_t mayRecur(std::size_t pair) const {
        const std::size_t at = place(pair);
        return places[at / 32] >> (at % 32 * 2 + 1) & 1;
    }
    std::size_t place(std::size_t pair) const {
        const std::uint64_t mixed = pair * 0x9e3779b97f4a7c15u;
        return static_cast<std::size_t>(mixed >> 20) & (places.size() * 32 - 1);
    }
};

Line::State Parser::compare(const Line* line1, const Line* line2) {
    assert(line1 && line2);
    const std::size_t pair = hash2Key(line1->getKey(), line2->getKey());
    if (const auto known = distances.find(pair); known != distances.end()) return known->second;
    closeness.lead(line1->getContent());
    const Line::State verdict = closeness.compare(line2->getContent());
    distances.emplace(pair, verdict);
    return verdict;
}

bool Parser::isStopped() {
    if (!stopped && stopAsked) stopped = stopAsked();
    return stopped;
}

// Sets the states of a position's variants, the leader's excepted, and the position's weight.
void Parser::judge(Data::Slot& slot, std::size_t position, const Pairs& pairs) {
    auto& variants = slot.lines;
    const std::size_t chosen = static_cast<std::size_t>(leaders[position]);
    const Line& leader = variants[chosen];
    closeness.lead(leader.getContent());
    std::uint64_t recurring = 0; // of the next variants, a bit each
    for (std::size_t j = 0; j < variants.size(); ++j, recurring >>= 1) {
        if (j % 64 == 0) recurring = pairs.recurring(leader, variants, j);
        if (j == chosen) continue;
        // One of two long texts may take a while.
        if ((j % questionInterval == 0 || variants[j].getContent().size() > longText) &&
            isStopped())
            return;
        Line& variant = variants[j];
        Line::State state;
        if ((recurring & 1) != 0) {
            const std::size_t pair = hash2Key(leader.getKey(), variant.getKey());
            const auto known = distances.find(pair);
            state =
                known != distances.end() ? known->second : closeness.compare(variant.getContent());
            if (known == distances.end()) distances.emplace(pair, state);
        } else {
            state = closeness.compare(variant.getContent());
        }
        assert(state != Line::EQUAL);
        variant.setState(state);
        weights[position] += state == Line::SIMILAR ? 1 : 2;
    }
}

void Parser::parse(Data* data) {
    assert(data);
    const std::size_t before = leaders.size();
    std::size_t pairCount = distances.size();
    for (const auto& [number, slot] : data->slots()) {
        const auto& variants = slot.lines;
        int leader = 0;
        // The reference count stays that of the first variant, so the last larger one leads.
        for (std::size_t j = 1; j < variants.size(); ++j) {
            if (variants[j].numOfBE() > variants[0].numOfBE()) leader = static_cast<int>(j);
        }
        leaders.push_back(leader);
        weights.push_back(0);
        if (!variants.empty()) pairCount += variants.size() - 1;
    }
    if (pairCount == 0) return;
    Pairs pairs(pairCount);
    for (const auto& [pair, verdict] : distances) {
        pairs.add(pair);
        pairs.add(pair);
    }
    std::size_t position = before;
    for (const auto& [number, slot] : data->slots()) {
        const std::size_t leader = static_cast<std::size_t>(leaders[position++]);
        for (std::size_t j = 0; j < slot.lines.size(); ++j) {
            if (j != leader)
                pairs.add(hash2Key(slot.lines[leader].getKey(), slot.lines[j].getKey()));
        }
    }
    position = before;
    for (auto& [number, slot] : data->slots()) {
        if (slot.lines.size() > 1) judge(slot, position, pairs);
        ++position;
    }
}

bool Parser::dump(Data* data, Mode mode, const char* pattern) {
    assert(data);
    bool valid = true;
    try {
        switch (mode) {
        case AUTO:
            dumpAuto(data, pattern);
            break;
        case COLLAPSED:
            dumpCollapsed(data, pattern);
            break;
        case EXPANDED:
            dumpExpanded(data, pattern);
            break;
        }
    } catch (const BadPattern&) {
        valid = false;
        screen.append(endColor);
        screen.append(Catalog::get(HELP_MATCH_BRIEF));
        screen.append("\n\n");
        screen.append(Catalog::get(HELP_MATCH_DETAIL));
    }
    screen.flush();
    return valid;
}

void Parser::dumpCollapsed(Data* data, const char* pattern) {
    parse(data);
    for (const auto& [number, slot] : data->slots()) {
        for (const Line& line : slot.lines) {
            if (stopped) return;
            dumpLine(&line, pattern);
        }
    }
}

void Parser::printPerClient(std::vector<const Line*> variants, const Data& data,
                            const char* pattern) {
    int prefixed = 0;
    Screen::Stamp prefix; // of the client that is printed
    PerClient walk(std::move(variants), data.getMinId(), data.getMaxId());
    while (!stopped && walk.next()) {
        walk.visit([&](int client, const Line& line) {
            if (stopped) return;
            if (pattern && *pattern) {
                dumpLine(&line, client, pattern);
                return;
            }
            if (prefix.empty() || client != prefixed) {
                prefixed = client;
                prefix.set(clientPrefix(client));
            }
            printColor(line);
            screen.append(prefix);
            screen.append(line.getContent());
            endLine(true);
        });
    }
}

void Parser::dumpExpanded(Data* data, const char* pattern) {
    std::vector<const Line*> variants;
    for (const auto& [number, slot] : data->slots()) {
        for (const Line& line : slot.lines)
            variants.push_back(&line);
    }
    printPerClient(std::move(variants), *data, pattern);
}

void Parser::dumpAuto(Data* data, const char* pattern) {
    parse(data);
    const int half = data->numOfBE() / 2;
    std::size_t position = 0;
    for (const auto& [number, slot] : data->slots()) {
        if (stopped) return;
        const bool perClient = weights[position++] > half;
        if (perClient) {
            std::vector<const Line*> variants;
            for (const Line& line : slot.lines)
                variants.push_back(&line);
            printPerClient(std::move(variants), *data, pattern);
            continue;
        }
        for (const Line& line : slot.lines) {
            if (stopped) return;
            dumpLine(&line, pattern);
        }
    }
}

void Parser::dumpLine(const Line* line, const char* pattern) {
    assert(line);
    text.clear();
    line->clients().appendTo(text);
    text += "| ";
    printLine(*line, pattern);
}

void Parser::dumpLine(const Line* line, int id, const char* pattern) {
    assert(line);
    if (!line->clients().contains(id)) return;
    text = clientPrefix(id);
    printLine(*line, pattern);
}

// Prints a line behind the prefix that stands in `text`.
void Parser::printLine(const Line& line, const char* pattern) {
    printColor(line);
    if (!pattern || !*pattern) {
        screen.append(text);
        screen.append(line.getContent());
        endLine(true);
        return;
    }
    // Compiled when the first line is to be printed: that is when a bad cascade is noticed.
    if (!filter) {
        filter.emplace();
        if (filter->compare(pattern) == -1) throw BadPattern();
    }
    // Expressions may take long for a long text.
    if (line.getContent().size() > longText && isStopped()) return;
    text += line.getContent();
    std::string passed;
    const bool printed = filter->filter(text.c_str(), passed);
    screen.append(passed);
    endLine(printed);
}

void Parser::printColor(const Line& line) {
    switch (line.getState()) {
    case Line::EQUAL:
        screen.append(ecolor);
        return;
    case Line::SIMILAR:
        screen.append(scolor);
        return;
    case Line::DIFFERENT:
        screen.append(dcolor);
        return;
    }
    assert(!"Undefined line state");
}

void Parser::endLine(bool printed) {
    screen.append(endColor);
    if (printed) screen.append('\n');
    const bool written = screen.lineDone();
    if (++lines % questionInterval == 0 || written) isStopped();
}
