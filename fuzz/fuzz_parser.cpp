#include "common/data.h"
#include "display/parser.h"
#include "fuzz/fuzz.h"

#include <cstdio>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    return std::freopen("/dev/null", "w", stdout) ? 0 : 1;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Data received;
    if (!unpacks(received, textOf(bytes, size))) return 0;
    // No front end sends equal variants at one place: keys that fit the texts, and a merge.
    Data data;
    for (auto& [number, slot] : received.slots()) {
        for (Line& line : slot.lines) {
            line.generateKey();
            data.addLine(&line);
        }
    }
    data.merge();
    data.setBounds(received.getMinId(), received.getMaxId(), received.numOfBE());
    for (const Parser::Mode mode : {Parser::EXPANDED, Parser::COLLAPSED, Parser::AUTO}) {
        Parser().dump(&data, mode, nullptr);
        Parser().dump(&data, mode, "'[0-9]' | match a");
    }
    return 0;
}
