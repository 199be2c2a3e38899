#include "console/cstatemachine.h"

#include <algorithm>
#include <cstdio>
#include <memory>

StateMachine* StateMachine::getInstance() {
    static StateMachine* const instance = std::make_unique<StateMachine>().release();
    return instance;
}

// Applies a step to the pair of states until it was the only change; the step returns false to
// leave everything as it is.
template <class Step>
bool StateMachine::change(Step step) {
    std::uint32_t word = states.load();
    Pair pair{};
    do {
        pair = unpack(word);
        if (pair.state == TOQUIT || !step(pair)) return false;
    } while (!states.compare_exchange_weak(word, pack(pair)));
    if (pair.state == TOQUIT) quitting.ring();
    changed.ring();
    return true;
}

bool StateMachine::next(Pair& pair, EVENT event) {
    switch (event) {
    case COMMON_CMD_EVENT:
        pair.state = RUNNING;
        return true;
    case SPECIAL_CMD_EVENT:
        pair = {TEMP, pair.state};
        return true;
    case INTSTATUS_CMD_EVENT:
        pair = {INTTEMP, pair.state};
        return true;
    case EXEC_OVER_EVENT:
        pair.state = NORMAL;
        return true;
    case GROUP_REPLY_EVENT:
        pair.state = pair.old_state;
        return true;
    case ACTIVE_QUIT_EVENT:
    case PASSIVE_QUIT_EVENT:
        pair.state = TOQUIT;
        return true;
    }
    return false;
}

void StateMachine::parseConsole(EVENT event) {
    if (event < COMMON_CMD_EVENT || event > PASSIVE_QUIT_EVENT) {
        std::puts("StateMachine: unexpected event");
        return;
    }
    change([event](Pair& pair) { return next(pair, event); });
}

bool StateMachine::parseConsole(EVENT event, STATE from) {
    return change([=](Pair& pair) { return pair.state == from && next(pair, event); });
}

void StateMachine::setSaved(STATE state) {
    change([state](Pair& pair) {
        pair.old_state = state;
        return true;
    });
}

void StateMachine::finishAndRequest() {
    change([](Pair& pair) {
        pair = {TEMP, NORMAL};
        return true;
    });
}

void StateMachine::reset() {
    states.store(pack({NORMAL, NORMAL}));
    quitting.drain();
    changed.ring();
}

void StateMachine::setState(STATE state) {
    change([state](Pair& pair) {
        pair.state = state;
        return true;
    });
}

bool StateMachine::setState(STATE state, std::initializer_list<STATE> from) {
    return change([=](Pair& pair) {
        if (std::find(from.begin(), from.end(), pair.state) == from.end()) return false;
        pair.state = state;
        return true;
    });
}

bool StateMachine::isBusy() const {
    const STATE state = getState();
    return state == RUNNING || state == TEMP || state == INTTEMP;
}
