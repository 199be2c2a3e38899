#include "common/command.h"
#include "common/reply.h"
#include "fuzz/fuzz.h"

namespace {

template <class Record>
void check(const std::string& bytes) {
    Record record;
    if (unpacks(record, bytes)) expectStable(record);
}

} // namespace

// The records without lines; the first byte says which.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    if (size == 0) return 0;
    const auto checkThis = {check<Command>, check<GroupCommand>, check<Reply>};
    checkThis.begin()[*bytes % checkThis.size()](textOf(bytes + 1, size - 1));
    return 0;
}
