#include "backend/folding/stacktext.h"

#include "backend/folding/userstack.h"
#include "backend/os/text.h"

#include <cstddef>
#include <map>
#include <utility>

struct StackText::Thread {
    bool isMain = true;
    std::vector<Driver::StackLine> calls;
};

StackTree StackText::parse(int client, const std::string& answer) const {
    StackTree stacks;
    std::map<std::string, int> helpers; // threads, by their libraries
    std::string first;
    bool any = false;
    for (Thread& thread : threads(answer, first)) {
        if (thread.calls.empty()) continue;
        any = true;
        if (!allCalls) {
            const UserStack stack(std::move(thread.calls));
            if (stack.isHelper() && !thread.isMain) {
                ++helpers[stack.library()];
                continue;
            }
            thread.calls = stack.calls();
        }
        std::vector<StackTree::Frame> frames;
        for (const Driver::StackLine& call : thread.calls)
            frames.push_back({nameOf(call), !UserStack::isOfProgram(call)});
        stacks.add(client, frames);
    }
    std::string counts;
    for (const auto& [library, count] : helpers)
        counts += (counts.empty() ? "" : ", ") + library + " " + std::to_string(count);
    if (!counts.empty()) stacks.addHelpers(client, counts);
    if (!any) stacks.addWithout(client, "no stack: " + (first.empty() ? "no process" : first));
    return stacks;
}

// The stacks that the answer tells, and its first line that tells none.
std::vector<StackText::Thread> StackText::threads(const std::string& answer,
                                                  std::string& first) const {
    std::vector<Thread> found(1);
    for (std::size_t begin = 0; begin < answer.size();) {
        const std::size_t end = answer.find('\n', begin);
        const std::string line = answer.substr(begin, end - begin);
        begin = end == std::string::npos ? end : end + 1;
        Driver::StackLine said = driver.parseStackLine(line);
        switch (said.kind) {
        case Driver::StackLine::THREAD:
            // What stands before the first one is older.
            if (found.size() == 1) first.clear();
            found.push_back({said.isMain, {}});
            break;
        case Driver::StackLine::CALL:
            found.back().calls.push_back(std::move(said));
            break;
        case Driver::StackLine::OTHER:
            if (first.empty()) first = line;
            break;
        }
    }
    return found;
}

// A function without a name is shown by its library.
std::string StackText::nameOf(const Driver::StackLine& call) const {
    if (call.place.empty()) return call.function;
    if (call.function == "??") return call.function + " of " + Text::baseName(call.place);
    return withPlaces ? call.function + " at " + call.place : call.function;
}
