#include "console/cline.h"

#include "console/term.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

namespace {

constexpr char wordDelimiters[] = " \t\n(){}*&,;:";

bool isDelimiter(char c) { return std::strchr(wordDelimiters, c) != nullptr; }

constexpr int ctrl(char letter) { return letter - '@'; }
constexpr int tab = 9;
constexpr int newline = 10;

} // namespace

namespace Readline {

Line::Line(int bytes, int historyLines, MatchFunc matchFunc)
    : maxLength(bytes),
      buffer(std::make_unique<char[]>(static_cast<std::size_t>(bytes))),
      history(historyLines),
      match(matchFunc) {}

void Line::start() {
    cursor = length = 0;
    buffer[0] = '\0';
    history.addLine("");
    history.moveToBottom();
}

const char* Line::read() {
    start();
    // Whoever had the terminal in the meantime may have left it otherwise.
    term.setCanonical(false);
    term.setEcho(false);
    bool ended = false;
    int key = 0;
    while (!ended) {
        key = term.getKey();
        // The last line of a script may lack its newline, but not a line that could not be read
        // further. A terminal that goes away took back whatever was being typed.
        if (key == Term::CLOSED && !term.isTerminal() && !term.hasFailed() && length > 0)
            key = newline;
        if (key < 0) break;
        ended = handleKey(key);
        flushEcho();
    }
    if (!ended) {
        closed = key == Term::CLOSED;
        history.moveToBottom();
        history.deleteLine();
        term.setEcho(true);
        return nullptr;
    }
    echo += '\n';
    flushEcho();
    term.setEcho(true);
    finish();
    return buffer.get();
}

void Line::finish() {
    if (isEmpty()) history.deleteLine();
}

bool Line::handleKey(int key) {
    switch (key) {
    case ctrl('A'):
    case Term::HOME:
        moveToBeginning();
        break;
    case ctrl('B'):
    case Term::LEFT:
        moveLeft(1);
        break;
    case ctrl('D'):
    case Term::DELETE:
        remove(1);
        break;
    case ctrl('E'):
    case Term::END:
        moveToEnd();
        break;
    case ctrl('F'):
    case Term::RIGHT:
        moveRight(1);
        break;
    case tab:
        if (match) autoComplete();
        break;
    case newline:
        history.moveToBottom();
        history.putLine(buffer.get());
        break;
    case ctrl('K'):
        killToEnd();
        break;
    case ctrl('N'):
    case Term::DOWN:
        moveDown();
        break;
    case ctrl('P'):
    case Term::UP:
        moveUp();
        break;
    case ctrl('R'):
        search();
        break;
    case ctrl('U'):
        displayLine(history.getLine());
        break;
    case Term::BACKSP:
        backSpace(1);
        break;
    case Term::INSERT:
        toggleInsert();
        break;
    default:
        if (key > 0 && key <= 255 && !std::iscntrl(key)) {
            const char c = static_cast<char>(key);
            if (isInsert())
                insert(&c, 1);
            else
                overwrite(&c, 1);
        }
    }
    if (key != tab) Complete.count = 0;
    if (key != ctrl('R')) Search.count = 0;
    return key == newline;
}

std::string Line::takeEcho() {
    std::string taken;
    taken.swap(echo);
    return taken;
}

void Line::flushEcho() {
    if (echo.empty()) return;
    std::fwrite(echo.data(), 1, echo.size(), stdout);
    std::fflush(stdout);
    echo.clear();
}

void Line::insert(const char* s, int n) {
    if (n >= maxLength - length) return;
    const std::size_t tail = static_cast<std::size_t>(length - cursor);
    char* at = buffer.get() + cursor;
    echo.append(s, static_cast<std::size_t>(n)).append(at, tail).append(tail, '\b');
    std::memmove(at + n, at, tail + 1);
    std::memcpy(at, s, static_cast<std::size_t>(n));
    cursor += n;
    length += n;
}

void Line::overwrite(const char* s, int n) {
    for (; n > 0; --n, ++s) {
        if (cursor < length) {
            echo += *s;
            buffer[static_cast<std::size_t>(cursor++)] = *s;
        } else {
            insert(s, 1);
        }
    }
}

void Line::remove(int n) {
    if (cursor >= length || n < 1) return;
    char* at = buffer.get() + cursor;
    const std::size_t tail = static_cast<std::size_t>(length - cursor - n);
    echo.append(at + n, tail).append(static_cast<std::size_t>(n), ' ');
    echo.append(static_cast<std::size_t>(length - cursor), '\b');
    std::memmove(at, at + n, tail + 1);
    length -= n;
}

void Line::backSpace(int n) {
    if (cursor < 1 || n < 1) return;
    moveLeft(n);
    remove(n);
}

void Line::killToEnd() { remove(length - cursor); }

void Line::moveLeft(int n) {
    for (; cursor > 0 && n > 0; --n, --cursor)
        echo += '\b';
}

void Line::moveRight(int n) {
    for (; cursor < length && n > 0; --n)
        echo += buffer[static_cast<std::size_t>(cursor++)];
}

void Line::moveToBeginning() { moveLeft(cursor); }

void Line::moveToEnd() { moveRight(length - cursor); }

void Line::clear() {
    moveToBeginning();
    killToEnd();
}

void Line::displayLine(const std::string& s) {
    clear();
    length = std::min(static_cast<int>(s.size()), maxLength - 1);
    std::memcpy(buffer.get(), s.data(), static_cast<std::size_t>(length));
    buffer[static_cast<std::size_t>(length)] = '\0';
    echo.append(buffer.get(), static_cast<std::size_t>(length));
    cursor = length;
}

bool Line::isEmpty() const {
    return std::all_of(buffer.get(), buffer.get() + length,
                       [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; });
}

// Edits of a recalled line stay in the history, and what is typed on the bottom line is not lost.
void Line::storeEdit() {
    if (!isEmpty()) history.putLine(buffer.get());
}

void Line::moveUp() {
    storeEdit();
    if (history.isAtTop()) return;
    history.upLine();
    displayLine(history.getLine());
}

void Line::moveDown() {
    storeEdit();
    if (history.isAtBottom()) return;
    history.downLine();
    displayLine(history.getLine());
}

void Line::search() {
    if (Search.count == 0) {
        if (isEmpty()) return;
        history.putLine(buffer.get());
        Search.key = buffer.get();
    }
    if (history.search(Search.key, Search.count))
        displayLine(history.getLine());
    else
        displayLine(Search.key);
    ++Search.count;
}

void Line::recall(const std::string& s) {
    if (s.size() < static_cast<std::size_t>(maxLength)) history.addLine(s);
}

void Line::autoComplete() {
    const auto at = [this](int i) { return buffer[static_cast<std::size_t>(i)]; };
    if (cursor < length && !isDelimiter(at(cursor))) return;
    if (cursor == 0 || isDelimiter(at(cursor - 1))) return;
    if (Complete.count == 0) {
        Complete.start = cursor;
        while (Complete.start > 0 && !isDelimiter(at(Complete.start - 1)))
            --Complete.start;
        Complete.prefix.assign(buffer.get() + Complete.start, buffer.get() + cursor);
    }
    std::string word = match(Complete.prefix, Complete.count);
    if (word.empty()) {
        word = Complete.prefix;
        Complete.count = 0;
    } else {
        ++Complete.count;
    }
    backSpace(cursor - Complete.start);
    insert(word.data(), static_cast<int>(word.size()));
}

} // namespace Readline
