#include "frontend/session/whoqueries.h"

#include "backend/os/clock.h"

#include <algorithm>

WhoQueries::WhoQueries(EventLoop& loop, std::function<int()> asks,
                       std::function<void(int console, const Command& command)> proceeds)
    : ask(std::move(asks)), proceed(std::move(proceeds)), patience(loop) {}

void WhoQueries::want(int console, const Command& command) {
    asking.emplace_back(console, command);
    due += ask();
    if (due == 0) return finish();
    patience.after(Wait::answer, [this] { finish(); });
}

void WhoQueries::forget(int console) {
    std::erase_if(asking, [console](const auto& each) { return each.first == console; });
}

void WhoQueries::answered() {
    if (due > 0 && --due == 0) finish();
}

void WhoQueries::finish() {
    patience.cancel();
    for (const auto& [console, command] : std::exchange(asking, {}))
        proceed(console, command);
}
