#include "report/questions.h"

#include "backend/os/reportrules.h"
#include "common/catalog.h"
#include "common/groupnames.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

namespace {

using namespace std::chrono_literals;

constexpr int tasksASecond = 100; // more time for many: they share processors and files
constexpr auto inAHurry = 10s;    // after a signal
// Behind that, for one that heeds an interrupt.
constexpr auto heeding = 2s;
// For a task that has just stopped: its debugger may not have told so.
constexpr auto settling = 5s;

// As often a group is asked that was at work when it was asked, and not any more then.
constexpr int attempts = 3;

// The session's word, and no answer.
constexpr std::string_view silenceMark = "No answer yet from ";

} // namespace

std::vector<Row> Questions::rowsOf(const Data& data) {
    std::vector<Row> rows;
    for (const auto& [number, slot] : data.slots()) {
        for (const Line& line : slot.lines) {
            if (!line.getContent().starts_with(silenceMark))
                rows.push_back({line.clients(), std::string(line.getContent())});
        }
    }
    return rows;
}

Questions::Questions(Conversation& conversation, bool isShared, Owner& whose)
    : session(conversation),
      shared(isShared),
      owner(whose),
      group("VEX_REPORT_" + std::to_string(conversation.number())) {}

std::chrono::seconds Questions::patience(const ClientSet& asked) const {
    if (hurried) return inAHurry;
    return ReportRules::patience() + std::chrono::seconds(asked.size() / tasksASecond);
}

// Makes the group of those clients that are still there.
bool Questions::gather(const ClientSet& clients) {
    if (session.assign(group, clients)) return true;
    const ClientSet living = clients.intersection(session.members(GroupNames::all));
    return !living.empty() && session.assign(group, living);
}

// The name of a group of them; empty: they are no more.
std::string Questions::groupOf(const ClientSet& clients) {
    if (clients == all) return GroupNames::all;
    if (clients.size() == 1) return std::to_string(clients.front());
    return gather(clients) ? group : "";
}

bool Questions::command(const ClientSet& clients, const std::string& text) {
    return gather(clients) && !session.command(group, text);
}

Questions::Answer Questions::ask(const ClientSet& clients, const std::string& question) {
    for (int attempt = 1;; ++attempt) {
        ClientSet asked = clients;
        asked.erase(out);
        if (asked.empty()) return {};
        const std::size_t before = out.size();
        Answer answer = askOnce(asked, question, false);
        const bool refused = answer.error == CMD_GROUP_BUSY;
        if (refused) leaveBusy(asked, question);
        if (out.size() == before && (!refused || attempt >= attempts)) return answer;
    }
}

// One that is at work has the question refused for all.
void Questions::leaveBusy(const ClientSet& asked, const std::string& question) {
    if (!shared) {
        const ClientSet busy = asked.intersection(session.atWork());
        if (!busy.empty()) owner.onSilent(busy, question, settling);
        return giveUp(busy);
    }
    ClientSet foreign = asked;
    foreign.erase(idleOf(asked));
    if (!foreign.empty()) owner.onForeign(foreign);
    out.insert(foreign);
}

Questions::Answer Questions::askSession(const std::string& question) {
    return askOnce(all, question, true);
}

Questions::Answer Questions::askOnce(const ClientSet& clients, const std::string& question,
                                     bool ofSession) {
    const std::string name = groupOf(clients);
    if (name.empty()) return {};
    Answer answer;
    const auto begun = Clock::now();
    std::optional<int> refusal;
    while ((refusal = session.command(name, question))) {
        answer.error = *refusal;
        if (shared || *refusal != CMD_GROUP_BUSY || Clock::now() > begun + settling) break;
        std::this_thread::sleep_for(50ms);
    }
    if (!refusal) answer = await(clients, question, ofSession);
    if (shared && name == group) session.forget(group, clients);
    return answer;
}

Questions::Answer Questions::await(const ClientSet& clients, const std::string& question,
                                   bool ofSession) {
    Answer answer;
    const auto begun = Clock::now();
    for (bool told = false, over = false; !answer.complete;) {
        const auto time = patience(clients);
        Conversation::Heard heard = session.hear(begun + time);
        switch (heard.kind) {
        case Conversation::Heard::READY:
            // It may be that of tasks which were let run before. No client works at what the
            // session answers, which comes in one piece.
            over = ofSession ? told : clients.intersection(session.atWork()).empty();
            break;
        case Conversation::Heard::TEXT:
            if (heard.data.getConsoleCmd() != question) {
                owner.onText(heard.data);
                break;
            }
            told = true;
            for (Row& row : rowsOf(heard.data))
                answer.rows.push_back(std::move(row));
            break;
        case Conversation::Heard::SIGNAL:
            owner.onSignal(heard.signal);
            break;
        case Conversation::Heard::FORKED:
            owner.onForked(heard.client);
            break;
        case Conversation::Heard::TIME:
            break;
        }
        // Their answers may stand behind a READY that was not theirs.
        answer.complete = over && !session.hasMore();
        // Tasks may talk all the while.
        if (answer.complete || Clock::now() < begun + time) continue;
        const ClientSet silent = clients.intersection(session.atWork());
        answer.complete = silent.empty();
        if (!answer.complete) owner.onSilent(silent, question, time);
        giveUp(silent);
        return answer;
    }
    return answer;
}

// They may still heed an interrupt, and then let their tasks go in good order.
void Questions::giveUp(const ClientSet& silent) {
    out.insert(silent);
    if (silent.empty() || !gather(silent)) return;
    session.interrupt(group);
    const auto until = Clock::now() + heeding;
    while (!silent.intersection(session.atWork()).empty()) {
        const Conversation::Heard heard = session.hear(until);
        if (heard.kind == Conversation::Heard::SIGNAL) owner.onSignal(heard.signal);
        if (heard.kind == Conversation::Heard::FORKED) owner.onForked(heard.client);
        if (heard.kind == Conversation::Heard::TIME) return;
    }
}

ClientSet Questions::idleOf(const ClientSet& clients) {
    if (clients.empty() || askOnce(clients, "echo", false).error != CMD_GROUP_BUSY) return clients;
    if (clients.size() == 1) return {};
    ClientSet halves[2];
    for (const int id : clients)
        halves[halves[0].size() < clients.size() / 2 ? 0 : 1].insert(id);
    ClientSet idle = idleOf(halves[0]);
    idle.insert(idleOf(halves[1]));
    return idle;
}
