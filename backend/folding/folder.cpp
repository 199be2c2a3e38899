#include "backend/folding/folder.h"

#include "backend/folding/alignment.h"

#include <algorithm>
#include <limits>
#include <memory>
#include <numeric>
#include <utility>

namespace {

// Bytes of text, and of histories, that are held.
constexpr std::size_t maxText = 16 * 1024 * 1024;
constexpr std::size_t maxNodes = 2 * maxText / sizeof(Histories::Node);
// What all have passed is looked for when this share of what is held is new, since all of it is
// looked at.
constexpr std::size_t freshShare = 4;
// Where looking at what is held takes no more steps than this, a line that has waited long enough
// leaves alone, though others that came later still wait; else all leave together.
constexpr std::size_t fewSteps = 1 << 18;

constexpr int everything = std::numeric_limits<int>::max();

// A line that leaves.
struct Place {
    int number;
    int order; // within the number
    std::uint32_t line;
};

// Keeps the order of those with the same number.
void sortByNumber(std::vector<Place>& places) {
    if (places.empty()) return;
    const auto [least, most] = std::ranges::minmax(places, {}, &Place::number);
    const int first = least.number;
    std::vector<std::size_t> begins(static_cast<std::size_t>(most.number - first) + 2);
    for (const Place& each : places)
        ++begins[static_cast<std::size_t>(each.number - first) + 1];
    std::partial_sum(begins.begin(), begins.end(), begins.begin());
    std::vector<Place> sorted(places.size());
    for (const Place& each : places)
        sorted[begins[static_cast<std::size_t>(each.number - first)]++] = each;
    places = std::move(sorted);
}

void insert(ClientSet& clients, const Histories::Run& run) {
    if (run.first == run.last)
        clients.insert(run.first);
    else
        clients.insertRange(run.first, run.last);
}

} // namespace

Folder::Folder(std::chrono::milliseconds longest, int last)
    : patience(longest), histories(last), sent(last) {}

// --- gathering

void Folder::added(Clock::time_point now, bool merged) {
    ++fresh;
    lastAdded = now;
    if (merged) lastMerged = std::max(lastMerged, now);
    awaitPassed();
}

void Folder::awaitPassed() {
    if (!passDue && histories.allHaveSpoken() && fresh * freshShare >= histories.nodes().size())
        passDue = lastAdded + Wait::breath;
}

void Folder::add(int client, std::string_view text, Clock::time_point now, Cut cut) {
    began = empty() ? now : std::min(began, now);
    added(now, histories.add(client, text, cut, now));
}

void Folder::add(const ClientSet& clients, std::string_view text, Clock::time_point now, Cut cut) {
    if (clients.empty()) return;
    began = empty() ? now : std::min(began, now);
    added(now, histories.add(clients, text, cut, now));
}

void Folder::answered(int client) {
    histories.answered(client);
    ++fresh;
    awaitPassed();
}

void Folder::addRow(const ClientSet& clients, std::string text, Clock::time_point now,
                    bool sameNumber) {
    began = empty() ? now : std::min(began, now);
    rowBytes += sizeof(Row) + text.size();
    rows.push_back({clients, std::move(text), sameNumber});
}

bool Folder::full() const {
    return histories.textBytes() + rowBytes > maxText || histories.nodes().size() > maxNodes;
}

std::optional<Clock::time_point> Folder::due() const {
    if (empty()) return std::nullopt;
    return std::min(windowEnd(), passDue.value_or(Clock::time_point::max()));
}

Clock::time_point Folder::windowEnd() const {
    return std::min(began + patience, std::max(began, lastMerged) + Wait::window);
}

// --- what leaves

// What stands under the numbers up to the one that `limit` gives, all of the rows if that is the
// highest.
template <class Limit>
Folder::Lines Folder::takeUpTo(Limit limit) {
    Lines taken;
    fresh = 0;
    passDue.reset();
    if (!histories.empty()) {
        const Runs runs = histories.runs();
        const Alignment alignment(histories, sent, runs);
        const int last = limit(alignment, runs);
        const auto& nodes = histories.nodes();
        const auto numberAt = [&](std::uint32_t node) {
            return alignment.numberOf(alignment.lines()[alignment.lineOf(node)]);
        };

        std::vector<ClientSet> clients(alignment.lines().size());
        std::vector<std::uint32_t> cut(alignment.lines().size(), Histories::WHOLE);
        for (const auto& run : runs) {
            bool any = false;
            for (auto at = run.point; Histories::isNode(at);) {
                const std::uint32_t node = Histories::indexOf(at);
                at = nodes[node].parent;
                if (numberAt(node) > last) continue;
                const std::uint32_t line = alignment.lineOf(node);
                insert(clients[line], run);
                cut[line] |= nodes[node].cut();
                any = true;
            }
            if (any) insert(taken.clients, run);
        }

        struct Leaving {
            int number;
            bool ordered;
            int place; // within an ordered number; else the smallest client
            std::uint32_t line;
        };
        std::vector<Leaving> leaving;
        constexpr int behindSent = 1 << 30;
        for (std::uint32_t i = 0; i < clients.size(); ++i) {
            if (clients[i].empty()) continue;
            const auto& line = alignment.lines()[i];
            const int number = alignment.numberOf(line);
            const bool ordered = alignment.ordered(line);
            int place = clients[i].front();
            if (ordered) {
                place = sent.place(number, histories.text(line.text).hash);
                if (place < 0) place = behindSent;
            }
            leaving.push_back({number, ordered, place, i});
        }
        std::stable_sort(leaving.begin(), leaving.end(), [](const Leaving& a, const Leaving& b) {
            return a.number != b.number ? a.number < b.number : a.place < b.place;
        });
        for (const Leaving& each : leaving) {
            const auto& text = histories.text(alignment.lines()[each.line].text);
            sent.add(each.number, text.hash);
            taken.lines.push_back({each.number, std::move(clients[each.line]), text.text,
                                   static_cast<Cut>(cut[each.line])});
        }

        std::vector<Histories::Sent> left(nodes.size());
        for (std::uint32_t node = 0; node < nodes.size(); ++node) {
            if (alignment.lineOf(node) == Histories::none || numberAt(node) > last) continue;
            const int number = numberAt(node);
            const bool half = (nodes[node].cut() & Histories::HALF) != 0;
            left[node] = {true, number,
                          half ? sent.place(number, histories.text(nodes[node].text()).hash) : -1};
        }
        histories.leave(runs, left);
        // What stays begins anew with its oldest line.
        if (!histories.empty()) {
            began = histories.born(histories.nodes().front());
            for (const auto& node : histories.nodes())
                began = std::min(began, histories.born(node));
        }
        if (last == everything) takeRows(taken);
    } else {
        takeRows(taken);
    }
    return taken;
}

Folder::Ending Folder::ending() {
    Ending all;
    all.uses.resize(histories.textCount());
    const Runs runs = histories.runs();
    const Alignment alignment(histories, sent, runs);
    const auto& nodes = histories.nodes();
    // The runs are counted, then stand line by line.
    const auto walk = [&](auto&& visit) {
        for (const auto& run : runs)
            for (auto at = run.point; Histories::isNode(at);) {
                const std::uint32_t node = Histories::indexOf(at);
                visit(alignment.lineOf(node), run);
                at = nodes[node].parent;
            }
    };
    std::vector<Place> places(alignment.lines().size());
    std::vector<std::uint32_t> ends(places.size() + 1);
    walk([&](std::uint32_t line, const Histories::Run& run) {
        if (ends[line]++ == 0) places[line].order = run.first;
    });
    for (std::uint32_t i = 0; i < places.size(); ++i) {
        const auto& line = alignment.lines()[i];
        places[i].number = alignment.numberOf(line);
        places[i].line = i;
        if (alignment.ordered(line)) {
            const int place = sent.place(places[i].number, histories.text(line.text).hash);
            places[i].order = place < 0 ? everything : place;
        }
        ++all.uses[line.text];
    }
    // Lines were placed one class of clients after the other: those of a number are mostly in
    // order.
    const auto inOrder = [](const Place& a, const Place& b) {
        return a.number != b.number ? a.number < b.number : a.order < b.order;
    };
    sortByNumber(places);
    if (!std::ranges::is_sorted(places, inOrder)) std::ranges::stable_sort(places, inOrder);
    std::uint32_t sum = 0;
    all.lines.reserve(places.size());
    for (const Place& each : places) {
        const std::uint32_t count = std::exchange(ends[each.line], sum);
        if (count == 0) continue; // a beginning that was continued meanwhile
        sum += count;
        all.lines.push_back({each.number, alignment.lines()[each.line].text, sum});
    }
    all.clients.resize(sum);
    walk([&](std::uint32_t line, const Histories::Run& run) {
        all.clients[ends[line]++] = {run.first, run.last};
    });
    return all;
}

std::string Folder::endingText(Ending& all, std::uint32_t text) {
    return --all.uses[text] == 0 ? histories.release(text) : histories.text(text).text;
}

void Folder::takeRows(Lines& to) {
    bool first = true;
    for (Row& row : std::exchange(rows, {})) {
        const int number = sent.highest() + (row.sameNumber && !first ? 0 : 1);
        sent.raise(number);
        first = false;
        to.clients.insert(row.clients);
        to.lines.push_back({number, std::move(row.clients), std::move(row.text), WHOLE});
    }
    rowBytes = 0;
}

Folder::Lines Folder::take() {
    return takeUpTo([](const Alignment&, const Runs&) { return everything; });
}

Folder::Lines Folder::takeDue(Clock::time_point now) {
    if (windowEnd() > now)
        return takeUpTo([this](const Alignment& alignment, const Runs& runs) {
            return lastPassed(alignment, runs);
        });
    if (!rows.empty()) return take();
    const bool merging = std::max(began, lastMerged) + Wait::window > now;
    return takeUpTo([&](const Alignment& alignment, const Runs& runs) {
        const bool few = runs.size() * histories.nodes().size() <= fewSteps;
        const Clock::duration least =
            merging && few ? patience - Wait::window / 2 : Wait::window / 2;
        // Lines stay together: below one that must leave, none stays.
        int last = -1;
        bool all = true;
        const auto& nodes = histories.nodes();
        for (std::uint32_t node = 0; node < nodes.size(); ++node) {
            if (alignment.lineOf(node) == Histories::none) continue;
            const int number = alignment.numberOf(alignment.lines()[alignment.lineOf(node)]);
            if (histories.born(nodes[node]) + least <= now)
                last = std::max(last, number);
            else
                all = false;
        }
        return all ? everything : last;
    });
}

// The last line that a client has in common with another is where it has come: what it alone said
// behind that may turn out to be an extra line, before more in common.
int Folder::lastPassed(const Alignment& alignment, const Runs& runs) const {
    if (runs.front().first == runs.back().last) return everything; // nobody else's are held
    const auto& nodes = histories.nodes();
    std::vector<std::size_t> saidBy(nodes.size());
    for (const auto& run : runs)
        saidBy[Histories::indexOf(run.point)] += static_cast<std::size_t>(run.last - run.first + 1);
    std::vector<std::size_t> sharedBy(alignment.lines().size());
    for (std::size_t node = nodes.size(); node-- > 0;) {
        if (saidBy[node] == 0) continue;
        sharedBy[alignment.lineOf(static_cast<std::uint32_t>(node))] += saidBy[node];
        if (Histories::isNode(nodes[node].parent))
            saidBy[Histories::indexOf(nodes[node].parent)] += saidBy[node];
    }
    int last = everything;
    for (const auto& run : runs) {
        if (!run.awaited) continue;
        auto at = run.point;
        int number = -1;
        for (; Histories::isNode(at); at = nodes[Histories::indexOf(at)].parent) {
            const std::uint32_t line = alignment.lineOf(Histories::indexOf(at));
            number = alignment.numberOf(alignment.lines()[line]);
            if (sharedBy[line] > 1 || number <= sent.highest()) break;
        }
        if (!Histories::isNode(at)) number = histories.roots()[Histories::indexOf(at)].last;
        last = std::min(last, number);
    }
    return last;
}

Folder::Lines Folder::aside(const ClientSet& clients, std::string text) {
    Lines row;
    sent.raise(sent.highest() + 1);
    row.clients = clients;
    row.lines.push_back({sent.highest(), clients, std::move(text), WHOLE});
    return row;
}

Data Folder::record(Lines&& lines, int consoleId, const std::string& consoleCmd) {
    Data record;
    record.setType(Data::TEXT);
    record.setConsoleID(consoleId);
    record.setConsoleCmd(consoleCmd);
    if (!lines.clients.empty())
        record.setBounds(lines.clients.front(), lines.clients.back(),
                         static_cast<int>(lines.clients.size()));
    for (Line& each : lines.lines) {
        auto line = std::make_unique<::Line>(each.number, ::Line::EQUAL);
        line->setContent(std::move(each.text));
        line->addBEs(each.clients);
        line->generateKey();
        record.addLine(std::move(line));
    }
    return record;
}
