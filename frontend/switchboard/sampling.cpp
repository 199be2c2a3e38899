#include "frontend/switchboard/sampling.h"

#include <utility>

Sampling::Sampling(const Options& wanted, const Driver& kind) : options(wanted), driver(kind) {
    if (options.pause.count() == 0) options.pause = usualPause;
}

Work Sampling::of(Work work) const {
    work.output = step == ASKING ? Work::WHOLE : step == LOOKING ? Work::STACKS : Work::LINES;
    return work;
}

void Sampling::standing(int client, const std::string& text) {
    if (step != ASKING || !awaited.contains(client)) return;
    const std::string line = text.substr(0, text.find_first_of("\r\n"));
    if (line == driver.mayRun())
        runners.insert(client);
    else
        found.still[line.empty() ? "its debugger has no Python" : line].insert(client);
}

void Sampling::answered(const ClientSet& clients, const Work& work, Hands& hands,
                        Clock::time_point now) {
    // Nobody has stopped them.
    if (step == RUNNING) runners.erase(clients);
    awaited.erase(clients);
    goOn(work, hands, now);
}

void Sampling::gone(int client, const Work& work, Hands& hands, Clock::time_point now) {
    for (ClientSet* const each : {&members, &awaited, &runners, &ran, &found.moved, &found.never})
        each->erase(client);
    goOn(work, hands, now);
}

void Sampling::cancel(Hands& hands, Clock::time_point now) {
    cancelled = true;
    if (step == RUNNING) stop(hands, now);
}

bool Sampling::tick(Hands& hands, Clock::time_point now) {
    if (!deadline || *deadline > now) return false;
    const bool first = step == RUNNING;
    stop(hands, now);
    return first;
}

void Sampling::goOn(const Work& work, Hands& hands, Clock::time_point now) {
    if (!awaited.empty() || step == OVER) return;
    deadline.reset();
    // Of an interrupted look not much is known.
    if (step == LOOKING && !(cancelled && found.samples > 0)) compare();
    const bool looked = step == LOOKING;
    const bool enough = looked && (found.samples >= options.samples || runners.empty());
    if (members.empty() || (cancelled && found.samples > 0) || enough)
        step = OVER;
    else if (looked)
        run(work, hands, now);
    else
        look(work, hands, now);
}

void Sampling::look(const Work& work, Hands& hands, Clock::time_point now) {
    step = LOOKING;
    current = StackTree();
    awaited = members;
    hands.take(awaited, of(work), driver.backtraceCommand(StackTree::maxCalls), now);
}

void Sampling::run(const Work& work, Hands& hands, Clock::time_point now) {
    step = RUNNING;
    awaited = ran = runners;
    deadline = now + options.pause;
    hands.take(awaited, of(work), driver.resumeCommand(), now);
}

// A debugger may miss an interrupt that comes before its task runs: it gets others.
void Sampling::stop(Hands& hands, Clock::time_point now) {
    step = STOPPING;
    deadline = now + Wait::interrupt;
    hands.stop(awaited, now);
}

void Sampling::compare() {
    if (found.samples++ > 0) {
        found.moved.insert(ran.intersection(latest.differing(current)));
        found.never.insert(ran);
        found.never.erase(found.moved);
    }
    latest = std::exchange(current, {});
}

void Sampling::tell(StatReport& report) const {
    report.add(latest);
    StatReport::Moves told = found;
    told.apart = options.pause;
    report.setMoves(std::move(told));
}
