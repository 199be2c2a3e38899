#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <string>
#include <termios.h>

/// The terminal on standard input: its settings, its keys, one key at a time.
///
/// One process-wide object, `term`, exists from static initialisation to exit; it puts the terminal
/// into non-canonical mode and gives it back as found, also when a signal stops or ends the process
/// (signals that are ignored or handled otherwise at start stay as they are). When standard input
/// is no terminal, or the program is in the background, the settings are left alone.
class Term {
  public:
// A key's END may hide the lexer's: they meet where both headers are included.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
    /// Keys beyond the bytes 0 to 255.
    enum Key {
        BACKSP = 300,
        INSERT = 301,
        DELETE = 302,
        UP = 303,
        DOWN = 304,
        RIGHT = 305,
        LEFT = 306,
        HOME = 307,
        END = 308,
        PAGEUP = 309,
        PAGEDN = 310
    };
#pragma GCC diagnostic pop
    /// What getKey returns when there is no key: the input has ended, or the reader was woken.
    enum { CLOSED = -1, WOKEN = -2 };

    Term();
    ~Term();
    Term(const Term&) = delete;
    Term& operator=(const Term&) = delete;

    /// Whether the output is to hold neither colours nor other control sequences: the variable
    /// VEX_COLOUR says "never".
    static bool isPlain();

    void setCanonical(bool on);
    void setEcho(bool on);
    void setWraparound(bool on);
    /// Fills the capabilities from the terminal description that infocmp prints.
    void parseTermInfo();
    /// Takes one line of a terminal description: "name=value,".
    void parseCapability(const char* text);
    static char translateBackslash(char c);
    static char translateCaret(char c);
    /// Keys are those of an xterm, whatever the description says.
    void useXTerm();
    void setupKeymap();
    /// Blocks until one key has been read: a byte's value, a Key, 0 for an unknown escape sequence,
    /// CLOSED or WOKEN.
    int getKey();
    /// The same on bytes from elsewhere; next returns a byte, CLOSED or WOKEN.
    int getKey(const std::function<int()>& next) const;

    /// getKey returns WOKEN when this descriptor is readable; -1 for none. Not owned.
    void setWakeFd(int fd) { wakeFd = fd; }
    bool isTerminal() const { return terminal; }
    /// Whether the input is CLOSED by a failure, not by its end.
    bool hasFailed() const { return failed; }

    /// Restores the settings found at start; async-signal-safe.
    void restore() const;
    /// Makes the settings that this program wants again; async-signal-safe.
    void resume();

  private:
    termios oldSettings{};
    std::map<std::string, std::string> termcap;
    std::map<std::string, int> keymap;
    bool terminal = false;
    bool failed = false;
    int wakeFd = -1;
    // The settings that this program wants, for the time after it was stopped or in the background.
    // A signal handler reads them: one of the two is complete at any moment.
    termios wanted[2]{};
    std::atomic<int> current{0};
    // False while the program has been in the background from its start: what the terminal has then
    // are the settings of the foreground program.
    std::atomic<bool> held{false};
    static_assert(std::atomic<int>::is_always_lock_free);

    void guardSignals() const;
    int readByte();
    /// The settings to change: the terminal's, or what is wanted when that is not ours just now.
    bool settings(termios& now) const;
    void apply(const termios& now);
};

extern Term term;
