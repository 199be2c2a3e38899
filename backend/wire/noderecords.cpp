#include "backend/wire/noderecords.h"

#include "backend/wire/bytes.h"
#include "common/brokenconnection.h"

#include <algorithm>
#include <limits>

namespace {

constexpr int maxNumber = std::numeric_limits<int>::max();

constexpr std::string DebuggerStart::*startTexts[] = {
    &DebuggerStart::prompt,    &DebuggerStart::terminal,       &DebuggerStart::inputTerminal,
    &DebuggerStart::process,   &DebuggerStart::program,        &DebuggerStart::folder,
    &DebuggerStart::forkMark,  &DebuggerStart::clientVariable, &DebuggerStart::dialect,
    &DebuggerStart::errorMark,
};

// What a row begins with.
enum RowFlags { GOES_ON = 1, UNENDED = 2, SAME_CLIENTS = 4, ALL_FLAGS = 7 };

void put(ByteWriter& out, int value) { out.number(static_cast<std::uint64_t>(value)); }

void put(ByteWriter& out, const std::vector<StackTree::Call>& calls) {
    out.number(calls.size());
    for (const StackTree::Call& call : calls) {
        out.number(call.depth);
        out.text(call.text);
        out.set(call.clients);
        out.number(call.threads);
        out.number(call.isForeign);
    }
}

// A call is never deeper by more than one than that before it.
std::vector<StackTree::Call> callsOf(ByteReader& in) {
    std::vector<StackTree::Call> calls;
    std::size_t deepest = 0;
    for (std::size_t left = in.count(5); left > 0; --left) {
        StackTree::Call call;
        call.depth = in.number(StackTree::maxCalls);
        if (call.depth > deepest) throw BrokenConnection();
        deepest = call.depth + 1;
        call.text = in.text();
        call.clients = in.set();
        call.threads = in.number();
        call.isForeign = in.flag();
        if (call.clients.empty()) throw BrokenConnection();
        calls.push_back(std::move(call));
    }
    return calls;
}

void tellLines(ByteReader& in, Node::Listener& listener, Clock::time_point now) {
    const int work = in.number(maxNumber);
    const Clock::time_point said = now - std::chrono::milliseconds(in.number(60000));
    ClientSet clients;
    std::vector<std::string> lines; // of these, not told yet
    const auto tell = [&] {
        if (!lines.empty()) listener.said(work, clients, std::exchange(lines, {}), said);
    };
    for (std::size_t left = in.count(2); left > 0; --left) {
        const int flags = in.number(ALL_FLAGS);
        if (!(flags & SAME_CLIENTS)) {
            tell();
            clients = in.set();
            if (clients.size() > 1) listener.gathered(work, now);
        }
        if (clients.empty()) throw BrokenConnection();
        if ((flags & (GOES_ON | UNENDED)) == 0) {
            lines.emplace_back(in.text());
            continue;
        }
        tell();
        listener.saidPart(work, clients,
                          {std::string(in.text()), (flags & GOES_ON) != 0, (flags & UNENDED) == 0},
                          said);
    }
    in.end();
    tell();
}

std::vector<StackTree::Row> rowsOf(ByteReader& in) {
    std::vector<StackTree::Row> rows;
    for (std::size_t left = in.count(2); left > 0; --left) {
        std::string text(in.text());
        rows.push_back({std::move(text), in.set()});
        if (rows.back().clients.empty()) throw BrokenConnection();
    }
    return rows;
}

void put(ByteWriter& out, const std::vector<StackTree::Row>& rows) {
    out.number(rows.size());
    for (const auto& [text, clients] : rows) {
        out.text(text);
        out.set(clients);
    }
}

StackTree treeOf(ByteReader& in) {
    StackTree::Outline outline;
    outline.calls = callsOf(in);
    outline.innermost = callsOf(in);
    outline.without = rowsOf(in);
    outline.helpers = rowsOf(in);
    return StackTree(outline);
}

ByteReader reader(const AgentRecord& record, AgentRecord::Type type,
                  const ClientSet* known = nullptr) {
    if (record.type != type) throw BrokenConnection();
    return ByteReader(record.body, known);
}

} // namespace

// --- the start

AgentRecord NodeRecords::tasks(const std::vector<Task>& tasks) {
    ByteWriter out;
    out.number(tasks.size());
    for (const auto& [rank, size, pid] : tasks) {
        out.integer(rank);
        out.integer(size);
        put(out, pid);
    }
    return {AgentRecord::TASKS, out.take()};
}

std::vector<NodeRecords::Task> NodeRecords::tasksOf(const AgentRecord& record) {
    ByteReader in = reader(record, AgentRecord::TASKS);
    std::vector<Task> tasks;
    for (std::size_t left = in.count(3); left > 0; --left) {
        Task task;
        task.rank = in.integer();
        task.size = in.integer();
        task.pid = in.number(maxNumber);
        tasks.push_back(task);
    }
    in.end();
    return tasks;
}

AgentRecord NodeRecords::start(const Start& start) {
    ByteWriter out;
    const DebuggerStart& common = start.common;
    for (const auto* words : {&common.argv, &common.indexCacheWords}) {
        out.number(words->size());
        for (const std::string& word : *words)
            out.text(word);
    }
    out.number(common.environment.size());
    for (const auto& [name, value] : common.environment) {
        out.text(name);
        out.text(value);
    }
    for (const auto text : startTexts)
        out.text(common.*text);
    out.number(common.throughShells);
    out.number(start.clients.size());
    for (const auto& [client, attach] : start.clients) {
        put(out, client);
        put(out, attach);
    }
    return {AgentRecord::START, out.take()};
}

NodeRecords::Start NodeRecords::startOf(const AgentRecord& record) {
    ByteReader in = reader(record, AgentRecord::START);
    Start start;
    DebuggerStart& common = start.common;
    for (auto* words : {&common.argv, &common.indexCacheWords}) {
        for (std::size_t left = in.count(1); left > 0; --left)
            words->push_back(in.word());
    }
    for (std::size_t left = in.count(2); left > 0; --left) {
        std::string name = in.word();
        common.environment.emplace_back(std::move(name), in.word());
    }
    for (const auto text : startTexts)
        common.*text = in.word();
    common.throughShells = in.flag();
    for (std::size_t left = in.count(2); left > 0; --left) {
        const int client = in.client();
        start.clients.emplace_back(client, in.number(maxNumber));
    }
    in.end();
    if (common.argv.empty() || common.prompt.empty() || common.terminal.empty() ||
        common.inputTerminal.empty() || common.process.empty() || common.dialect.empty())
        throw BrokenConnection();
    return start;
}

AgentRecord NodeRecords::started(const Started& started) {
    ByteWriter out;
    out.set(started.clients);
    out.number(started.ended);
    out.number(started.holds);
    out.number(started.tellsErrors);
    out.text(started.text);
    return {AgentRecord::STARTED, out.take()};
}

NodeRecords::Started NodeRecords::startedOf(const AgentRecord& record, const ClientSet& known) {
    ByteReader in = reader(record, AgentRecord::STARTED, &known);
    Started started;
    started.clients = in.set();
    started.ended = in.flag();
    started.holds = in.flag();
    started.tellsErrors = in.flag();
    started.text = in.text();
    in.end();
    return started;
}

// --- to a node

AgentRecord NodeRecords::begin(const ClientSet& clients, const Work& work) {
    ByteWriter out;
    out.set(clients);
    put(out, work.number);
    out.number(work.output);
    out.number(work.withPlaces);
    out.number(work.allCalls);
    out.number(work.instant);
    return {AgentRecord::BEGIN, out.take()};
}

AgentRecord NodeRecords::type(const ClientSet& clients, const std::string& line) {
    ByteWriter out;
    out.set(clients);
    out.text(line);
    return {AgentRecord::TYPE, out.take()};
}

AgentRecord NodeRecords::interrupt(const ClientSet& clients) {
    return about(AgentRecord::INTERRUPT, clients);
}

AgentRecord NodeRecords::reply(const ClientSet& clients, const std::string& text) {
    AgentRecord record = type(clients, text);
    record.type = AgentRecord::REPLY;
    return record;
}

bool NodeRecords::carryOut(const AgentRecord& record, const ClientSet& known, Node& node,
                           Clock::time_point now) {
    ByteReader in(record.body, &known);
    switch (record.type) {
    case AgentRecord::BEGIN: {
        const ClientSet clients = in.set();
        Work work;
        work.number = in.number(maxNumber);
        work.output = static_cast<Work::Output>(in.number(Work::STACKS));
        work.withPlaces = in.flag();
        work.allCalls = in.flag();
        work.instant = in.flag();
        in.end();
        node.begin(clients, work, now);
        return true;
    }
    case AgentRecord::TYPE:
    case AgentRecord::REPLY: {
        const ClientSet clients = in.set();
        const std::string line(in.text());
        in.end();
        if (record.type == AgentRecord::TYPE)
            node.type(clients, line);
        else
            node.reply(clients, line, now);
        return true;
    }
    case AgentRecord::INTERRUPT:
        node.interrupt(clientsOf(record, known), now);
        return true;
    default:
        return false;
    }
}

// --- from a node

AgentRecord NodeRecords::lines(int work, std::chrono::milliseconds age,
                               const std::vector<Row>& rows) {
    ByteWriter out;
    put(out, work);
    put(out, static_cast<int>(std::clamp<std::int64_t>(age.count(), 0, 60000)));
    out.number(rows.size());
    const ClientSet* before = nullptr;
    for (const Row& row : rows) {
        const bool same = before && *before == row.clients;
        put(out, (row.piece.goesOn ? GOES_ON : 0) | (row.piece.ended ? 0 : UNENDED) |
                     (same ? SAME_CLIENTS : 0));
        if (!same) out.set(row.clients);
        out.text(row.piece.text);
        before = &row.clients;
    }
    return {AgentRecord::LINES, out.take()};
}

AgentRecord NodeRecords::whole(int work, const ClientSet& clients, const std::string& text) {
    ByteWriter out;
    put(out, work);
    out.set(clients);
    out.text(text);
    return {AgentRecord::WHOLE, out.take()};
}

AgentRecord NodeRecords::stacks(int work, const StackTree& tree) {
    ByteWriter out;
    put(out, work);
    const StackTree::Outline outline = tree.outline();
    put(out, outline.calls);
    put(out, outline.innermost);
    put(out, outline.without);
    put(out, outline.helpers);
    return {AgentRecord::STACKS, out.take()};
}

AgentRecord NodeRecords::answered(int work, const ClientSet& clients) {
    ByteWriter out;
    put(out, work);
    out.set(clients);
    return {AgentRecord::ANSWERED, out.take()};
}

AgentRecord NodeRecords::asks(int work, const ClientSet& clients, const std::string& question) {
    AgentRecord record = whole(work, clients, question);
    record.type = AgentRecord::ASKS;
    return record;
}

ClientSet NodeRecords::workersOf(const AgentRecord& record, const ClientSet& known) {
    ByteReader in(record.body, &known);
    in.number(maxNumber);
    return in.set();
}

bool NodeRecords::tell(const AgentRecord& record, const ClientSet& known, Node::Listener& listener,
                       Clock::time_point now) {
    ByteReader in(record.body, &known);
    switch (record.type) {
    case AgentRecord::LINES:
        tellLines(in, listener, now);
        return true;
    case AgentRecord::STACKS: {
        const int work = in.number(maxNumber);
        const StackTree tree = treeOf(in);
        in.end();
        listener.stacks(work, tree);
        return true;
    }
    case AgentRecord::ANSWERED: {
        const int work = in.number(maxNumber);
        const ClientSet clients = in.set();
        in.end();
        listener.answered(work, clients, now);
        return true;
    }
    case AgentRecord::WHOLE:
    case AgentRecord::ASKS: {
        const int work = in.number(maxNumber);
        const ClientSet clients = in.set();
        const std::string text(in.text());
        in.end();
        if (record.type == AgentRecord::ASKS && !clients.empty())
            listener.asks(work, clients, text, now);
        for (const int id : record.type == AgentRecord::WHOLE ? clients : ClientSet())
            listener.captured(work, id, text);
        return true;
    }
    default:
        return false;
    }
}

// --- both ways

AgentRecord NodeRecords::about(AgentRecord::Type type, const ClientSet& clients) {
    ByteWriter out;
    out.set(clients);
    return {type, out.take()};
}

ClientSet NodeRecords::clientsOf(const AgentRecord& record, const ClientSet& known) {
    ByteReader in(record.body, &known);
    ClientSet clients = in.set();
    in.end();
    return clients;
}

AgentRecord NodeRecords::notes(AgentRecord::Type type, const Notes& notes) {
    ByteWriter out;
    out.number(notes.size());
    for (const auto& [client, text] : notes) {
        put(out, client);
        out.text(text);
    }
    return {type, out.take()};
}

NodeRecords::Notes NodeRecords::notesOf(const AgentRecord& record, const ClientSet& known) {
    ByteReader in(record.body, &known);
    Notes notes;
    for (std::size_t left = in.count(2); left > 0; --left) {
        const int client = in.client();
        notes.emplace_back(client, in.text());
    }
    in.end();
    return notes;
}

AgentRecord NodeRecords::errors(const Errors& errors) {
    ByteWriter out;
    put(out, errors.count);
    out.set(errors.clients);
    return {AgentRecord::ERRORS, out.take()};
}

NodeRecords::Errors NodeRecords::errorsOf(const AgentRecord& record, const ClientSet& known) {
    ByteReader in = reader(record, AgentRecord::ERRORS, &known);
    Errors errors;
    errors.count = in.number(maxNumber);
    errors.clients = in.set();
    in.end();
    return errors;
}

AgentRecord NodeRecords::fork(AgentRecord::Type type, const Fork& fork) {
    ByteWriter out;
    put(out, fork.parent);
    put(out, fork.process);
    return {type, out.take()};
}

NodeRecords::Fork NodeRecords::forkOf(const AgentRecord& record, const ClientSet& known) {
    ByteReader in(record.body, &known);
    Fork fork;
    fork.parent = in.client();
    fork.process = in.number(maxNumber);
    in.end();
    return fork;
}
