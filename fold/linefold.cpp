#include "fold/linefold.h"

#include <algorithm>
#include <deque>
#include <map>
#include <unordered_map>
#include <utility>

void LineFold::add(std::string_view label, std::string_view text, Clock::time_point now) {
    const int id = labels.idOf(label);
    if (static_cast<std::size_t>(id) >= said.size()) {
        said.resize(static_cast<std::size_t>(id) + 1);
        shown.resize(said.size());
        if (following) folder.await({id});
    }
    folder.add(id, text, now);
    ++said[static_cast<std::size_t>(id)];
    last = id;
}

void LineFold::addStray(std::string_view text) {
    ++strayCount;
    const auto at = static_cast<std::size_t>(last);
    if (last == -1 || (following && waiting.empty() && shown[at] == said[at]))
        printer.showStray(text, last == -1 ? -1 : folder.highest());
    else
        waiting.push_back({last, said[at], std::string(text)});
}

void LineFold::showDue(Clock::time_point now) {
    if (folder.full())
        show(folder.take().lines);
    else if (const auto when = folder.due(); when && *when <= now)
        show(folder.takeDue(now).lines);
}

void LineFold::finish() {
    // Label by label, a record is shown as a whole.
    if (wholes)
        showWholes(folder.take().lines);
    else if (printer.byLabel())
        show(folder.take().lines);
    else
        folder.finish([this](std::vector<Folder::Line>&& lines) { show(std::move(lines)); });
    // Whole outputs are one position.
    for (const Stray& each : std::exchange(waiting, {}))
        printer.showStray(each.text, 0);
}

// Counts the lines of the labels that strays stand behind, and so finds their positions.
void LineFold::findStrays(const std::vector<Folder::Line>& lines) {
    if (waiting.empty() && !following) return;
    ClientSet watched;
    std::unordered_map<int, std::deque<Stray*>> of;
    for (Stray& each : waiting) {
        watched.insert(each.id);
        of[each.id].push_back(&each);
    }
    for (const Folder::Line& line : lines) {
        for (const int id : following ? line.clients : line.clients.intersection(watched)) {
            const std::uint32_t count = ++shown[static_cast<std::size_t>(id)];
            const auto at = of.find(id);
            if (at == of.end()) continue;
            for (auto& next = at->second; !next.empty() && next.front()->behind == count;
                 next.pop_front())
                next.front()->position = line.number;
        }
    }
}

void LineFold::show(std::vector<Folder::Line>&& lines) {
    if (lines.empty()) return;
    findStrays(lines);
    std::vector<Stray> found, left;
    for (Stray& each : waiting)
        (each.position == -1 ? left : found).push_back(std::move(each));
    waiting = std::move(left);
    std::stable_sort(found.begin(), found.end(),
                     [](const Stray& a, const Stray& b) { return a.position < b.position; });
    auto next = found.begin();
    if (next == found.end()) return printer.show(std::move(lines));
    std::vector<Folder::Line> part;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        part.push_back(std::move(lines[i]));
        const int number = part.back().number;
        const bool ends = i + 1 == lines.size() || lines[i + 1].number != number;
        if (!ends || next == found.end() || next->position != number) continue;
        printer.show(std::exchange(part, {}));
        for (; next != found.end() && next->position == number; ++next)
            printer.showStray(next->text, number);
    }
    if (!part.empty()) printer.show(std::move(part));
}

// Those whose lines are all the same have said the same text.
void LineFold::showWholes(const std::vector<Folder::Line>& lines) {
    // A number for each beginning of an output; those of equal outputs are equal.
    std::vector<std::uint32_t> output(said.size());
    std::vector<std::pair<std::uint32_t, std::uint32_t>> outputs{
        {0, 0}}; // the one before, the line
    std::map<std::uint32_t, std::uint32_t> fresh;
    for (std::uint32_t i = 0; i < lines.size(); ++i) {
        fresh.clear();
        for (const int id : lines[i].clients) {
            std::uint32_t& its = output[static_cast<std::size_t>(id)];
            const auto [at, isNew] = fresh.emplace(its, static_cast<std::uint32_t>(outputs.size()));
            if (isNew) outputs.emplace_back(its, i);
            its = at->second;
        }
    }
    std::map<std::uint32_t, ClientSet> groups;
    for (std::size_t id = 0; id < output.size(); ++id)
        groups[output[id]].insert(static_cast<int>(id));
    std::vector<Printer::Whole> texts;
    for (auto& [number, clients] : groups) {
        std::vector<std::uint32_t> chain;
        for (std::uint32_t at = number; at != 0; at = outputs[at].first)
            chain.push_back(outputs[at].second);
        std::string text;
        for (auto at = chain.rbegin(); at != chain.rend(); ++at)
            text.append(lines[*at].text) += '\n';
        texts.push_back({std::move(clients), std::move(text)});
    }
    printer.show(texts);
}
