#pragma once

#include "backend/os/clock.h"
#include "common/data.h"

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

/// Gathers lines of many clients until they are sent as one record: arranged by line number, equal
/// lines as one line with its set of clients. Variants of a line stand in the order of their
/// clients, whoever was faster.
class Aggregator {
  public:
    /// Adds one client's line; its number counts from 0 within the client's answer. The times
    /// ascend.
    void add(int client, int lineNo, std::string text, Clock::time_point now);
    /// Adds a line about a set of clients that none of them has said. Such lines keep their order
    /// and stand behind the clients' own; no two of a line number have the same text.
    void addRow(const ClientSet& clients, int lineNo, std::string text);
    bool empty() const { return pending.empty() && rows.empty(); }
    /// Roughly the memory that the lines take.
    std::size_t size() const { return bytes; }
    /// When the oldest of the clients' own lines was added; nothing when there is none.
    std::optional<Clock::time_point> oldest() const;
    /// The record of what was gathered, addressed to a console; nothing when nothing was gathered.
    std::optional<Data> take(int consoleId, const std::string& consoleCmd);
    /// The same of the lines whose numbers are lower than `below`, and of all that were added no
    /// later than `before`.
    std::optional<Data> takePart(int consoleId, const std::string& consoleCmd, int below,
                                 Clock::time_point before);

  private:
    struct Entry {
        int client;
        int lineNo;
        std::string text;
        Clock::time_point added;
        std::size_t size() const { return sizeof(Entry) + text.size(); }
    };

    struct Row {
        ClientSet clients;
        int lineNo;
        std::string text;
    };

    std::vector<Entry> pending;
    std::vector<Row> rows;
    std::size_t bytes = 0;
};
