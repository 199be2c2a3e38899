#include "backend/drivers/promptmatcher.h"
#include "backend/folding/folder.h"
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

// Three clients say the lines, one of them some later: each is told with all that it has said, in
// its order.
void fold(const std::string& text, unsigned how) {
    constexpr int clients = 3;
    Folder folder;
    folder.await({0, 1, 2});
    std::vector<std::string> said(clients), told(clients);
    const auto hear = [&](const Folder::Lines& all) {
        int last = -1;
        for (const Folder::Line& line : all.lines) {
            expect(line.number >= last && !line.clients.empty());
            last = line.number;
            for (const int id : line.clients)
                told[static_cast<std::size_t>(id)] += line.text + "\n";
        }
    };
    Clock::time_point now{};
    for (std::size_t at = 0, number = 0; at < text.size(); ++number) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        const std::string line = SafeText::line(text.substr(at, end - at));
        for (int id = 0; id < clients; ++id) {
            if ((how >> ((number + static_cast<std::size_t>(id)) % 8) & 1) != 0) continue;
            folder.add(id, line, now);
            said[static_cast<std::size_t>(id)] += line + "\n";
        }
        now += std::chrono::milliseconds(7);
        if (const auto due = folder.due(); due && *due <= now) hear(folder.takeDue(now));
        at = end + 1;
    }
    hear(folder.take());
    expect(folder.empty() && said == told);
}

} // namespace

// What a debugger prints comes out the same wherever reads cut it, does nothing to a terminal, and
// loses nothing where it is folded. The first two bytes say how it is cut and who says what.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size < 2) return 0;
    const std::string output = textOf(bytes + 2, size - 2);
    const Seen whole = see(output, {0});
    expect(see(output, {1}) == whole);
    expect(see(output, {1 + bytes[0] % 16U, 1 + bytes[0] / 16U}) == whole);
    for (const char c : SafeText::of(whole.text.substr(0, whole.text.find('\n'))))
        expect(static_cast<unsigned char>(c) >= ' ' || c == '\t');
    fold(whole.text, bytes[1]);
    return 0;
}
