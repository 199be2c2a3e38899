#pragma once

#include "backend/drivers/driver.h"
#include "backend/os/clock.h"

#include <optional>
#include <string_view>

/// One line typed at a debugger, until the prompt that answers the line and not an interrupt. Does
/// no I/O: it is told what happened, and says what that means.
class Exchange {
  public:
    /// A line is typed.
    void begin();
    /// Whether a line was typed and is not answered yet.
    bool open() const { return state != IDLE; }
    /// Whether the debugger has prompted, but perhaps only for an interrupt.
    bool settling() const { return state == SETTLING; }

    /// Whether the debugger is to get SIGINT now: a second one too soon would meet the prompt and
    /// disturb the next line.
    bool interrupt(Clock::time_point now);

    /// What a line of output is.
    enum Line {
        /// Part of the answer.
        ANSWER,
        /// The echo of an interrupt that came after the answer.
        TOO_LATE,
        /// Part of an answer that begins only now: the interrupt came before it, and is to be sent
        /// again.
        TOO_EARLY,
    };
    Line line(std::string_view text, const Driver& driver, Clock::time_point now);

    /// What a prompt is.
    enum Prompt {
        /// Nobody waited for it.
        STRAY,
        /// Another may follow, until settledAt.
        UNSURE,
        /// The end of the exchange.
        ANSWERED,
    };
    Prompt prompt(Clock::time_point now);
    Clock::time_point settledAt() const { return settled; }
    /// No other prompt came: the exchange is over.
    void end();

  private:
    enum State { IDLE, TYPED, SETTLING };
    State state = IDLE;
    int signalled = 0; // SIGINTs of which nothing shows yet that they arrived
    std::optional<Clock::time_point> signalledAt;
    int lines = 0;
    bool onlyQuit = false; // the answer so far is the echo of an interrupt
    Clock::time_point settled;
};
