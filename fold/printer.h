#pragma once

#include "backend/folding/folder.h"
#include "common/line.h"
#include "display/parser.h"
#include "fold/labels.h"
#include "fold/output.h"

#include <memory>
#include <string>
#include <string_view>
#include <vector>

/// Shows folded lines as a console shows a record, or as JSON. The sets of the lines hold ids of
/// the labels.
class Printer {
  public:
    struct Style {
        Parser::Mode mode = Parser::COLLAPSED;
        bool colors = false;
        bool json = false;
        /// The number of labels in front of each line.
        bool count = false;
    };

    /// The labels and the output must outlive this.
    Printer(const Style& how, Labels& all, Output& to) : style(how), labels(all), out(to) {}

    /// Whether it matters which lines are shown together.
    bool byLabel() const { return style.mode == Parser::EXPANDED && !style.json; }
    /// Shows lines, by ascending numbers.
    void show(std::vector<Folder::Line>&& lines);
    /// Shows a line that belongs to nobody, behind a position; -1: before all.
    void showStray(std::string_view text, int position);
    /// Shows texts of several lines, each with the ids of those that have said all of it.
    struct Whole {
        ClientSet clients;
        std::string text;
    };
    void show(const std::vector<Whole>& texts);

  private:
    /// A line with its verdict.
    struct Shown {
        int number;
        ClientSet ranks;
        std::string text;
        Line::State state = Line::EQUAL;
    };

    const Style style;
    Labels& labels;
    Output& out;

    void judge(std::vector<Shown>& position) const;
    void showPosition(std::vector<Shown>& position);
    void showByLabel(const std::vector<Shown>& lines);
    void print(const Shown& line, int rank);
    void printJson(const Shown& line);
    void begin(Line::State state, std::size_t labelCount);
    void end();
};
