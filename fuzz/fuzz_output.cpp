#include "backend/drivers/promptmatcher.h"
#include "backend/folding/linecutter.h"
#include "backend/folding/safetext.h"
#include "fuzz/fuzz.h"

#include <vector>

namespace {

struct Seen {
    std::string text;                         // lines, each with its newline, and the rest
    std::vector<std::pair<char, bool>> marks; // and whether a line was open there
    bool operator==(const Seen&) const = default;
};

// What is seen of an output that comes in pieces of these sizes in turn, 0 for all that is left.
Seen see(std::string_view output, std::vector<std::size_t> sizes) {
    PromptMatcher matcher("\1abac\n");
    LineCutter cutter;
    Seen seen;
    const auto cut = [&](const std::string& text) {
        for (const LineCutter::Piece& each : cutter.feed(text, {}))
            seen.text += each.text + (each.ended ? "\n" : "");
        expect(cutter.tail().size() <= 256);
    };
    for (std::size_t turn = 0; !output.empty(); ++turn) {
        const std::size_t want = sizes[turn % sizes.size()];
        const std::string_view chunk = output.substr(0, want == 0 ? output.size() : want);
        for (const auto& [text, mark] : matcher.feed(chunk)) {
            cut(text);
            if (mark == PromptMatcher::NONE) continue;
            seen.marks.emplace_back(mark, cutter.since().has_value());
            if (const auto rest = cutter.takeRest()) seen.text += rest->text;
        }
        output.remove_prefix(chunk.size());
    }
    cut(matcher.rest());
    if (const auto rest = cutter.takeRest()) seen.text += rest->text;
    return seen;
}

} // namespace

// What a debugger prints comes out the same wherever reads cut it, and does nothing to a terminal.
// The first byte says how it is cut.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) return 0;
    const std::string output = textOf(bytes + 1, size - 1);
    const Seen whole = see(output, {0});
    expect(see(output, {1}) == whole);
    expect(see(output, {1 + bytes[0] % 16U, 1 + bytes[0] / 16U}) == whole);
    for (const char c : SafeText::of(whole.text.substr(0, whole.text.find('\n'))))
        expect(static_cast<unsigned char>(c) >= ' ' || c == '\t');
    return 0;
}
