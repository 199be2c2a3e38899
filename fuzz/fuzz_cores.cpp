#include "backend/jobs/corefile.h"
#include "common/descriptor.h"
#include "fuzz/fuzz.h"

#include <sys/mman.h>
#include <unistd.h>

// Core files: headers, notes, auxiliary vector and environment, as a task or somebody else left
// them.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    static const Descriptor file(::memfd_create("core", MFD_CLOEXEC));
    static const std::string path = "/proc/self/fd/" + std::to_string(file.get());
    expect(::ftruncate(file.get(), 0) == 0 &&
           ::pwrite(file.get(), bytes, size, 0) == static_cast<ssize_t>(size));
    if (const auto core = CoreFile::open(path)) {
        core->process();
        expect(core->rank() >= -1);
    }
    return 0;
}
