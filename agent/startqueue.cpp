#include "agent/startqueue.h"

void StartQueue::ask(Starter& starter, int client) {
    waiting.emplace_back(&starter, client);
    next();
}

void StartQueue::over(Starter& starter, int client) {
    std::erase(waiting, Start{&starter, client});
    underWay.erase({&starter, client});
    next();
}

void StartQueue::forget(Starter& starter) {
    const auto isIts = [&starter](const Start& each) { return each.first == &starter; };
    std::erase_if(waiting, isIts);
    std::erase_if(underWay, isIts);
    next();
}

void StartQueue::next() {
    while (!waiting.empty() && underWay.size() < most) {
        const Start first = waiting.front();
        waiting.pop_front();
        underWay.insert(first);
        first.first->startDebugger(first.second);
    }
}
