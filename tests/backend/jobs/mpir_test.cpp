#include "backend/jobs/mpir.h"
#include "tests/support/tempdir.h"

#include <elf.h>

extern "C" {
// This process as its own launcher.
struct Proc {
    const char* host;
    const char* executable;
    int pid;
};
Proc procs[] = {{"node1", "/bin/a", 11}, {"node2", nullptr, 12}};
[[gnu::used]] Proc* MPIR_proctable = procs;
[[gnu::used]] int MPIR_proctable_size = 2;
}

namespace {

using Entries = std::vector<Mpir::Entry>;

TEST(Mpir, ReadsTheTableOfALivingProcess) {
    const Entries both{{"node1", "/bin/a", 11}, {"node2", "", 12}};
    EXPECT_EQ(Mpir::tableOf(::getpid()), both);
    for (int size : {0, -1, 1 << 30}) {
        MPIR_proctable_size = size;
        EXPECT_EQ(Mpir::tableOf(::getpid()), Entries{}) << size;
    }
    MPIR_proctable_size = 2;
    MPIR_proctable = nullptr;
    EXPECT_EQ(Mpir::tableOf(::getpid()), Entries{});
    MPIR_proctable = procs;
}

TEST(Mpir, StopsAtTheEdgesOfMemory) {
    // A page at address 4096, where nothing else can be read.
    std::string page(4096, 'x');
    const auto memory = [&page](std::uint64_t address, void* into, std::size_t length) {
        if (address < 4096 || address + length > 8192) return false;
        std::memcpy(into, page.data() + address - 4096, length);
        return true;
    };
    const auto read = [&](std::size_t at, std::uint64_t host, int count) {
        const std::uint64_t entry[] = {host, 0, 7};
        std::memcpy(page.data() + at, entry, sizeof entry);
        return Mpir::read(memory, 4096 + at, count);
    };
    // A text that runs over the edge, one that is nowhere, one that ends; an entry that does not.
    EXPECT_EQ(read(0, 4096 + 24, 1), (Entries{{"", "", 7}}));
    EXPECT_EQ(read(0, 1 << 20, 1), (Entries{{"", "", 7}}));
    page[4010] = '\0';
    EXPECT_EQ(read(4072, 4096 + 4000, 1), (Entries{{std::string(10, 'x'), "", 7}}));
    EXPECT_EQ(read(4072, 4096 + 4000, 2), Entries{});
}

TEST(Mpir, TakesNoHarmFromABrokenFile) {
    const std::vector<std::string> names{"MPIR_proctable"};
    std::ifstream self("/proc/self/exe", std::ios::binary);
    std::string image{std::istreambuf_iterator<char>(self), {}};
    const TempDir folder;
    ASSERT_EQ(Mpir::symbols(folder.write("whole", image), names).size(), 1u);
    for (std::size_t length : {0, 3, 63, 64, 65, 4096})
        EXPECT_TRUE(Mpir::symbols(folder.write("cut", image.substr(0, length)), names).empty());
    for (std::size_t field : {offsetof(Elf64_Ehdr, e_shoff), offsetof(Elf64_Ehdr, e_phoff)}) {
        std::string broken = image;
        std::memset(broken.data() + field, 0xff, 8);
        EXPECT_TRUE(Mpir::symbols(folder.write("broken", broken), names).empty());
    }
    EXPECT_TRUE(Mpir::symbols(folder.path(), names).empty());
    EXPECT_TRUE(Mpir::symbols("/dev/zero", names).empty());
}

} // namespace
