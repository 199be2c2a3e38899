#include "backend/folding/aggregator.h"

#include <algorithm>
#include <iterator>
#include <utility>

void Aggregator::add(int client, int lineNo, std::string text, Clock::time_point now) {
    pending.push_back({client, lineNo, std::move(text), now});
    bytes += pending.back().size();
}

void Aggregator::addRow(const ClientSet& clients, int lineNo, std::string text) {
    bytes += sizeof(Row) + text.size();
    rows.push_back({clients, lineNo, std::move(text)});
}

std::optional<Clock::time_point> Aggregator::oldest() const {
    return pending.empty() ? std::nullopt : std::optional(pending.front().added);
}

std::optional<Data> Aggregator::takePart(int consoleId, const std::string& consoleCmd, int below,
                                         Clock::time_point before) {
    const auto stays =
        std::stable_partition(pending.begin(), pending.end(), [below, before](const Entry& each) {
            return each.lineNo < below || each.added <= before;
        });
    std::vector<Entry> later(std::make_move_iterator(stays),
                             std::make_move_iterator(pending.end()));
    pending.erase(stays, pending.end());
    auto record = take(consoleId, consoleCmd);
    for (const Entry& each : later)
        bytes += each.size();
    pending = std::move(later);
    return record;
}

std::optional<Data> Aggregator::take(int consoleId, const std::string& consoleCmd) {
    if (empty()) return std::nullopt;
    std::vector<Entry> entries = std::exchange(pending, {});
    bytes = 0;
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry& a, const Entry& b) { return a.client < b.client; });
    Data record;
    ClientSet clients;
    for (Entry& entry : entries) {
        auto line = std::make_unique<Line>(entry.lineNo, Line::EQUAL);
        line->setContent(std::move(entry.text));
        line->addBE(entry.client);
        line->generateKey();
        record.addLine(std::move(line));
        clients.insert(entry.client);
    }
    for (Row& row : std::exchange(rows, {})) {
        auto line = std::make_unique<Line>(row.lineNo, Line::EQUAL);
        line->setContent(std::move(row.text));
        line->addBEs(row.clients);
        line->generateKey();
        record.addLine(std::move(line));
        clients.insert(row.clients);
    }
    record.merge();
    record.setType(Data::TEXT);
    record.setConsoleID(consoleId);
    record.setConsoleCmd(consoleCmd);
    record.setBounds(clients.front(), clients.back(), static_cast<int>(clients.size()));
    return record;
}
