#include "backend/folding/userstack.h"

#include "backend/os/text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <optional>
#include <string_view>
#include <utility>

namespace {

using Call = Driver::StackLine;

bool beginsWithAny(std::string_view text, const auto& beginnings) {
    return std::ranges::any_of(beginnings,
                               [text](std::string_view each) { return text.starts_with(each); });
}

bool isOneOf(std::string_view text, const auto& words) {
    return std::ranges::find(words, text) != std::end(words);
}

// Where a thread begins, before the first function of the program or of a library.
constexpr std::array<std::string_view, 10> threadStarts = {
    "start_thread",
    "clone",
    "clone3",
    "__clone",
    "__clone3",
    "_start",
    "thread_start",
    "__libc_start_main",
    "__libc_start_call_main",
    "__libc_start_main_impl",
};

// Directories of the system's libraries.
constexpr std::array<std::string_view, 6> systemDirectories = {
    "/lib/", "/lib64/", "/lib32/", "/usr/lib/", "/usr/lib64/", "/usr/lib32/",
};

// Libraries of run times and messages, wherever they are installed.
constexpr std::array<std::string_view, 35> runtimeLibraries = {
    "libmpi",     "libpmpi",   "libopen-",   "libpmi",    "libprrte",    "libevent",    "libhwloc",
    "libucp",     "libucs",    "libuct",     "libucm",    "libucc",      "libfabric",   "libpsm",
    "libibverbs", "librdmacm", "libnccl",    "libcuda",   "libshmem",    "liboshmem",   "libsma",
    "libgomp",    "libomp",    "libiomp",    "libpython", "libgfortran", "libquadmath", "libstdc++",
    "libgcc_s",   "libc.so",   "libpthread", "ld-linux",  "mca_",        "libm.so",     "libvexmpi",
};

// How the functions inside of them are called, for those that are linked into the program.
constexpr std::array<std::string_view, 16> runtimeFunctions = {
    "MPID_", "MPIDI", "MPIR_", "MPIU_", "MPIC_", "ompi_", "opal_", "orte_",
    "mca_",  "PMIx_", "ucp_",  "uct_",  "ucs_",  "gomp_", "__kmp", "__libc_",
};

// Calls of libc in which a thread may wait for long.
constexpr std::array<std::string_view, 64> waitingCalls = {
    "abort",      "raise",         "accept",        "accept4",    "clock_nanosleep", "close",
    "connect",    "epoll_pwait",   "epoll_pwait2",  "epoll_wait", "fcntl",           "fcntl64",
    "fdatasync",  "flock",         "fsync",         "futex",      "io_getevents",    "lockf",
    "mq_receive", "mq_send",       "msgrcv",        "msgsnd",     "nanosleep",       "open",
    "open64",     "pause",         "poll",          "ppoll",      "pread",           "pread64",
    "preadv",     "pselect",       "pwrite",        "pwrite64",   "pwritev",         "read",
    "readv",      "recv",          "recvfrom",      "recvmmsg",   "recvmsg",         "sched_yield",
    "select",     "sem_clockwait", "sem_timedwait", "sem_wait",   "semop",           "semtimedop",
    "send",       "sendmmsg",      "sendmsg",       "sendto",     "sigsuspend",      "sigtimedwait",
    "sigwait",    "sigwaitinfo",   "sleep",         "syscall",    "system",          "usleep",
    "wait",       "wait4",         "waitid",        "waitpid",
};

constexpr std::array<std::string_view, 2> mpiCalls = {"MPI_", "MPIX_"};
constexpr std::array<std::string_view, 4> otherMessageCalls = {"nccl", "shmem_", "GOMP_", "omp_"};

// A call that is left by a jump stands in no stack, only the function to which it has jumped: what
// libraries name those, if at all, says nothing to their users.
constexpr std::string_view unnamedMpiCall = "an MPI call", unnamedOmpCall = "an OpenMP call";
constexpr std::array<std::string_view, 2> mpiErrorFunctions = {"ompi_errhandler_invoke",
                                                               "MPIR_Err_return_comm"};
constexpr std::array<std::string_view, 3> ompLibraries = {"libgomp", "libomp", "libiomp"};

bool isUnnamedOfOmp(const Call& call) {
    return call.function == "??" && beginsWithAny(Text::baseName(call.library), ompLibraries);
}

// Calls among those above that end the program instead of waiting.
constexpr std::array<std::string_view, 4> endingCalls = {
    "abort",
    "raise",
    "pthread_kill",
    "MPI_Abort",
};

// What the system keeps in every process for itself (vdso(7)), in no file.
constexpr std::array<std::string_view, 5> kernelCalls = {
    "clock_gettime", "clock_getres", "gettimeofday", "time", "getcpu",
};

bool isInLibrary(const Call& call) {
    if (call.library.empty()) return false;
    return beginsWithAny(call.library, systemDirectories) ||
           beginsWithAny(Text::baseName(call.library), runtimeLibraries);
}

// In the program, but not of its author's, perhaps: what was linked into it has no source.
bool isWithoutSource(const Call& call) { return call.library.empty() && call.place.empty(); }

// Templates of C++ are compiled into the program that uses them.
bool isOfStandardLibrary(const Call& call) {
    return call.function.starts_with("std::") || call.function.starts_with("__gnu_cxx::");
}

// "MPI_Recv" for "mpi_recv_", "pmpi_recv__" and "mpi_recv_f08_", as compilers of Fortran write it.
std::optional<std::string> fromFortran(std::string_view name) {
    if (name.starts_with('p')) name.remove_prefix(1);
    constexpr std::string_view begin = "mpi_", modern = "_f08";
    if (!name.starts_with(begin) || !name.ends_with('_')) return std::nullopt;
    name.remove_prefix(begin.size());
    while (name.ends_with('_'))
        name.remove_suffix(1);
    for (const std::string_view end : {std::string_view("ts"), modern})
        if (name.ends_with(end) && name.find(modern) != std::string_view::npos)
            name.remove_suffix(end.size());
    if (name.empty()) return std::nullopt;
    std::string result = "MPI_" + std::string(name);
    result[begin.size()] =
        static_cast<char>(std::toupper(static_cast<unsigned char>(result[begin.size()])));
    return result;
}

// "poll" for "__GI___poll", "pthread_cond_wait" for "___pthread_cond_wait@@GLIBC_2.3.2".
std::string_view plainName(std::string_view name) {
    for (const std::string_view begin : {"__GI_", "__libc_"}) {
        while (name.starts_with('_') && !name.starts_with(begin) && name.find(begin, 1) == 1)
            name.remove_prefix(1);
        if (name.starts_with(begin)) name.remove_prefix(begin.size());
    }
    name.remove_prefix(std::min(name.size(), name.find_first_not_of('_')));
    name = name.substr(0, name.find('@'));
    if (name.starts_with("new_")) name.remove_prefix(4);
    for (const std::string_view end : {"_slow64", "_2_1", "_internal", "_implementation"})
        if (name.ends_with(end)) name.remove_suffix(end.size());
    return name == "pthread_clockjoin_ex" ? "pthread_join" : name;
}

// The name that the standard gives to a communication or waiting call; nothing for other calls.
std::optional<std::string> standardName(const Call& call) {
    if (call.isInterpreted) return std::nullopt;
    std::string_view name = call.function;
    for (const std::string_view profiled : {"PMPI_", "PMPIX_", "pnccl", "pshmem_"})
        if (name.starts_with(profiled)) name.remove_prefix(1);
    if (beginsWithAny(name, mpiCalls)) return std::string(name);
    if (!isInLibrary(call) && !isWithoutSource(call)) return std::nullopt;
    if (beginsWithAny(name, otherMessageCalls)) return std::string(name);
    if (isOneOf(name, mpiErrorFunctions)) return std::string(unnamedMpiCall);
    if (isUnnamedOfOmp(call)) return std::string(unnamedOmpCall);
    if (auto fortran = fromFortran(name)) return fortran;
    name = plainName(name);
    if (name.starts_with("pthread_") || isOneOf(name, waitingCalls)) return std::string(name);
    return std::nullopt;
}

bool belongsToProgram(const Call& call) {
    if (call.isInterpreted) return call.library.empty();
    const std::string_view name = call.function;
    if (name.starts_with('<') || name == "??" || isInLibrary(call)) return false;
    if (isWithoutSource(call) && (isOneOf(name, kernelCalls) || name.starts_with("__vdso_")))
        return false;
    return !isOneOf(name, threadStarts) && !beginsWithAny(name, runtimeFunctions) &&
           !standardName(call);
}

// Whether its source is: "f.f90:14".
bool isFortran(const Call& call) {
    static constexpr std::array<std::string_view, 9> endings = {
        ".f", ".f77", ".f90", ".f95", ".f03", ".f08", ".f18", ".for", ".ftn",
    };
    std::string file = call.place.substr(0, call.place.rfind(':'));
    file.erase(0, std::min(file.rfind('.'), file.size()));
    std::ranges::transform(file, file.begin(), [](unsigned char c) { return std::tolower(c); });
    return isOneOf(std::string_view(file), endings);
}

// "libucs" for "/usr/lib/x86_64-linux-gnu/libucs.so.0".
std::string nameOfLibrary(const std::string& path) {
    const std::string name = Text::baseName(path);
    return name.substr(0, name.find(".so"));
}

bool isOfSystem(const Call& call) {
    static constexpr std::array<std::string_view, 3> names = {"libc", "libpthread", "libstdc++"};
    return call.library.empty() || isOneOf(nameOfLibrary(call.library), names);
}

} // namespace

bool UserStack::waits(std::string_view call) {
    if (isOneOf(call, endingCalls)) return false;
    return call == unnamedOmpCall || beginsWithAny(call, mpiCalls) ||
           beginsWithAny(call, otherMessageCalls) || call.starts_with("pthread_") ||
           isOneOf(call, waitingCalls);
}

UserStack::UserStack(std::vector<Call> calls) : kept(std::move(calls)) {
    std::erase_if(kept, [](const Call& call) { return call.isInterpreter; });
    // A stripped program has no names; what ends a stack has no meaning.
    const auto begun = std::ranges::find_if(kept.rbegin(), kept.rend(), [](const Call& call) {
        return !call.library.empty() || isOneOf(call.function, threadStarts);
    });
    const auto nameless = std::find_if(kept.begin(), begun.base(), [](const Call& call) {
        return call.function == "??" && call.library.empty();
    });
    const bool isStripped = begun != kept.rend() && nameless != begun.base();
    auto innermost = std::ranges::find_if(kept, belongsToProgram);
    if (isStripped) innermost = std::min(innermost, nameless);
    helper = innermost == kept.end();
    // The library that has started the thread stands outermost.
    const auto starter = std::ranges::find_if_not(kept.rbegin(), kept.rend(), isOfSystem);
    libraryName = starter == kept.rend() ? "libc" : nameOfLibrary(starter->library);

    const auto begin = std::find_if(kept.rbegin(), kept.rend(), [](const Call& call) {
        return call.function == "main" && belongsToProgram(call);
    });
    if (begin != kept.rend()) kept.erase(begin.base(), kept.end());
    // An interpreted function that nothing of the program has called stands below no main.
    const auto outermost = std::find_if(kept.rbegin(), kept.rend(), belongsToProgram);
    if (outermost != kept.rend() && outermost->isInterpreted)
        kept.erase(outermost.base(), kept.end());
    // A program in Fortran has a main of its compiler's, which not every debugger shows.
    if (kept.size() > 1 && kept.back().function == "main" && isFortran(kept.back()))
        kept.pop_back();
    while (kept.size() > 1 && (isOneOf(kept.back().function, threadStarts) ||
                               (!helper && isUnnamedOfOmp(kept.back()))))
        kept.pop_back();

    // A function of the program that a communication call has called shows all that is between.
    std::size_t from = helper ? kept.size() : static_cast<std::size_t>(innermost - kept.begin());
    while (from-- > 0) {
        const auto name = standardName(kept[from]);
        if (!name) continue;
        kept[from].function = *name;
        kept[from].place.clear();
        if (isOneOf(*name, endingCalls) && !helper) {
            // What libraries do to end a program hides who made them do so.
            const auto caller = std::find_if_not(innermost, kept.end(), [](const Call& call) {
                return isInLibrary(call) || isOfStandardLibrary(call);
            });
            kept.erase(kept.begin() + static_cast<std::ptrdiff_t>(from) + 1,
                       caller == kept.end() ? innermost : caller);
        }
        kept.erase(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(from));
        return;
    }
}

bool UserStack::isOfProgram(const Call& call) {
    return belongsToProgram(call) && !isOfStandardLibrary(call);
}
