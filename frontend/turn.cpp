#include "frontend/turn.h"

void Turn::begin() {
    *this = Turn();
    state = TYPED;
}

bool Turn::interrupt(Clock::time_point now) {
    if (state != TYPED || (signalledAt && now - *signalledAt < Wait::again)) return false;
    ++signalled;
    signalledAt = now;
    return true;
}

Turn::Line Turn::line(std::string_view text, const Debugger& debugger, Clock::time_point now) {
    Line kind = ANSWER;
    if (state == SETTLING) {
        if (text == debugger.interruptEcho()) return TOO_LATE;
        // The debugger dropped the interrupt and has taken up the command after it.
        state = TYPED;
        signalled = 1;
        signalledAt = now;
        kind = TOO_EARLY;
    } else if (signalled > 0 && debugger.showsInterrupt(text)) {
        --signalled;
    }
    onlyQuit = text == debugger.interruptEcho() && lines == 0;
    ++lines;
    return kind;
}

Turn::Prompt Turn::prompt(Clock::time_point now) {
    switch (state) {
    case TYPED:
        if (signalled > 0 || onlyQuit) {
            // The command may have ended just before the signal came: the debugger then answers
            // with one more prompt, which must not pass for the next command's. Or it begins only
            // now.
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

void Turn::end() {
    state = IDLE;
    signalled = 0;
}
