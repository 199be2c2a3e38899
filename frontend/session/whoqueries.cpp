#include "frontend/session/whoqueries.h"

#include "backend/os/clock.h"

#include <algorithm>

WhoQueries::WhoQueries(EventLoop& loop, Owner& whose) : owner(whose), patience(loop) {}

void WhoQueries::want(int console, const Command& command) {
    waiting.emplace_back(console, command);
    due += owner.askIdentities();
    if (due == 0) return finish();
    patience.after(Wait::answer, [this] { finish(); });
}

void WhoQueries::forget(int console) {
    std::erase_if(waiting, [console](const auto& each) { return each.first == console; });
}

void WhoQueries::answered() {
    if (due > 0 && --due == 0) finish();
}

void WhoQueries::finish() {
    patience.cancel();
    for (const auto& [console, command] : std::exchange(waiting, {}))
        owner.onIdentitiesKnown(console, command);
}
