#include "backend/folding/localnode.h"

#include "backend/folding/safetext.h"
#include "backend/folding/stacktext.h"

#include <algorithm>
#include <set>

namespace {

// Bytes that are kept of one client's answer that goes to a program or is read here.
constexpr std::size_t maxCaptured = 64 * 1024 * 1024;

// Whether it is nothing but the end of a line whose text was taken before.
bool endsOnly(const LineCutter::Piece& piece) {
    return piece.goesOn && piece.text.find_first_not_of('\r') == std::string::npos;
}

} // namespace

void LocalNode::Worker::capture(const LineCutter::Piece& piece) {
    if (captured.size() >= maxCaptured) return;
    captured += piece.text;
    if (piece.ended) captured += '\n';
}

// --- what clients are to do

void LocalNode::begin(const ClientSet& clients, const Work& work, Clock::time_point now) {
    for (const int id : clients) {
        Worker& worker = workers[id];
        // What the client said before is no part of the answer.
        takeRest(id, worker, now);
        worker.work = work;
        worker.captured.clear();
        worker.asked = worker.silent = false;
    }
}

void LocalNode::type(const ClientSet& clients, const std::string& line) {
    for (const int id : clients) {
        workers[id].exchange.begin();
        workers[id].task.typed(line, driver);
        outlet.toClient(id, line);
    }
}

void LocalNode::interrupt(const ClientSet& clients, Clock::time_point now) {
    for (const int id : clients) {
        if (workers[id].exchange.interrupt(now)) outlet.interrupt(id);
    }
}

ClientSet LocalNode::reply(const ClientSet& clients, const std::string& text,
                           Clock::time_point now) {
    ClientSet asking;
    for (const int id : clients) {
        Worker& worker = workers[id];
        if (!worker.asks(driver)) continue;
        asking.insert(id);
        takeRest(id, worker, now);
        worker.asked = worker.silent = false;
        outlet.toClient(id, text);
    }
    return asking;
}

// --- what clients say

void LocalNode::output(int id, std::string_view text, Clock::time_point now) {
    Worker& worker = workers[id];
    // It was only slow, or has asked something else before.
    if (!text.empty()) worker.asked = worker.silent = false;
    std::vector<std::string> lines;
    for (LineCutter::Piece& piece : worker.cutter.feed(text, now)) {
        // A program's terminal that is not raw ends lines so.
        if (piece.ended && piece.text.ends_with('\r')) piece.text.pop_back();
        if (!endsOnly(piece)) {
            const auto kind = worker.exchange.line(piece.text, driver, now);
            if (kind == Exchange::TOO_LATE) continue;
            if (kind == Exchange::TOO_EARLY) outlet.interrupt(id);
        }
        hear(id, worker, std::move(piece), lines, now);
    }
    if (!lines.empty()) listener.said(worker.work.number, {id}, std::move(lines), now);
    if (!worker.cutter.since()) return;
    unfinished.insert(id);
    awaitHalf(worker);
}

// Gathers whole lines, and tells parts of lines at once.
void LocalNode::hear(int id, Worker& worker, LineCutter::Piece&& piece,
                     std::vector<std::string>& lines, Clock::time_point now) {
    if (worker.captures()) return worker.capture(piece);
    if (endsOnly(piece)) return;
    piece.text = driver.shown(std::move(piece.text));
    // Behind a return it stands in the place of what was shown, and does not continue it.
    if (piece.text.find('\r') < piece.text.find_last_not_of('\r')) piece.goesOn = false;
    piece.text = SafeText::line(std::move(piece.text));
    if (piece.ended && !piece.goesOn) {
        lines.push_back(std::move(piece.text));
        return;
    }
    if (!lines.empty()) listener.said(worker.work.number, {id}, std::exchange(lines, {}), now);
    listener.saidPart(worker.work.number, {id}, piece, now);
}

// What is left of the unfinished line is all of it.
void LocalNode::takeRest(int id, Worker& worker, Clock::time_point now) {
    auto piece = worker.cutter.takeRest();
    if (!piece) return;
    piece->ended = true;
    std::vector<std::string> lines;
    hear(id, worker, std::move(*piece), lines, now);
    if (!lines.empty()) listener.said(worker.work.number, {id}, std::move(lines), now);
}

void LocalNode::prompted(int id, Clock::time_point now) {
    Worker& worker = workers[id];
    if (!worker.exchange.open()) return;
    // Behind its first prompt a debugger prints only what an interrupt makes it say.
    const bool settled = worker.exchange.settling();
    if (settled)
        worker.cutter.takeRest();
    else
        takeRest(id, worker, now);
    worker.silent = false;
    worker.task.answered();
    // The answer ends here, though the exchange may go on.
    if (worker.exchange.prompt(now) == Exchange::ANSWERED)
        answer(id, worker, now);
    else if (!settled)
        settling.emplace_back(worker.exchange.settledAt(), id);
}

void LocalNode::answer(int id, Worker& worker, Clock::time_point now) {
    const Work work = worker.work;
    const std::string text = std::exchange(worker.captured, {});
    if (work.output == Work::WHOLE)
        listener.captured(work.number, id, text);
    else if (work.output == Work::STACKS)
        listener.stacks(work.number,
                        StackText{driver, work.withPlaces, work.allCalls}.parse(id, text));
    listener.answered(work.number, {id}, now);
}

void LocalNode::gone(int id, Clock::time_point now) {
    const auto at = workers.find(id);
    if (at == workers.end()) return;
    takeRest(id, at->second, now);
    unfinished.erase(id);
    workers.erase(at);
}

// --- time

Clock::time_point LocalNode::halfUntil(const Worker& worker) const {
    return worker.task.shows(worker.cutter, driver);
}

void LocalNode::awaitHalf(const Worker& worker) {
    const Clock::time_point until = halfUntil(worker);
    halfDue = halfDue ? std::min(*halfDue, until) : until;
}

void LocalNode::lookAtHalves(Clock::time_point now) {
    halfDue.reset();
    std::map<int, ClientSet> asking; // by their work
    std::set<int> younger;           // work of clients that have just begun to ask
    ClientSet left;
    for (const int id : unfinished) {
        Worker& worker = workers[id];
        if (worker.cutter.since() && halfUntil(worker) > now) {
            left.insert(id);
            awaitHalf(worker);
            if (worker.asks(driver) && !worker.asked) younger.insert(worker.work.number);
            continue;
        }
        // Time cuts no line that is captured.
        if (worker.cutter.since()) worker.silent = !worker.task.runs();
        if (worker.cutter.since() && !worker.captures()) {
            std::vector<std::string> none;
            if (auto piece = worker.cutter.takePartial())
                hear(id, worker, std::move(*piece), none, now);
        }
        if (worker.asks(driver) && !worker.asked) asking[worker.work.number].insert(id);
    }
    for (const auto& [work, clients] : asking) {
        // They are waited for, so that all are told together.
        if (younger.contains(work)) {
            left.insert(clients);
            continue;
        }
        for (const int id : clients)
            workers[id].asked = true;
        listener.asks(work, clients, SafeText::line(workers[clients.front()].cutter.tail()), now);
    }
    unfinished = std::move(left);
}

std::optional<Clock::time_point> LocalNode::deadline() const {
    if (settling.empty() || (halfDue && *halfDue < settling.front().first)) return halfDue;
    return settling.front().first;
}

void LocalNode::tick(Clock::time_point now) {
    while (!settling.empty() && settling.front().first <= now) {
        const auto [until, id] = settling.front();
        settling.pop_front();
        const auto at = workers.find(id);
        if (at == workers.end()) continue;
        Exchange& exchange = at->second.exchange;
        if (!exchange.settling() || exchange.settledAt() != until) continue;
        exchange.end();
        answer(id, at->second, now);
    }
    if (halfDue && *halfDue <= now) lookAtHalves(now);
}
