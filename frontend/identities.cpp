#include "frontend/identities.h"

#include "frontend/clock.h"

#include <algorithm>

Identities::Identities(asio::io_context& loop, std::function<int()> asks,
                       std::function<void(int console, const Command& command)> proceeds)
    : ask(std::move(asks)), proceed(std::move(proceeds)), patience(loop) {}

void Identities::want(int console, const Command& command) {
    asking.emplace_back(console, command);
    due += ask();
    if (due == 0) return finish();
    patience.expires_after(Wait::answer);
    patience.async_wait([this](const asio::error_code& fault) {
        if (!fault) finish();
    });
}

void Identities::forget(int console) {
    std::erase_if(asking, [console](const auto& each) { return each.first == console; });
}

void Identities::answered() {
    if (due > 0 && --due == 0) finish();
}

void Identities::finish() {
    patience.cancel();
    for (const auto& [console, command] : std::exchange(asking, {}))
        proceed(console, command);
}
