#include "backend/jobs/logins.h"

#include <algorithm>
#include <chrono>

namespace {

constexpr std::size_t maxUnderWay = 8;
// Within this time a launcher whose tasks have ended ends by itself.
constexpr auto maxFollow = std::chrono::seconds(2);

} // namespace

Logins::Logins(EventLoop& eventLoop, std::size_t count, std::optional<Clock::duration> limit,
               Owner& whose)
    : loop(eventLoop), maxTime(limit), owner(whose), logins(count) {}

void Logins::startNext() {
    while (started < logins.size() && started < done + maxUnderWay) {
        start(started);
        ++started;
    }
}

void Logins::start(std::size_t number) {
    const Command command = owner.commandOf(number);
    Login& login = logins[number];
    login.launcher = std::make_unique<Launcher>(
        loop, command.argv, command.input,
        Launcher::Handler{
            .line = [this, number](const std::string& line) { owner.onLine(number, line); },
            .ended = [this, number](const std::string& how) { onEnded(number, how); }});
    if (!maxTime) return;
    login.patience.emplace(loop);
    login.patience->after(*maxTime, [this, number] { onTimeOut(number); });
}

void Logins::onTimeOut(std::size_t number) {
    Login& login = logins[number];
    if (login.phase == DONE) return;
    login.phase = LATE;
    login.launcher->stop();
}

void Logins::onEnded(std::size_t login, const std::string& how) {
    owner.onEnded(login, logins[login].phase == LATE ? "was given up" : how);
}

void Logins::finish(std::size_t login) {
    if (std::exchange(logins[login].phase, DONE) != DONE) ++done;
}

void Logins::collect() {
    // The end of one login may start another.
    for (std::size_t i = 0; i < started; ++i)
        logins[i].launcher->collect();
}

void Logins::stop() {
    for (std::size_t i = 0; i < started; ++i) {
        Login& login = logins[i];
        if (!login.patience) login.patience.emplace(loop);
        login.patience->cancel();
        if (!finished(i)) {
            login.launcher->stop();
            continue;
        }
        login.patience->after(maxFollow, [&login] { login.launcher->stop(); });
    }
}

bool Logins::running() const {
    return std::any_of(logins.begin(), logins.end(),
                       [](const Login& each) { return each.launcher && each.launcher->running(); });
}
