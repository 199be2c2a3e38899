#include "mpitrace/library.h"

#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <link.h>

namespace {

template <class... Arguments>
int call(const char* name, Arguments... arguments) {
    using Function = int (*)(Arguments...);
    const auto function = reinterpret_cast<Function>(Library::next(name));
    return function ? function(arguments...) : -1;
}

struct Search {
    const char* name;
    void* found;
};

// An interpreter's module has loaded MPI for itself alone.
int lookInto(dl_phdr_info* info, std::size_t /*size*/, void* data) {
    auto* const search = static_cast<Search*>(data);
    const char* const file = std::strrchr(info->dlpi_name, '/');
    if (!file || std::strncmp(file, "/libmpi", 7) != 0) return 0;
    void* const opened = ::dlopen(info->dlpi_name, RTLD_LAZY | RTLD_NOLOAD);
    if (!opened) return 0;
    search->found = ::dlsym(opened, search->name);
    ::dlclose(opened);
    return search->found ? 1 : 0;
}

// A program may have a copy of a library's variable, which then counts for all.
void* variable(const char* name) {
    void* const found = ::dlsym(RTLD_DEFAULT, name);
    return found ? found : Library::next(name);
}

} // namespace

void* Library::next(const char* name) {
    if (void* const found = ::dlsym(RTLD_NEXT, name)) return found;
    Search search{name, nullptr};
    ::dl_iterate_phdr(lookInto, &search);
    return search.found;
}

void Library::find() {
    if (family != NONE || !next("PMPI_Init")) return;
    if (void* const comm = variable("ompi_mpi_comm_world")) {
        family = POINTERS;
        world = reinterpret_cast<Word>(comm);
        noComm = reinterpret_cast<Word>(variable("ompi_mpi_comm_null"));
        anySource = -1;
        nobody = -2;
    } else {
        family = NUMBERS;
        world = 0x44000000;
        noComm = 0x04000000;
        anySource = -2;
        nobody = -1;
    }
}

int Library::rank() const {
    int rank = -1;
    call("PMPI_Comm_rank", world, &rank);
    return rank;
}

int Library::size() const { return sizeOf(world); }

bool Library::threaded() const {
    int level = 0;
    call("PMPI_Query_thread", &level);
    return level == 3; // MPI_THREAD_MULTIPLE
}

int Library::sizeOf(Word comm) const {
    int between = 0, size = 0;
    call("PMPI_Comm_test_inter", comm, &between);
    call(between != 0 ? "PMPI_Comm_remote_size" : "PMPI_Comm_size", comm, &size);
    return size;
}

// Nothing here waits for others.
bool Library::ranksOf(Word comm, int count, int* ranks) const {
    Word all = 0, some = 0; // groups; a handle of four bytes fills the first half
    int between = 0;
    call("PMPI_Comm_test_inter", comm, &between);
    if (call("PMPI_Comm_group", world, &all) != 0) return false;
    bool done = false;
    if (call(between != 0 ? "PMPI_Comm_remote_group" : "PMPI_Comm_group", comm, &some) == 0) {
        auto* const theirs =
            static_cast<int*>(std::malloc(static_cast<std::size_t>(count) * sizeof(int)));
        for (int i = 0; theirs && i < count; ++i)
            theirs[i] = i;
        done = theirs && call("PMPI_Group_translate_ranks", handleAt(reinterpret_cast<Word>(&some)),
                              count, theirs, handleAt(reinterpret_cast<Word>(&all)), ranks) == 0;
        std::free(theirs);
        call("PMPI_Group_free", &some);
    }
    call("PMPI_Group_free", &all);
    return done;
}

Word Library::handleAt(Word address) const {
    if (family == POINTERS) return *reinterpret_cast<const Word*>(address);
    return *reinterpret_cast<const std::uint32_t*>(address);
}

Word Library::commOf(int fortran) const {
    if (family == NUMBERS) return static_cast<std::uint32_t>(fortran);
    if (fortran == 0) return world;
    using Function = Word (*)(int);
    static const auto convert = reinterpret_cast<Function>(next("PMPI_Comm_f2c"));
    return convert ? convert(fortran) : noComm;
}
