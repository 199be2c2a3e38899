#pragma once

#include "backend/os/eventloop.h"

#include <cstddef>
#include <set>
#include <string>

/// What the user's terminal shows of a session's start, on the standard error: sentences, and below
/// them, from a second on, a line that tells how far the start is. The line is rewritten in place
/// and gone when the start is over; without a terminal there are lines now and then in its stead.
/// One thread.
class StartProgress {
  public:
    struct Facts {
        std::size_t started = 0;  // debuggers
        std::size_t expected = 0; // 0: not known yet
        /// Who is waited for: hosts, or a program.
        std::set<std::string> awaited;
        /// Whether these are hosts: where there is no terminal, they have lines of their own.
        bool hosts = false;
        /// Whether it takes so long that the user is told the way out.
        bool late = false;
    };
    class Owner {
      public:
        virtual ~Owner() = default;
        virtual Facts startFacts() const = 0;
    };

    /// The owner must outlive this.
    StartProgress(EventLoop& loop, const Owner& owner);
    ~StartProgress();

    void begin();
    /// The start is over, however it went.
    void end();
    /// Puts a sentence behind "vex: " on a line of its own; also when the start is over.
    void say(const std::string& sentence);
    /// The same for lines as they stand, each with its newline.
    void print(const std::string& lines);

    /// "97,312 of 100,000 · waiting for node17", in at most so many columns.
    static std::string line(const Facts& facts, std::size_t columns, bool utf8);

  private:
    const Owner& owner;
    const bool onTerminal;
    const bool utf8;
    Timer timer;
    Clock::time_point start;
    std::string shown; // the line that stands on the terminal

    void wait();
    void show(const std::string& text);
    void list();
};
