#include "common/reply.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Reply reply;
    if (unpacks(reply, textOf(bytes, size))) expectStable(reply);
    return 0;
}
