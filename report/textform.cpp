#include "report/textform.h"

#include "backend/folding/safetext.h"
#include "backend/os/text.h"

#include <vector>

namespace {

constexpr std::size_t indent = 2; // blanks of a call of the tree

void add(std::string& text, const ClientSet& clients, const std::string& line) {
    text += (clients.empty() ? "" : Text::list(clients) + " | ") + SafeText::of(line);
    // What tasks say may end with blanks; a line of the report does not.
    text.erase(text.find_last_not_of(' ') + 1);
    text += '\n';
}

void add(std::string& text, const std::vector<Row>& rows) {
    for (const Row& row : rows)
        add(text, row.clients, row.text);
}

void add(std::string& text, const std::vector<Transcript::Part>& parts) {
    for (const Transcript::Part& part : parts) {
        for (const std::string& line : part.lines)
            add(text, part.clients, line);
    }
}

void addSection(std::string& text, const std::string& title, const std::string& body) {
    if (!body.empty()) text += "\n== " + title + "\n" + body;
}

std::string header(const Report& report) {
    std::string text;
    const auto line = [&text](const std::string& name, const std::string& value) {
        if (value.empty()) return;
        text += name + std::string(10 - name.size(), ' ') + SafeText::of(value) + "\n";
    };
    line("command", report.command);
    line("tasks", std::to_string(report.tasks));
    line("started", report.started);
    line("looked", report.looked);
    line("written", report.written);
    line("vex", report.vex);
    line("debugger", report.debugger);
    line("launcher", report.launchedBy);
    // One library is that of all, as a rule.
    for (const Row& row : report.mpi)
        line("mpi", (report.mpi.size() > 1 ? Text::list(row.clients) + " | " : "") + row.text);
    line("system", report.system);
    return text;
}

std::string crashes(const Report& report) {
    std::string text;
    for (const Report::Crash& crash : report.crashes) {
        if (!text.empty()) text += "\n";
        add(text, crash.stacks);
    }
    return text;
}

std::string stat(const Report& report) {
    std::string text;
    add(text, report.places);
    for (const Report::Call& call : report.tree)
        add(text, call.clients, std::string(indent * call.depth, ' ') + call.text);
    add(text, report.helpers);
    return text;
}

template <class Items>
std::string listed(const Items& items) {
    std::string text;
    add(text, items);
    return text;
}

} // namespace

std::string TextForm::of(const Report& report) {
    std::string text = report.headline + "\n" + listed(report.culprits) + "\n" + header(report);
    addSection(text, "Which ranks are missing", listed(report.missing));
    addSection(text, "Where the tasks are", stat(report));
    addSection(text, "Who waits for whom", listed(report.waits));
    addSection(text, "Stacks of what went wrong", crashes(report));
    addSection(text, "What could not be found out", listed(report.notes));
    std::string launcher;
    for (const std::string& line : report.launcher)
        add(launcher, {}, line);
    addSection(text, "What the launcher said", launcher);
    addSection(text, "What the tasks said last", listed(report.output));
    addSection(text, "Who is who", listed(report.who));
    addSection(text, "Stacks of the other tasks", listed(report.stacks));
    return text;
}
