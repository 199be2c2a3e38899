#pragma once

#include <string>
#include <vector>

/// The lines typed in this process, oldest first, with a current position. While a line is being
/// edited it is the bottom entry. For the input thread only. No program calls dump and numOfLine.
class History {
  public:
    explicit History(int capacity) : maxLines(static_cast<std::size_t>(capacity)) {}

    /// Appends at the bottom; the oldest line makes room when the list is full. The position keeps
    /// its index.
    void addLine(const std::string& text);
    void moveToBottom() { lineNum = lines.size() - 1; }
    void upLine();
    void downLine();
    bool isAtTop() const { return lineNum == 0; }
    bool isAtBottom() const { return lineNum + 1 == lines.size(); }
    const std::string& getLine() const;
    void putLine(const std::string& text);
    /// Removes the line at the position.
    void deleteLine();
    /// Walks up from the position, round past the top, to the next line that contains the key; the
    /// line at the position is the last candidate. False, and no move, when there is none. The
    /// count of searches in a row changes nothing.
    bool search(const std::string& key, int count);
    void dump() const;
    int numOfLine() const { return static_cast<int>(lines.size()); }

  private:
    std::vector<std::string> lines;
    std::size_t maxLines;
    std::size_t lineNum = 0;
};
