#include "backend/folding/statreport.h"

#include "backend/os/text.h"

#include <utility>

void StatReport::add(int client, const std::string& answer, const Driver& driver) {
    std::vector<std::string> calls;
    std::string first;
    bool any = false;
    for (std::size_t begin = 0; begin < answer.size();) {
        const std::size_t end = answer.find('\n', begin);
        const std::string line = answer.substr(begin, end - begin);
        begin = end == std::string::npos ? end : end + 1;
        const Driver::StackLine said = driver.parseStackLine(line);
        switch (said.kind) {
        case Driver::StackLine::THREAD:
            stacks.add(client, std::exchange(calls, {}));
            break;
        case Driver::StackLine::CALL:
            any = true;
            calls.push_back(nameOf(said));
            break;
        case Driver::StackLine::OTHER:
            if (first.empty()) first = line;
            break;
        }
    }
    stacks.add(client, calls);
    if (!any) stacks.addWithout(client, "no stack: " + (first.empty() ? "no process" : first));
}

// A function without a name is shown by its library.
std::string StatReport::nameOf(const Driver::StackLine& call) const {
    if (call.place.empty()) return call.function;
    if (call.function == "??") return call.function + " of " + Text::baseName(call.place);
    return places ? call.function + " at " + call.place : call.function;
}

std::vector<StackTree::RowGroup> StatReport::rows() const {
    std::vector<StackTree::RowGroup> groups = stacks.places();
    if (!innermost) {
        for (auto& group : stacks.tree())
            groups.push_back(std::move(group));
    }
    groups.insert(groups.end(), ready.begin(), ready.end());
    return groups;
}

std::string StatReport::text() {
    std::string all;
    for (const auto& group : rows()) {
        for (const auto& row : group) {
            const std::string line = Text::list(row.clients) + " | " + row.text;
            all += line + "\n";
            fed.emplace(line, row);
        }
    }
    return all;
}

const StackTree::Row* StatReport::find(const std::string& line) const {
    const auto row = fed.find(line);
    return row == fed.end() ? nullptr : &row->second;
}
