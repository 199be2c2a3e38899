#pragma once

#include "common/clientset.h"

#include <cstddef>
#include <string>

/// The 64-bit key of a text: h = h * 5 + byte from 0, modulo 2^64, bytes taken as unsigned.
std::size_t hashStr(const char* text);

/// One line of client output, together with the clients that printed exactly this text at this line
/// number.
class Line {
  public:
    /// How far the line is from the leader of its position.
    enum State : int { EQUAL = 0, SIMILAR = 1, DIFFERENT = 2 };

    /// An empty line at a line number, counted from 0.
    Line(int lineNo, State lineState) : line_no(lineNo), state(lineState) {}

    /// Adds a client. Both bounds start at 0 and one call moves only one of them, so the smallest
    /// id stays 0 as long as no id is negative; the order of lines rests on that.
    void addBE(int id);
    /// Adds every client of the other line, by the same rule.
    void addLine(const Line* other) { addBEs(other->be_ids); }
    void addBEs(const ClientSet& ids);
    void clearBE() { be_ids.clear(); }

    void setContent(const char* text) { content = text; }
    void setContent(std::string text) { content = std::move(text); }
    const std::string& getContent() const { return content; }
    void generateKey() { key = hashStr(content.c_str()); }
    void setKey(std::size_t value) { key = value; }
    std::size_t getKey() const { return key; }

    void setState(State value) { state = value; }
    State getState() const { return state; }
    int getLineNo() const { return line_no; }
    int numOfBE() const { return static_cast<int>(be_ids.size()); }
    const ClientSet& clients() const { return be_ids; }
    int getMaxBEId() const { return max_id; }
    int getMinBEId() const { return min_id; }

    void copy(const Line& other) { *this = other; }
    bool operator<(const Line& other) const {
        return line_no < other.line_no || (line_no == other.line_no && min_id < other.min_id);
    }
    /// Prints "<id> | <content>" for every client.
    void dump() const;

  private:
    int line_no;
    ClientSet be_ids;
    std::string content;
    std::size_t key = 0;
    State state;
    int min_id = 0;
    int max_id = 0;
};

inline bool less_compare(const Line* a, const Line* b) { return *a < *b; }
