#include "common/command.h"
#include "fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Command command;
    if (unpacks(command, textOf(bytes, size))) expectStable(command);
    return 0;
}
