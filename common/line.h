#pragma once

#include "common/clientset.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

/// The 64-bit key of a text: h = h * 5 + byte from 0, modulo 2^64, bytes taken as unsigned, up to
/// its first NUL.
std::size_t hashStr(std::string_view text);

/// One line of client output, together with the clients that printed exactly this text at this line
/// number.
///
/// A record may hold millions, so a line takes one block of exactly its text besides the object. A
/// value type; texts are shorter than 2^32 bytes.
class Line {
  public:
    /// How far the line is from the leader of its position.
    enum State : int { EQUAL = 0, SIMILAR = 1, DIFFERENT = 2 };

    /// An empty line at a line number, counted from 0.
    Line(int lineNo, State lineState) : line_no(lineNo), state(lineState) {}
    Line(const Line& other);
    Line(Line&&) noexcept = default;
    Line& operator=(const Line& other);
    Line& operator=(Line&&) noexcept = default;
    ~Line() = default;

    /// Adds a client. Both bounds start at 0 and one call moves only one of them, so the smallest
    /// id stays 0 as long as no id is negative; the order of lines rests on that.
    void addBE(int id) { addBEs(id, id); }
    /// Adds first, first + 1, ..., last, one after the other; requires first <= last.
    void addBEs(int first, int last);
    void addBEs(const ClientSet& ids);
    /// See ClientSet; what it takes are added clients.
    template <class IdAt>
    std::size_t appendToBits(std::size_t number, IdAt idAt) {
        const std::size_t taken = be_ids.appendToBits(number, idAt);
        if (taken > 0) raise(idAt(0), idAt(taken - 1));
        return taken;
    }
    /// Adds every client of the other line, by the same rule.
    void addLine(const Line* other) { addBEs(other->be_ids); }
    void clearBE() { be_ids.clear(); }

    void setContent(std::string_view text);
    std::string_view getContent() const { return {content.get(), length}; }
    void generateKey() { key = hashStr(getContent()); }
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
    ClientSet be_ids;
    std::unique_ptr<char[]> content;
    std::size_t key = 0;
    std::uint32_t length = 0; // of content, bytes
    int line_no;
    State state;
    int min_id = 0;
    int max_id = 0;

    void raise(int first, int last);
};

inline bool less_compare(const Line* a, const Line* b) { return *a < *b; }
