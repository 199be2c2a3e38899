#pragma once

#include "console/history.h"

#include <memory>
#include <string>

namespace Readline {

/// Gives the next completion of a prefix; state 0 starts a new cycle. Empty when there is none
/// left.
using MatchFunc = std::string (*)(std::string prefix, int state);

/// The line editor: a fixed-size buffer edited in place. Every operation echoes its effect with
/// characters, blanks and backspaces only, so that the screen equals the buffer. For the input
/// thread only. No program calls dumpHistory.
class Line {
  public:
    /// A buffer of maxLength bytes (its NUL included), a history of at most historyLines lines, and
    /// the completion function (null for none).
    Line(int maxLength, int historyLines, MatchFunc match);

    /// The key loop: reads keys up to a newline. The text lives in the buffer until the next call.
    /// Null when the input has ended or the reader was woken; isClosed tells which.
    const char* read();
    bool isClosed() const { return closed; }
    /// Whether the text is blank; when read gave null, what it had read until then.
    bool isEmpty() const;

    /// The steps of read, for keys from elsewhere.
    void start();
    /// Acts on one key; true when it ended the line.
    bool handleKey(int key);
    void finish();
    const char* text() const { return buffer.get(); }
    int getCursor() const { return cursor; }
    int getLength() const { return length; }
    /// What has been echoed since the last call.
    std::string takeEcho();

    void insert(const char* s, int n);
    void overwrite(const char* s, int n);
    void remove(int n);
    void backSpace(int n);
    void killToEnd();
    void moveLeft(int n);
    void moveRight(int n);
    void moveToBeginning();
    void moveToEnd();
    void clear();
    void displayLine(const std::string& s);
    bool isInsert() const { return mode; }
    void toggleInsert() { mode = !mode; }

    void moveUp();
    void moveDown();
    void search();
    void dumpHistory() const { history.dump(); }
    /// Adds an earlier session's line; a line that does not fit the buffer is left out.
    void recall(const std::string& s);

    void autoComplete();

  private:
    int maxLength;
    std::unique_ptr<char[]> buffer;
    int cursor = 0;
    int length = 0;
    bool mode = true;
    struct {
        int count = 0;
        int start = 0;
        std::string prefix;
    } Complete;
    struct {
        int count = 0;
        std::string key;
    } Search;
    History history;
    MatchFunc match;

    std::string echo;
    bool closed = false;

    void storeEdit();
    void flushEcho();
};

} // namespace Readline
