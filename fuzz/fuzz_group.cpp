#include "common/command.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    GroupCommand group;
    if (!unpacks(group, textOf(bytes, size))) return 0;
    expectStable(group);
    group.resetIterator();
    for (int i = 0; i < group.numOfName(); ++i)
        expect(group.names().contains(group.nextName()));
    for (int i = 0; i < group.numOfId(); ++i)
        expect(group.ids().contains(group.nextId()));
    return 0;
}
