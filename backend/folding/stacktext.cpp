#include "backend/folding/stacktext.h"

#include "backend/os/text.h"

#include <utility>
#include <vector>

StackTree StackText::parse(int client, const std::string& answer) const {
    StackTree stacks;
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
    return stacks;
}

// A function without a name is shown by its library.
std::string StackText::nameOf(const Driver::StackLine& call) const {
    if (call.place.empty()) return call.function;
    if (call.function == "??") return call.function + " of " + Text::baseName(call.place);
    return withPlaces ? call.function + " at " + call.place : call.function;
}
