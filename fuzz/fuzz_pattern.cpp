#include "display/pattern.h"
#include "fuzz/fuzz.h"

#include <algorithm>

// A cascade, a newline, and the text to filter.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string input = textOf(bytes, size).c_str();
    const std::string cascade = input.substr(0, input.find('\n'));
    // What the system's expressions take for nested counts and back references is not ours to test.
    if (cascade.size() == input.size() || cascade.find_first_of("{\\") != std::string::npos)
        return 0;
    // Nor what it takes for repetitions of repetitions: each doubles its memory.
    if (std::count_if(cascade.begin(), cascade.end(),
                      [](char c) { return c == '+' || c == '*' || c == '?'; }) > 6)
        return 0;
    const std::string text = input.substr(cascade.size() + 1);
    Pattern pattern;
    std::string all;
    pattern.filter(text.c_str(), all);
    expect(all == text);
    if (pattern.compare(cascade.c_str()) != 0) return 0;
    // What passed once passes again, and is no more than there was.
    std::string once, twice;
    const bool some = pattern.filter(text.c_str(), once);
    expect(once.size() <= text.size() && (some || once.empty()));
    pattern.filter(once.c_str(), twice);
    expect(once == twice);
    return 0;
}
