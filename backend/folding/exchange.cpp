#include "backend/folding/exchange.h"

void Exchange::begin() {
    *this = Exchange();
    state = TYPED;
}

bool Exchange::interrupt(Clock::time_point now) {
    if (state != TYPED || (signalledAt && now - *signalledAt < Wait::again)) return false;
    ++signalled;
    signalledAt = now;
    return true;
}

Exchange::Line Exchange::line(std::string_view text, const Driver& driver, Clock::time_point now) {
    Line kind = ANSWER;
    if (state == SETTLING) {
        if (text == driver.interruptEcho()) return TOO_LATE;
        // The debugger dropped the interrupt and began the command after it.
        state = TYPED;
        signalled = 1;
        signalledAt = now;
        kind = TOO_EARLY;
    } else if (signalled > 0 && driver.showsInterrupt(text)) {
        --signalled;
    }
    onlyQuit = text == driver.interruptEcho() && lines == 0;
    ++lines;
    return kind;
}

Exchange::Prompt Exchange::prompt(Clock::time_point now) {
    switch (state) {
    case TYPED:
        if (signalled > 0 || onlyQuit) {
            // The command may have ended just before the signal came: the debugger then answers
            // with one more prompt, which must not pass for the next command's. Or the command
            // begins only now.
            state = SETTLING;
            settled = now + Wait::settle;
            return UNSURE;
        }
        break;
    case SETTLING:
        // Each interrupt that came too late has a prompt of its own.
        if (--signalled > 0) return UNSURE;
        break;
    default:
        return STRAY;
    }
    end();
    return ANSWERED;
}

void Exchange::end() {
    state = IDLE;
    signalled = 0;
}
