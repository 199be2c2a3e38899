#include "console/ccommand.h"
#include "fuzz/fuzz.h"

#include <cstring>
#include <variant>

namespace {

struct Where : CommandLine::Context {
    unsigned state = 0;
    bool servesLuma() const override { return (state & 1) != 0; }
    bool isNormal() override { return (state & 2) == 0; }
    bool isInterrupted() override { return (state & 2) != 0; }
};

} // namespace

// The state, then a line as it is typed: what is sent for it, or a place in the line that is wrong.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) return 0;
    Where where;
    where.state = bytes[0];
    const std::string line = textOf(bytes + 1, size - 1).c_str();
    CommandLine commands(where);
    try {
        const Action action = commands.parse(line.c_str());
        // Nothing is sent that was not typed.
        if (const auto* send = std::get_if<Actions::Send>(&action))
            expect(line.find(send->text) != std::string::npos);
        if (const auto* group = std::get_if<Actions::Group>(&action)) expectStable(group->command);
        if (const auto* match = std::get_if<Actions::Match>(&action))
            expect(line.find(match->cascade) != std::string::npos);
    } catch (const Token& wrong) {
        expect(std::strlen(wrong.Error()) > 0 && std::strlen(wrong.Cursor()) <= line.size());
    }
    return 0;
}
