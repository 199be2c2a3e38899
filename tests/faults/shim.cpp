// Preloaded into the programs of a session (LD_PRELOAD): fails one call, or cuts and interrupts
// them all, as the Board says that VEX_FAULTS names. Counts from main on: a program that has no
// memory before it never gets there. Never installed.

#include "tests/faults/board.h"

#include <algorithm>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <linux/magic.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/statfs.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

// NOLINTBEGIN(bugprone-reserved-identifier): the C library has reserved them for itself.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

Board* board = nullptr;
int depth = 0;
const Board::Process* self = nullptr; // the role of this process; null: none of a session's
std::atomic<int> calls[Board::kinds.size()];
thread_local bool inside = false; // the shim itself calls

int (*realMain)(int, char**, char**);

void findRole() {
    const auto found = std::ranges::find_if(Board::processes, [](const Board::Process& each) {
        return each.program == program_invocation_short_name && each.depth == depth;
    });
    self = found == Board::processes.end() ? nullptr : &*found;
    std::ranges::fill(calls, 0);
}

bool isIn(Board::Mode mode) { return self && board->mode == mode; }

// Where the program is, for a person, in a file: many a process has no standard error.
void trace() {
    if (!board->traces) return;
    inside = true;
    const int fd = ::open(std::getenv(Board::variable), O_WRONLY | O_APPEND | O_CLOEXEC);
    void* frames[64];
    ::backtrace_symbols_fd(frames, ::backtrace(frames, 64), fd);
    (void)!::write(fd, "\n", 1);
    ::close(fd);
    inside = false;
}

void onCrash(int number) {
    board->aborted = true;
    trace();
    std::signal(number, SIG_DFL);
    ::raise(number);
}

int instead(int argc, char** argv, char** environment) {
    const char* path = std::getenv(Board::variable);
    const int fd = path ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
    void* at = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (fd != -1) ::close(fd);
    if (at != MAP_FAILED) {
        board = static_cast<Board*>(at);
        findRole();
        for (const int number : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE})
            if (self) std::signal(number, onCrash);
    }
    return realMain(argc, argv, environment);
}

// A signal interrupts nothing but what waits.
bool interrupts(int fd, int flags = 0) {
    static std::atomic<unsigned> random = 1;
    struct stat status {};
    if (!isIn(Board::INTERRUPT) || (flags & MSG_DONTWAIT) != 0 ||
        (fd != -1 && ((::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 || ::fstat(fd, &status) == -1 ||
                      S_ISREG(status.st_mode))) ||
        ((random = random * 1103515245 + 12345) >> 16) % 2 == 0)
        return false;
    errno = EINTR;
    return true;
}

// Whether the call of this kind that is about to be made fails; sets errno then.
bool fails(std::size_t kind) {
    if (!self || inside) return false;
    const auto role = static_cast<std::size_t>(self - Board::processes.data());
    const int number = ++calls[kind];
    std::atomic<int>& most = board->calls[role][kind];
    if (most < number) most = number;
    if (!isIn(Board::FAIL) || board->fault != Fault{role, kind, number} ||
        board->reached.exchange(true))
        return false;
    trace();
    errno = Board::errors[kind];
    return true;
}

// How much of what a call may transfer it transfers: records of sockets, files of
// /proc and descriptors that count come whole or not at all.
std::size_t cut(int fd, std::size_t size) {
    struct stat status {};
    struct statfs system {};
    int type = 0;
    socklen_t length = sizeof type;
    const bool whole =
        !isIn(Board::CUT) || size < 2 || ::fstat(fd, &status) == -1 ||
        (status.st_mode & S_IFMT) == 0 || ::fstatfs(fd, &system) == -1 ||
        system.f_type == PROC_SUPER_MAGIC ||
        (S_ISSOCK(status.st_mode) &&
         (::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == -1 || type != SOCK_STREAM));
    return whole ? size : 1;
}

// The message, its first byte alone when it is cut.
struct Cut {
    iovec one{};
    msghdr message;
    Cut(int fd, const msghdr* whole) : message(*whole) {
        if (whole->msg_iovlen == 0 || cut(fd, 2) == 2) return;
        one = {whole->msg_iov[0].iov_base, whole->msg_iov[0].iov_len == 0 ? 0UL : 1UL};
        message.msg_iov = &one;
        message.msg_iovlen = 1;
    }
    msghdr* get() { return &message; }
};

template <typename Result, typename... Arguments>
Result resultOf(Result (*)(Arguments...));

} // namespace

// The C library's function of that name, which ours replaces.
#define REAL(name)                                                                                 \
    static const auto real = reinterpret_cast<decltype(&::name)>(::dlsym(RTLD_NEXT, #name))
// Replaces a function by the same that may fail, as a call of a kind; "..." interrupts it.
#define WRAP(name, kind, parameters, arguments, ...)                                               \
    extern "C" decltype(resultOf(::name)) name parameters {                                        \
        REAL(name);                                                                                \
        if (fails(Board::kindOf(#kind)) __VA_OPT__(|| (__VA_ARGS__))) return -1;                   \
        return real arguments;                                                                     \
    }

WRAP(read, read, (int fd, void* to, size_t n), (fd, to, cut(fd, n)), interrupts(fd))
WRAP(write, write, (int fd, const void* from, size_t n), (fd, from, cut(fd, n)), interrupts(fd))
WRAP(send, send, (int fd, const void* from, size_t n, int flags), (fd, from, cut(fd, n), flags),
     interrupts(fd, flags))
WRAP(recv, recv, (int fd, void* to, size_t n, int flags), (fd, to, cut(fd, n), flags),
     interrupts(fd, flags))
WRAP(sendmsg, sendmsg, (int fd, const msghdr* what, int flags), (fd, Cut(fd, what).get(), flags),
     interrupts(fd, flags))
WRAP(poll, poll, (pollfd * what, nfds_t n, int ms), (what, n, ms), ms != 0 && interrupts(-1))
WRAP(epoll_ctl, epoll_ctl, (int queue, int what, int fd, epoll_event* at), (queue, what, fd, at))
WRAP(epoll_wait, epoll_wait, (int queue, epoll_event* events, int n, int ms),
     (queue, events, n, ms), ms != 0 && interrupts(-1))
WRAP(pipe, pipe, (int* ends), (ends))
WRAP(pipe2, pipe, (int* ends, int flags), (ends, flags))
WRAP(socketpair, pipe, (int family, int type, int how, int* ends), (family, type, how, ends))
WRAP(eventfd, pipe, (unsigned value, int flags), (value, flags))
WRAP(signalfd, pipe, (int fd, const sigset_t* heard, int flags), (fd, heard, flags))
WRAP(timerfd_create, pipe, (clockid_t clock, int flags), (clock, flags))
WRAP(epoll_create1, pipe, (int flags), (flags))
WRAP(posix_openpt, pty, (int flags), (flags))
WRAP(grantpt, pty, (int fd), (fd))
WRAP(unlockpt, pty, (int fd), (fd))
WRAP(ptsname_r, pty, (int fd, char* to, size_t n), (fd, to, n))
WRAP(socket, socket, (int family, int type, int protocol), (family, type, protocol))
WRAP(connect, connect, (int fd, const sockaddr* to, socklen_t n), (fd, to, n))
WRAP(accept4, accept, (int fd, sockaddr* from, socklen_t* n, int flags), (fd, from, n, flags),
     interrupts(fd))
WRAP(accept, accept, (int fd, sockaddr* from, socklen_t* n), (fd, from, n), interrupts(fd))
WRAP(mkostemp, open, (char* path, int flags), (path, flags))

extern "C" {

int open(const char* path, int flags, ...) {
    REAL(open);
    va_list more;
    va_start(more, flags);
    const auto mode = va_arg(more, mode_t);
    va_end(more);
    return fails(Board::kindOf("open")) ? -1 : real(path, flags, mode);
}

FILE* fopen(const char* path, const char* mode) {
    REAL(fopen);
    return fails(Board::kindOf("open")) ? nullptr : real(path, mode);
}
FILE* fopen64(const char*, const char*) __attribute__((alias("fopen")));

ssize_t recvmsg(int fd, msghdr* message, int flags) {
    REAL(recvmsg);
    if (fails(Board::kindOf("recvmsg")) || interrupts(fd, flags)) return -1;
    Cut some(fd, message);
    const ssize_t got = real(fd, some.get(), flags);
    message->msg_controllen = some.message.msg_controllen;
    message->msg_namelen = some.message.msg_namelen;
    message->msg_flags = some.message.msg_flags;
    return got;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* how, void* (*what)(void*), void* with) {
    REAL(pthread_create);
    return fails(Board::kindOf("thread")) ? errno : real(thread, how, what, with);
}

pid_t fork() {
    REAL(fork);
    const pid_t child = fails(Board::kindOf("fork")) ? -1 : real();
    if (child == 0 && board) {
        ++depth;
        findRole();
    }
    return child;
}

void* __libc_malloc(size_t n);
void* __libc_calloc(size_t count, size_t n);
void* __libc_realloc(void* old, size_t n);
void* __libc_memalign(size_t at, size_t n);
constexpr std::size_t memory = Board::kindOf("malloc");

void* malloc(size_t n) { return fails(memory) ? nullptr : __libc_malloc(n); }
void* calloc(size_t count, size_t n) { return fails(memory) ? nullptr : __libc_calloc(count, n); }
void* realloc(void* old, size_t n) { return fails(memory) ? nullptr : __libc_realloc(old, n); }
void* aligned_alloc(size_t at, size_t n) {
    return fails(memory) ? nullptr : __libc_memalign(at, n);
}

int bind(int fd, const sockaddr* to, socklen_t size) {
    REAL(bind);
    const int result = real(fd, to, size);
    const char* path = reinterpret_cast<const sockaddr_un*>(to)->sun_path;
    if (self && result == 0 && to->sa_family == AF_UNIX && path[0] == '/' &&
        std::strstr(path, ".vexsock.")) {
        std::snprintf(board->socketFile, sizeof board->socketFile, "%s", path);
        board->socketBirth = birthOf(path);
    }
    return result;
}

// NOLINTNEXTLINE(bugprone-reserved-identifier): the same.
int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(),
                      void (*fini)(), void (*loaderFini)(), void* stack) {
    REAL(__libc_start_main);
    realMain = main;
    return real(instead, argc, argv, init, fini, loaderFini, stack);
}
}
