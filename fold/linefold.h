#pragma once

#include "backend/folding/folder.h"
#include "backend/os/clock.h"
#include "fold/labels.h"
#include "fold/printer.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Folds labelled lines and has them shown: all at once by finish, or as they agree by showDue. A
/// line of nobody is shown directly behind the position of the labelled line before it. Does no
/// input and keeps no time.
class LineFold {
  public:
    /// Lines that come together when all labels have said them may be shown before finish. The
    /// labels and the printer must outlive this.
    LineFold(Labels& all, Printer& to, bool follows, bool whole)
        : labels(all), printer(to), following(follows), wholes(whole) {}

    void add(std::string_view label, std::string_view text, Clock::time_point now);
    void addStray(std::string_view text);
    /// How many lines belong to nobody.
    std::size_t strays() const { return strayCount; }

    /// When showDue has something to show; nothing when nothing is held.
    std::optional<Clock::time_point> due() const { return folder.due(); }
    /// Shows what is due.
    void showDue(Clock::time_point now);
    /// Shows all that is held.
    void finish();

  private:
    /// A line of nobody, and the line that it stands behind: the label's so-manieth.
    struct Stray {
        std::size_t serial; // in the order in which they came
        std::uint32_t behind;
        std::string text;
        int position = -1;
    };

    Labels& labels;
    Printer& printer;
    const bool following;
    const bool wholes;
    Folder folder;
    std::vector<std::uint32_t> said;  // lines of each label
    std::vector<std::uint32_t> shown; // of those that were shown; kept when following
    int last = -1;
    std::map<int, std::deque<Stray>> waiting; // by the id of the label that they stand behind
    ClientSet watched;                        // those ids, and some that nobody waits for any more
    std::size_t strayCount = 0;

    void show(std::vector<Folder::Line>&& lines);
    std::vector<Stray> findStrays(const std::vector<Folder::Line>& lines);
    void showWholes(const std::vector<Folder::Line>& lines);
};
