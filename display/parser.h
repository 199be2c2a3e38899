#pragma once

#include "common/data.h"
#include "common/line.h"
#include "display/closeness.h"
#include "display/color.h"
#include "display/pattern.h"
#include "display/screen.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

/// The symmetric key of a pair of line keys: larger * 5 + smaller, modulo 2^64.
std::size_t hash2Key(std::size_t a, std::size_t b);
/// Decimal text.
std::string itoa(int number);

/// Compares the variants of each line position and prints them: once with all their clients, or per
/// client, or as each position asks for. Made for one record: build a fresh one, set its three
/// colours, call dump once. Prints on standard output, in few large writes.
///
/// Verdicts are remembered by the keys of the two texts, so that two pairs whose keys collide share
/// the verdict of the first; what only one pair of the record can ask for is not remembered.
class Parser {
  public:
    enum Mode { AUTO = 0, COLLAPSED = 1, EXPANDED = 2 };
    enum ColorT { EQUAL_COLOR = 0, SIMILAR_COLOR = 1, DIFFERENT_COLOR = 2 };

    void setColor(const char* color, ColorT type);
    /// Prints the texts alone: no colours, and nothing that resets them.
    void setPlain() { endColor = ""; }
    /// Asked between verdicts, between lines and when text has been written: once it says true,
    /// nothing more is printed.
    void stopWhen(std::function<bool()> question) { stopAsked = std::move(question); }
    /// Prints the record. A pattern (null or empty for none) lets only those lines through that
    /// match its cascade; a malformed one shows the usage of match once a line was to be printed.
    /// False for a malformed one.
    bool dump(Data* data, Mode mode, const char* pattern);

    void dumpAuto(Data* data, const char* pattern);
    void dumpCollapsed(Data* data, const char* pattern);
    void dumpExpanded(Data* data, const char* pattern);
    void dumpLine(const Line* line, const char* pattern);
    void dumpLine(const Line* line, int id, const char* pattern);

    /// The verdict on a pair of texts, remembered by the pair's key.
    Line::State compare(const Line* line1, const Line* line2);
    /// Chooses each position's leader and sets the state of every other variant.
    void parse(Data* data);

  private:
    std::unordered_map<std::size_t, Line::State> distances;
    // One entry per position that holds lines, in the order of the positions.
    std::vector<int> leaders;
    std::vector<int> weights;
    std::string ecolor, scolor, dcolor;
    std::string endColor = END_COLOR;

    std::optional<Pattern> filter;
    Screen screen;
    std::string text; // of the line that is printed, from its prefix on
    Closeness closeness;
    std::function<bool()> stopAsked;
    bool stopped = false;
    unsigned lines = 0; // since stopAsked was asked

    class Pairs;
    bool isStopped();
    void judge(Data::Slot& slot, std::size_t position, const Pairs& pairs);
    void printColor(const Line& line);
    void printLine(const Line& line, const char* pattern);
    void endLine(bool printed);
    void printPerClient(std::vector<const Line*> variants, const Data& data, const char* pattern);
};
