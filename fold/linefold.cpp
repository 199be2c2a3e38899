#include "fold/linefold.h"

#include <algorithm>
#include <iterator>
#include <map>
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
    if (last == -1 || (following && shown[at] == said[at]))
        return printer.showStray(text, last == -1 ? -1 : folder.highest());
    waiting[last].push_back({strayCount, said[at], std::string(text)});
    watched.insert(last);
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
    std::vector<Stray> left;
    for (auto& [id, strays] : std::exchange(waiting, {}))
        std::ranges::move(strays, std::back_inserter(left));
    std::ranges::sort(left, {}, &Stray::serial);
    for (const Stray& each : left)
        printer.showStray(each.text, 0);
}

// Takes out the strays that stand behind these lines: counts the lines of the labels that they wait
// for.
std::vector<LineFold::Stray> LineFold::findStrays(const std::vector<Folder::Line>& lines) {
    std::vector<Stray> found;
    if (waiting.empty() && !following) return found;
    for (const Folder::Line& line : lines) {
        for (const int id : following ? line.clients : line.clients.intersection(watched)) {
            const std::uint32_t count = ++shown[static_cast<std::size_t>(id)];
            const auto at = waiting.find(id);
            if (at == waiting.end()) continue;
            for (auto& next = at->second; !next.empty() && next.front().behind == count;
                 next.pop_front()) {
                found.push_back(std::move(next.front()));
                found.back().position = line.number;
            }
            if (at->second.empty()) waiting.erase(at);
        }
    }
    std::ranges::sort(found, [](const Stray& a, const Stray& b) {
        return a.position != b.position ? a.position < b.position : a.serial < b.serial;
    });
    return found;
}

void LineFold::show(std::vector<Folder::Line>&& lines) {
    if (lines.empty()) return;
    std::vector<Stray> found = findStrays(lines);
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
