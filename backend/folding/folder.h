#pragma once

#include "backend/folding/histories.h"
#include "backend/folding/sentlines.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "common/data.h"

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

class Alignment;

/// Folds what clients say: gathers lines, those of single clients or of sets, and gives them back
/// as distinct lines with their clients, numbered so that equal lines share a number.
///
/// All lines of one command pass through one folder. A client's numbers never fall, and no two
/// lines of a number are given back at once that have the same text; lines of one number stand in
/// an order that each of their clients has said them in, and else by their smallest clients. Memory
/// grows with the distinct lines and histories, not with the clients.
///
/// What all that are awaited have said leaves at once, what others may still say a while later.
/// Does not wait by itself: take what is `due` then.
class Folder {
  public:
    /// How a line is cut; see Histories.
    enum Cut : std::uint32_t {
        WHOLE = Histories::WHOLE,
        HALF = Histories::HALF,
        REST = Histories::REST,
        HALF_REST = HALF | REST,
    };

    struct Line {
        int number;
        ClientSet clients;
        std::string text;
        /// How any of the clients has cut it: another folder may be given the line so.
        Cut cut;
    };

    /// Lines by ascending numbers.
    struct Lines {
        std::vector<Line> lines;
        /// All that they name.
        ClientSet clients;
        bool empty() const { return lines.empty(); }
    };

    /// Lines wait at most `longest` for others that merge with them. The first line has the number
    /// behind `last`.
    explicit Folder(std::chrono::milliseconds longest = Wait::fold, int last = -1);

    /// Clients whose lines are waited for, so that what all of them have passed may leave.
    void await(const ClientSet& clients) { histories.await(clients); }
    /// The client says no more.
    void answered(int client);

    /// The next line of the client, or of each of the clients. A REST of a HALF line joins it, or,
    /// where that has left, goes out under its number and behind it; elsewhere it is a line. The
    /// times need not ascend.
    void add(int client, std::string_view text, Clock::time_point now, Cut cut = WHOLE);
    void add(const ClientSet& clients, std::string_view text, Clock::time_point now,
             Cut cut = WHOLE);
    /// A line that others merge with counts as said at that time at least, whatever was told of it.
    void merged(Clock::time_point then) { lastMerged = std::max(lastMerged, then); }
    /// A line about clients that none of them has said, behind all that was gathered, under a
    /// number of its own; or under the number of the row before it, whose text must be another.
    void addRow(const ClientSet& clients, std::string text, Clock::time_point now,
                bool sameNumber = false);
    /// A line about clients that does not wait, behind everything that has left.
    Lines aside(const ClientSet& clients, std::string text);

    bool empty() const { return histories.empty() && rows.empty(); }
    /// When the oldest of what is held came; nothing when nothing is held.
    std::optional<Clock::time_point> since() const {
        return empty() ? std::nullopt : std::optional(began);
    }
    /// Whether so much is held that it must leave.
    bool full() const;
    /// The highest number that has left; -1: none.
    int highest() const { return sent.highest(); }
    /// When what is held must leave; nothing when nothing is held.
    std::optional<Clock::time_point> due() const;

    /// All that is held.
    Lines take();
    /// All that is held, and nothing is added any more: hands the lines over number by number,
    /// which takes less memory and time than a take.
    template <class Hear>
    void finish(Hear hear);
    /// What must leave by now: what all that are awaited have passed, or all but lines that have
    /// only just begun.
    Lines takeDue(Clock::time_point now);

    /// A record of the lines for a console.
    static Data record(Lines&& lines, int consoleId, const std::string& consoleCmd);

  private:
    struct Row {
        ClientSet clients;
        std::string text;
        bool sameNumber;
    };
    using Runs = std::vector<Histories::Run>;

    std::chrono::milliseconds patience;
    Histories histories;
    SentLines sent;
    std::vector<Row> rows;
    std::size_t rowBytes = 0;
    Clock::time_point began;      // when the oldest of what is held came
    Clock::time_point lastMerged; // when the last line came that others had said before
    Clock::time_point lastAdded;
    std::optional<Clock::time_point> passDue; // when to look for what all have passed
    std::size_t fresh = 0; // lines and answers since what all have passed was looked for

    /// All lines that are held, in the order in which they leave, with the clients of each as runs
    /// of ids; the texts are moved out one by one.
    struct Ending {
        struct Line {
            int number;
            std::uint32_t text;
            std::size_t end; // of its runs
        };
        std::vector<Line> lines;
        std::vector<ClientSet::Range> clients;
        std::vector<std::uint32_t> uses; // of each text
    };

    Ending ending();
    std::string endingText(Ending& all, std::uint32_t text);
    void added(Clock::time_point now, bool merged);
    void awaitPassed();
    Clock::time_point windowEnd() const;
    template <class Limit>
    Lines takeUpTo(Limit limit);
    int lastPassed(const Alignment& alignment, const Runs& runs) const;
    void takeRows(Lines& to);
};

template <class Hear>
void Folder::finish(Hear hear) {
    Ending all = ending();
    std::vector<Line> same;
    std::size_t run = 0;
    for (std::size_t i = 0; i < all.lines.size(); ++i) {
        const Ending::Line& each = all.lines[i];
        Line line{each.number, {}, endingText(all, each.text), WHOLE};
        for (; run < each.end; ++run)
            line.clients.insertRange(all.clients[run].first, all.clients[run].last);
        same.push_back(std::move(line));
        if (i + 1 < all.lines.size() && all.lines[i + 1].number == each.number) continue;
        hear(std::move(same));
        same.clear();
    }
}
