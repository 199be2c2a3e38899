#pragma once

#include "backend/drivers/driver.h"
#include "backend/os/clock.h"

#include <optional>
#include <string_view>

/// One line typed at a driver, until the prompt that is the answer to it and to no interrupt.
/// Does no I/O: it is told what happened, and says what that means.
class Exchange {
  public:
    /// A line is typed.
    void begin();
    /// It was typed and is not answered yet.
    bool open() const { return state != IDLE; }
    /// The debugger has prompted, but it may be that this was for an interrupt.
    bool settling() const { return state == SETTLING; }

    /// Whether the debugger is to get SIGINT now: a second one too soon would meet the prompt and
    /// disturb the next line.
    bool interrupt(Clock::time_point now);

    /// What a line of output is: part of the answer; the echo of an interrupt that came too late;
    /// or part of an answer that begins only now, the interrupt having come too early: it is to be
    /// sent again.
    enum Line { ANSWER, TOO_LATE, TOO_EARLY };
    Line line(std::string_view text, const Driver& driver, Clock::time_point now);

    /// What a prompt is: none that was waited for; one behind which another may follow, until
    /// settledAt; the end of the turn.
    enum Prompt { STRAY, UNSURE, ANSWERED };
    Prompt prompt(Clock::time_point now);
    Clock::time_point settledAt() const { return settled; }
    /// No other prompt came: the turn is over.
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
