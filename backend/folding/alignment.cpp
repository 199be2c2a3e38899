#include "backend/folding/alignment.h"

#include "backend/folding/commonlines.h"

#include <algorithm>

namespace {

// Places that a class is compared with: for each of its lines, and besides.
constexpr std::size_t placesPerLine = 8;
constexpr std::size_t freePlaces = 256;

// Room between two neighbours for what comes between them.
constexpr std::uint64_t orderStep = std::uint64_t{1} << 40;
constexpr std::uint64_t shortStep = std::uint64_t{1} << 20;

} // namespace

Alignment::Alignment(const Histories& ofClients, const SentLines& sentBefore,
                     const std::vector<Histories::Run>& runs)
    : histories(ofClients),
      sent(sentBefore),
      placed(histories.nodes().size(), none),
      where(histories.textCount()),
      symbols(histories.textCount(), none) {
    // The head of those behind everything sent; no line stands there.
    slots.push_back({sent.highest(), 0, none, false});
    placeAll(runs);
    number();
}

void Alignment::Places::add(std::uint32_t slot, std::uint32_t lineThere) {
    if (first == none) {
        first = slot;
        line = lineThere;
        return;
    }
    if (!more) more = std::make_unique<std::vector<std::uint32_t>>(1, first);
    more->push_back(slot);
}

void Alignment::placeAll(const std::vector<Histories::Run>& runs) {
    struct Class {
        std::size_t clients;
        int first;
        std::uint32_t node;
    };
    std::vector<Class> classes;
    std::vector<std::uint32_t> classOf(placed.size(), none);
    for (const auto& run : runs) {
        const std::uint32_t node = Histories::indexOf(run.point);
        if (classOf[node] == none) {
            classOf[node] = static_cast<std::uint32_t>(classes.size());
            classes.push_back({0, run.first, node});
        }
        classes[classOf[node]].clients += static_cast<std::size_t>(run.last - run.first + 1);
    }
    std::sort(classes.begin(), classes.end(), [](const Class& a, const Class& b) {
        return a.clients != b.clients ? a.clients > b.clients : a.first < b.first;
    });
    for (const Class& each : classes)
        place(each.node);
}

void Alignment::place(std::uint32_t node) {
    std::vector<std::uint32_t> path;
    Histories::Point at = Histories::nodePoint(node);
    while (Histories::isNode(at) && placed[Histories::indexOf(at)] == none) {
        path.push_back(Histories::indexOf(at));
        at = histories.nodes()[path.back()].parent;
    }
    std::reverse(path.begin(), path.end());
    std::span<const std::uint32_t> rest = path;
    std::uint32_t after = 0;
    if (!Histories::isNode(at)) {
        const Histories::Root& root = histories.roots()[Histories::indexOf(at)];
        rest = rest.subspan(placeOnSent(rest, root.last, root.half));
    } else {
        const std::uint32_t slot = lineList[placed[Histories::indexOf(at)]].slot;
        if (slots[slot].number < 0)
            after = slot;
        else
            rest = rest.subspan(placeOnSent(rest, slots[slot].number, -1));
    }
    if (!rest.empty()) placeBehind(rest, after);
}

// The longest common subsequence of the path and of the places that `find` names for each of its
// texts, at most as many as it is told.
template <class Find>
std::vector<Alignment::Match> Alignment::match(std::span<const std::uint32_t> path, Find find) {
    std::size_t room = path.size() * placesPerLine + freePlaces;
    std::vector<Candidate> candidates;
    std::vector<std::uint32_t> seen;
    std::vector<std::uint32_t> lines;
    std::vector<std::size_t> lineOfPath;
    for (std::size_t i = 0; i < path.size(); ++i) {
        const std::uint32_t text = textOf(path[i]);
        if (symbols[text] == none) {
            symbols[text] = static_cast<std::uint32_t>(seen.size());
            seen.push_back(text);
            const std::size_t before = candidates.size();
            find(text, symbols[text], candidates, before + room);
            room -= candidates.size() - before;
            // A line that nobody else has said is left out of the comparison.
            if (candidates.size() == before) symbols[text] = none - 1;
        }
        if (symbols[text] == none - 1) continue;
        lines.push_back(symbols[text]);
        lineOfPath.push_back(i);
    }
    for (const std::uint32_t text : seen)
        symbols[text] = none;
    if (candidates.empty()) return {};
    std::sort(candidates.begin(), candidates.end(),
              [](const Candidate& a, const Candidate& b) { return a.order < b.order; });
    TextPlaces places;
    std::vector<std::uint32_t> slotOf;
    for (const Candidate& each : candidates) {
        if (slotOf.empty() || slotOf.back() != each.slot) {
            slotOf.push_back(each.slot);
            places.ends.push_back(places.texts.size());
        }
        places.texts.push_back(each.symbol);
        ++places.ends.back();
    }
    std::vector<Match> found;
    for (const CommonLine& each : commonLines(lines, places))
        found.push_back({lineOfPath[each.line], slotOf[each.place]});
    return found;
}

// Places lines under numbers that were sent, behind the given one; gives back how many.
std::size_t Alignment::placeOnSent(std::span<const std::uint32_t> path, int number, int half) {
    std::size_t at = 0;
    const auto share = [&] {
        const std::uint32_t slot = sentSlot(number);
        put(path[at++], slot);
        slots[slot].ordered = true;
    };
    if (half >= 0 && (histories.nodes()[path.front()].cut() & Histories::REST) != 0) {
        // It stands behind its beginning, or else is a line of its own.
        const int place = sent.place(number, hashOf(path.front()));
        if (!sent.reachable(number) || (place >= 0 && place <= half)) return 0;
        share();
    }
    if (number >= sent.highest()) return at;
    const auto found = match(path.subspan(at), [&](std::uint32_t text, std::uint32_t symbol,
                                                   std::vector<Candidate>& to, std::size_t limit) {
        const auto* spots = sent.spotsOf(histories.text(text).hash);
        if (!spots) return;
        auto spot = std::upper_bound(
            spots->begin(), spots->end(), number,
            [](int value, const SentLines::Spot& each) { return value < each.number; });
        for (; spot != spots->end() && spot->number - number <= SentLines::reach; ++spot) {
            if (to.size() == limit) return;
            to.push_back({static_cast<std::uint64_t>(spot->number),
                          static_cast<std::uint32_t>(spot->number), symbol});
        }
    });
    const std::size_t begin = at;
    for (const Match& each : found) {
        for (; at < begin + each.line;) {
            // It shares the number of the line before it where no line like it stands.
            if (!sent.reachable(number) || sent.place(number, hashOf(path[at])) >= 0 ||
                lineAt(sentSlot(number), textOf(path[at])) != none)
                return at;
            share();
        }
        number = static_cast<int>(each.slot);
        put(path[at++], sentSlot(number));
    }
    return at;
}

// Places lines behind everything sent, and behind a slot there.
void Alignment::placeBehind(std::span<const std::uint32_t> path, std::uint32_t after) {
    const std::uint64_t from = slots[after].order;
    const auto found = match(path, [&](std::uint32_t text, std::uint32_t symbol,
                                       std::vector<Candidate>& to, std::size_t limit) {
        // They mostly ascend: what stands elsewhere is not found, at the worst.
        const auto known = where[text].slots();
        auto slot = std::lower_bound(
            known.begin(), known.end(), from,
            [this](std::uint32_t each, std::uint64_t order) { return slots[each].order <= order; });
        for (; slot != known.end() && to.size() < limit; ++slot)
            if (slots[*slot].order > from) to.push_back({slots[*slot].order, *slot, symbol});
    });
    std::size_t at = 0;
    std::uint32_t before = after;
    // The lines of a gap pair in order; those left over come between it and what is behind it.
    const auto fill = [&](std::size_t until, std::uint32_t gapEnd) {
        for (; at < until; ++at) {
            if (slots[before].next == gapEnd) insertAfter(before);
            before = slots[before].next;
            put(path[at], before);
        }
    };
    for (const Match& each : found) {
        fill(each.line, each.slot);
        before = each.slot;
        put(path[at++], before);
    }
    fill(path.size(), none);
}

void Alignment::put(std::uint32_t node, std::uint32_t slot) {
    const std::uint32_t text = textOf(node);
    std::uint32_t line = lineAt(slot, text);
    if (line == none) {
        line = static_cast<std::uint32_t>(lineList.size());
        lineList.push_back({text, slot});
        const bool behindSent = slots[slot].number < 0;
        if (!behindSent || !where[text].empty())
            lineIndex.insert(IndexTable::hashOf(slot, text), line);
        if (behindSent) where[text].add(slot, line);
    }
    placed[node] = line;
}

std::uint32_t Alignment::lineAt(std::uint32_t slot, std::uint32_t text) const {
    if (slots[slot].number < 0) {
        if (where[text].empty()) return none;
        if (const std::uint32_t line = where[text].lineIn(slot); line != none) return line;
    }
    return lineIndex.find(IndexTable::hashOf(slot, text), [&](std::uint32_t each) {
        return lineList[each].slot == slot && lineList[each].text == text;
    });
}

std::uint32_t Alignment::sentSlot(int number) {
    const auto offset = static_cast<std::size_t>(sent.highest() - number);
    if (offset >= sentSlots.size()) sentSlots.resize(offset + 1, none);
    if (sentSlots[offset] == none) {
        sentSlots[offset] = static_cast<std::uint32_t>(slots.size());
        slots.push_back({number, 0, none, false});
    }
    return sentSlots[offset];
}

std::uint32_t Alignment::insertAfter(std::uint32_t slot) {
    const std::uint32_t next = slots[slot].next;
    const auto added = static_cast<std::uint32_t>(slots.size());
    if (next != none && slots[next].order - slots[slot].order < 2) {
        std::uint64_t order = 0;
        for (std::uint32_t each = 0; each != none; each = slots[each].next)
            slots[each].order = order += orderStep;
    }
    const std::uint64_t room = next == none ? 2 * orderStep : slots[next].order - slots[slot].order;
    const std::uint64_t order =
        slots[slot].order + (next == none ? orderStep : std::min(room / 2, shortStep));
    slots.push_back({-1, order, next, false});
    slots[slot].next = added;
    return added;
}

void Alignment::number() {
    int next = sent.highest();
    for (std::uint32_t slot = slots.front().next; slot != none; slot = slots[slot].next)
        slots[slot].number = ++next;
}
