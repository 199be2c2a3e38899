#include "backend/wire/nodereport.h"

#include <algorithm>

namespace {

// When nobody has answered for so long, those who have are told of.
constexpr auto quiet = std::chrono::milliseconds(20);

} // namespace

void NodeReport::begun(const ClientSet& clients, const Work& work, Clock::time_point now) {
    for (const int id : clients) {
        leave(id, now);
        workOf[id] = work.number;
    }
    Sheet& sheet = sheets[work.number];
    sheet.instant = work.instant;
    sheet.clients.insert(clients);
}

// Forgets a work that nobody has any more.
void NodeReport::leave(int client, Clock::time_point now) {
    const auto work = workOf.find(client);
    if (work == workOf.end()) return;
    const auto sheet = sheets.find(work->second);
    workOf.erase(work);
    sheet->second.clients.erase(client);
    sheet->second.awaited.erase(client);
    if (!sheet->second.clients.empty()) return;
    send(sheet->first, sheet->second, now);
    sheets.erase(sheet);
}

void NodeReport::typed(const ClientSet& clients) {
    for (const int id : clients) {
        Sheet& sheet = sheets[workOf[id]];
        sheet.awaited.insert(id);
        sheet.lines.await({id});
    }
}

void NodeReport::started(int client, const NodeRecords::Started& how, std::size_t remain,
                         Clock::time_point now) {
    starts[{how.ended, how.holds, how.tellsErrors, how.text}].insert(client);
    hold(now, remain == 0 ? Clock::duration::zero() : Wait::window);
}

void NodeReport::errors(const NodeRecords::Errors& more) {
    faults.count += more.count;
    faults.clients.insert(more.clients);
}

void NodeReport::ended(int client, Clock::time_point now) {
    ends.insert(client);
    const auto work = workOf.find(client);
    if (work != workOf.end()) sheets[work->second].awaited.erase(client);
    hold(now, quiet);
}

// --- what clients say

void NodeReport::add(int work, const ClientSet& clients, const LineCutter::Piece& piece,
                     Clock::time_point now) {
    Sheet& sheet = sheets[work];
    if (!sheet.since) sheet.since = now;
    const auto cut = static_cast<Folder::Cut>((piece.ended ? Folder::WHOLE : Folder::HALF) |
                                              (piece.goesOn ? Folder::REST : Folder::WHOLE));
    sheet.lines.add(clients, piece.text, now, cut);
    // The beginning of a line has waited before.
    if (sheet.instant || !piece.ended || sheet.lines.full()) hold(now, Clock::duration::zero());
}

void NodeReport::said(int work, const ClientSet& clients, std::vector<std::string> lines,
                      Clock::time_point now) {
    for (std::string& line : lines)
        add(work, clients, {std::move(line)}, now);
}

void NodeReport::saidPart(int work, const ClientSet& clients, const LineCutter::Piece& part,
                          Clock::time_point now) {
    add(work, clients, part, now);
}

void NodeReport::captured(int work, int client, const std::string& text) {
    sheets[work].whole[text].insert(client);
}

void NodeReport::stacks(int work, const StackTree& tree) {
    Sheet& sheet = sheets[work];
    if (!sheet.stacks) sheet.stacks.emplace();
    sheet.stacks->add(tree);
}

void NodeReport::answered(int work, const ClientSet& clients, Clock::time_point now) {
    Sheet& sheet = sheets[work];
    sheet.awaited.erase(clients);
    sheet.answered.insert(clients);
    for (const int id : clients)
        sheet.lines.answered(id);
    hold(now, sheet.awaited.empty() ? Clock::duration::zero() : quiet);
}

void NodeReport::asks(int work, const ClientSet& clients, const std::string& question,
                      Clock::time_point now) {
    flush(now);
    outlet.send(NodeRecords::asks(work, clients, question));
}

// --- time

// What was gathered waits for this time from now on, but not for longer than the window.
void NodeReport::hold(Clock::time_point now, Clock::duration time) {
    if (!since) since = now;
    const Clock::time_point latest = *since + Wait::window;
    due = std::min(latest, now + std::min<Clock::duration>(time, Wait::window));
}

std::optional<Clock::time_point> NodeReport::deadline() const {
    std::optional<Clock::time_point> next = due;
    for (const auto& [work, sheet] : sheets) {
        const auto lines = sheet.lines.due();
        if (lines && (!next || *lines < *next)) next = lines;
    }
    return next;
}

void NodeReport::tick(Clock::time_point now) {
    if (due && *due <= now) return flush(now);
    for (auto& [work, sheet] : sheets) {
        const auto lines = sheet.lines.due();
        if (lines && *lines <= now) sendLines(work, sheet, sheet.lines.takeDue(now), now);
    }
}

void NodeReport::flush(Clock::time_point now) {
    due.reset();
    since.reset();
    if (faults.count > 0) outlet.send(NodeRecords::errors(std::exchange(faults, {})));
    for (auto& [as, clients] : std::exchange(starts, {})) {
        const auto& [ended, holds, tells, text] = as;
        outlet.send(NodeRecords::started({clients, ended, holds, tells, text}));
    }
    for (auto& [work, sheet] : sheets)
        send(work, sheet, now);
    if (ends.empty()) return;
    const ClientSet over = std::exchange(ends, {});
    for (const int id : over)
        leave(id, now);
    outlet.send(NodeRecords::about(AgentRecord::ENDED, over));
}

void NodeReport::sendLines(int work, Sheet& sheet, Folder::Lines lines, Clock::time_point now) {
    if (lines.empty()) return;
    std::vector<NodeRecords::Row> rows;
    for (Folder::Line& line : lines.lines)
        rows.push_back({std::move(line.clients),
                        {std::move(line.text), (line.cut & Folder::REST) != 0,
                         (line.cut & Folder::HALF) == 0}});
    const auto age = now - sheet.since.value_or(now);
    outlet.send(
        NodeRecords::lines(work, std::chrono::duration_cast<std::chrono::milliseconds>(age), rows));
    sheet.since = sheet.lines.since();
}

void NodeReport::send(int work, Sheet& sheet, Clock::time_point now) {
    sendLines(work, sheet, sheet.lines.take(), now);
    if (const auto tree = std::exchange(sheet.stacks, std::nullopt))
        outlet.send(NodeRecords::stacks(work, *tree));
    for (const auto& [text, clients] : std::exchange(sheet.whole, {}))
        outlet.send(NodeRecords::whole(work, clients, text));
    if (!sheet.answered.empty())
        outlet.send(NodeRecords::answered(work, std::exchange(sheet.answered, {})));
}
