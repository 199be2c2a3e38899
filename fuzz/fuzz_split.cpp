#include "common/split.h"
#include "fuzz/fuzz.h"

#include <cctype>

// The separators stand before the first NUL, the text behind it.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    const std::string separators = textOf(bytes, size).c_str();
    if (separators.size() == size) return 0;
    std::string text = textOf(bytes, size).substr(separators.size() + 1);
    const auto blank = [](char c) { return std::isspace(static_cast<unsigned char>(c)) != 0; };
    const Split all(text, separators.c_str(), true);
    for (const std::string& field : all) {
        expect(!field.empty() && !blank(field.front()) && !blank(field.back()));
        expect(field.find_first_of(separators) == std::string::npos);
    }
    const Split first(text, separators.c_str(), false);
    expect(first.size() <= 2 && first.empty() == all.empty());
    expect(first.empty() || first.front() == all.front());
    expect(SplitRef(text, separators.c_str(), true) == all);
    return 0;
}
