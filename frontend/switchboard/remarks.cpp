#include "frontend/switchboard/remarks.h"

#include "backend/folding/folder.h"
#include "backend/folding/safetext.h"
#include "backend/os/text.h"

#include <cstddef>
#include <utility>

namespace {

// The clients with their hosts, if these are few.
std::string listed(const ClientSet& clients, const std::map<Node*, ClientSet>& nodes) {
    constexpr std::size_t few = 4;
    std::map<std::string, ClientSet> hosts;
    for (const auto& [node, theirs] : nodes)
        hosts[node->host()].insert(theirs);
    if (hosts.size() > few)
        return Text::list(clients) + " on " + std::to_string(hosts.size()) + " hosts";
    std::string text;
    for (const auto& [host, theirs] : hosts)
        text +=
            (text.empty() ? "" : ", ") + Text::list(theirs) + (host.empty() ? "" : " on " + host);
    return text;
}

} // namespace

void Remarks::say(int console, const std::string& cmd, const ClientSet& about,
                  const std::string& text) const {
    outlet.toConsole(console,
                     Folder::record(Folder().aside(about, SafeText::of(text)), console, cmd));
}

// Says something about clients of a running request, below what they have printed.
void Remarks::remark(Request& request, const ClientSet& about, const std::string& text) const {
    requests.flush(request);
    outlet.toConsole(request.console,
                     Folder::record(request.gathered.aside(about, SafeText::of(text)),
                                    request.console, request.text));
}

void Remarks::announce(Request& where, int console, const ClientSet& about,
                       const std::string& text) const {
    outlet.toConsole(console,
                     Folder::record(where.gathered.aside(about, SafeText::of(text)), console, ""));
}

bool Remarks::tellAsking(Request& request) const {
    const ClientSet fresh = request.unnamed.intersection(request.waiting);
    if (request.console == 0 || fresh.empty()) return false;
    request.unnamed.clear();
    request.asking.insert(fresh);
    std::string question = std::exchange(request.question, {});
    const std::string easier = driver.insteadOfLines(question);
    while (question.ends_with(' '))
        question.pop_back();
    remark(request, fresh,
           "waits for an answer to '" + question + "'; give it by: send ..." +
               (easier.empty() ? "" : "; easier: interrupt, then " + easier + " with these lines"));
    return true;
}

void Remarks::tellSilent(Request& request, const ClientSet& silent,
                         const std::map<Node*, ClientSet>& nodes) const {
    remark(request, silent, "No answer yet from " + listed(silent, nodes));
}
