#include "common/data.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Data data;
    if (!unpacks(data, textOf(bytes, size))) return 0;
    expectStable(data);
    Data kept;
    kept.addData(&data);
    kept.addData(&data);
    kept.merge();
    const std::string merged = packed(kept);
    kept.merge();
    expect(packed(kept) == merged);
    expectStable(kept);
    kept.truncate(10);
    return 0;
}
