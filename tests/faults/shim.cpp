// Preloaded into the programs of a session (LD_PRELOAD): fails one call, or cuts and interrupts
// them all, as the Board says that VEX_FAULTS names. Counts from main on: a program that has no
// memory before it never gets there. Never installed.

#include "tests/faults/board.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <execinfo.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <poll.h>
#include <pthread.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/mman.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/timerfd.h>
#include <sys/un.h>
#include <unistd.h>

extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* old, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

Board* board = nullptr;
int depth = 0;
int role = -1; // of this process; -1: none of a session's
std::atomic<int> calls[Board::kinds];
thread_local bool inside = false; // the shim itself calls

constexpr std::array<int, Board::kinds> faultOf{
    EIO,    ENOSPC, ENOBUFS, ECONNRESET, ENOBUFS, ECONNRESET,   EMFILE, ENOMEM, ENOSPC,
    ENOMEM, EAGAIN, EMFILE,  ENOSPC,     EMFILE,  ECONNREFUSED, EMFILE, EAGAIN, ENOMEM};

int (*realMain)(int, char**, char**);

void findRole() {
    role = -1;
    for (int i = 0; i < Board::roles; ++i) {
        if (std::strcmp(program_invocation_short_name, Board::processes[i].program) == 0 &&
            Board::processes[i].depth == depth)
            role = i;
    }
    for (auto& each : calls)
        each = 0;
}

// Where the program is, for a person, in a file: many a process has no standard error.
void trace() {
    const char* path = std::getenv(Board::traceVariable);
    if (!path) return;
    inside = true;
    const int fd = ::open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    void* frames[64];
    ::backtrace_symbols_fd(frames, ::backtrace(frames, 64), fd);
    (void)!::write(fd, "\n", 1);
    ::close(fd);
    inside = false;
}

void onAbort() {
    if (role == -1) return;
    board->aborted = true;
    trace();
}

void onCrash(int number) {
    onAbort();
    std::signal(number, SIG_DFL);
    ::raise(number);
}

int instead(int argc, char** argv, char** environment) {
    const char* path = std::getenv(Board::variable);
    const int fd = path ? ::open(path, O_RDWR | O_CLOEXEC) : -1;
    if (fd != -1) {
        void* at = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
        ::close(fd);
        if (at != MAP_FAILED) {
            board = static_cast<Board*>(at);
            findRole();
            for (const int number : {SIGSEGV, SIGBUS, SIGFPE})
                if (role != -1) std::signal(number, onCrash);
        }
    }
    return realMain(argc, argv, environment);
}

// A signal interrupts nothing but what waits.
bool interrupts(int fd, int flags = 0) {
    static std::atomic<unsigned> random = 1;
    struct stat status {};
    if (role == -1 || board->mode != Board::INTERRUPT || (flags & MSG_DONTWAIT) != 0 ||
        (fd != -1 && ((::fcntl(fd, F_GETFL) & O_NONBLOCK) != 0 || ::fstat(fd, &status) == -1 ||
                      S_ISREG(status.st_mode))) ||
        ((random = random * 1103515245 + 12345) >> 16) % 2 == 0)
        return false;
    errno = EINTR;
    return true;
}

// Whether the call of this kind that is about to be made fails; sets errno then.
bool fails(Board::Kind kind) {
    if (role == -1 || inside) return false;
    const int number = ++calls[kind];
    std::atomic<int>& most = board->calls[role][kind];
    if (most < number) most = number;
    if (board->mode != Board::FAIL || board->role != role || board->kind != kind ||
        board->number != number || board->reached.exchange(true))
        return false;
    trace();
    errno = faultOf[static_cast<std::size_t>(kind)];
    return true;
}

// How much of what a call may transfer it transfers: records of sockets, files of
// /proc and descriptors that count come whole or not at all.
std::size_t cut(int fd, std::size_t size) {
    if (role == -1 || board->mode != Board::CUT || size < 2) return size;
    struct stat status {};
    if (::fstat(fd, &status) == -1 || (status.st_mode & S_IFMT) == 0) return size;
    struct statfs system {};
    if (::fstatfs(fd, &system) == -1 || system.f_type == PROC_SUPER_MAGIC) return size;
    int type = 0;
    socklen_t length = sizeof type;
    if (S_ISSOCK(status.st_mode) &&
        (::getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &length) == -1 || type != SOCK_STREAM))
        return size;
    return 1;
}

// The message, its first byte alone when it is cut.
struct Cut {
    iovec one;
    msghdr message;
    Cut(int fd, const msghdr* whole) : one{}, message(*whole) {
        if (whole->msg_iovlen == 0 || cut(fd, 2) == 2) return;
        one = {whole->msg_iov[0].iov_base, whole->msg_iov[0].iov_len == 0 ? 0UL : 1UL};
        message.msg_iov = &one;
        message.msg_iovlen = 1;
    }
};

template <typename Result>
Result failure() {
    if constexpr (std::is_pointer_v<Result>)
        return nullptr;
    else
        return static_cast<Result>(-1);
}

} // namespace

// A function of the C library in place of which ours is called, of a kind.
#define REAL(name, result, ...)                                                                    \
    static const auto real = reinterpret_cast<result (*)(__VA_ARGS__)>(::dlsym(RTLD_NEXT, #name))
#define WRAP(kind, interrupted, result, name, parameters, arguments, ...)                          \
    extern "C" result name parameters {                                                            \
        REAL(name, result, __VA_ARGS__);                                                           \
        if (fails(Board::kind) || interrupted) return failure<result>();                           \
        return real arguments;                                                                     \
    }

WRAP(READ, interrupts(fd), ssize_t, read, (int fd, void* to, std::size_t size),
     (fd, to, cut(fd, size)), int, void*, std::size_t)
WRAP(WRITE, interrupts(fd), ssize_t, write, (int fd, const void* from, std::size_t size),
     (fd, from, cut(fd, size)), int, const void*, std::size_t)
WRAP(SEND, interrupts(fd, flags), ssize_t, send,
     (int fd, const void* from, std::size_t size, int flags), (fd, from, cut(fd, size), flags), int,
     const void*, std::size_t, int)
WRAP(RECV, interrupts(fd, flags), ssize_t, recv, (int fd, void* to, std::size_t size, int flags),
     (fd, to, cut(fd, size), flags), int, void*, std::size_t, int)
WRAP(POLL, (ms != 0 && interrupts(-1)), int, poll, (pollfd * what, nfds_t count, int ms),
     (what, count, ms), pollfd*, nfds_t, int)
WRAP(EPOLL_CTL, false, int, epoll_ctl, (int queue, int operation, int fd, epoll_event* event),
     (queue, operation, fd, event), int, int, int, epoll_event*)
WRAP(EPOLL_WAIT, (ms != 0 && interrupts(-1)), int, epoll_wait,
     (int queue, epoll_event* events, int count, int ms), (queue, events, count, ms), int,
     epoll_event*, int, int)
WRAP(PIPE, false, int, pipe, (int* ends), (ends), int*)
WRAP(PIPE, false, int, pipe2, (int* ends, int flags), (ends, flags), int*, int)
WRAP(PIPE, false, int, socketpair, (int family, int type, int protocol, int* ends),
     (family, type, protocol, ends), int, int, int, int*)
WRAP(PIPE, false, int, eventfd, (unsigned value, int flags), (value, flags), unsigned, int)
WRAP(PIPE, false, int, signalfd, (int fd, const sigset_t* heard, int flags), (fd, heard, flags),
     int, const sigset_t*, int)
WRAP(PIPE, false, int, timerfd_create, (clockid_t clock, int flags), (clock, flags), clockid_t, int)
WRAP(PIPE, false, int, epoll_create1, (int flags), (flags), int)
WRAP(PTY, false, int, posix_openpt, (int flags), (flags), int)
WRAP(PTY, false, int, grantpt, (int fd), (fd), int)
WRAP(PTY, false, int, unlockpt, (int fd), (fd), int)
WRAP(PTY, false, int, ptsname_r, (int fd, char* to, std::size_t size), (fd, to, size), int, char*,
     std::size_t)
WRAP(SOCKET, false, int, socket, (int family, int type, int protocol), (family, type, protocol),
     int, int, int)
WRAP(CONNECT, false, int, connect, (int fd, const sockaddr* to, socklen_t size), (fd, to, size),
     int, const sockaddr*, socklen_t)
WRAP(ACCEPT, interrupts(fd), int, accept4, (int fd, sockaddr* from, socklen_t* size, int flags),
     (fd, from, size, flags), int, sockaddr*, socklen_t*, int)
WRAP(ACCEPT, interrupts(fd), int, accept, (int fd, sockaddr* from, socklen_t* size),
     (fd, from, size), int, sockaddr*, socklen_t*)
WRAP(OPEN, false, FILE*, fopen, (const char* path, const char* mode), (path, mode), const char*,
     const char*)
WRAP(OPEN, false, FILE*, fopen64, (const char* path, const char* mode), (path, mode), const char*,
     const char*)
WRAP(OPEN, false, int, mkostemp, (char* path, int flags), (path, flags), char*, int)

extern "C" {

int open(const char* path, int flags, ...) {
    REAL(open, int, const char*, int, ...);
    va_list more;
    va_start(more, flags);
    const auto mode = va_arg(more, mode_t);
    va_end(more);
    return fails(Board::OPEN) ? -1 : real(path, flags, mode);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
    REAL(sendmsg, ssize_t, int, const msghdr*, int);
    const Cut some(fd, message);
    return fails(Board::SENDMSG) || interrupts(fd, flags) ? -1 : real(fd, &some.message, flags);
}

ssize_t recvmsg(int fd, msghdr* message, int flags) {
    REAL(recvmsg, ssize_t, int, msghdr*, int);
    if (fails(Board::RECVMSG) || interrupts(fd, flags)) return -1;
    Cut some(fd, message);
    const ssize_t got = real(fd, &some.message, flags);
    message->msg_controllen = some.message.msg_controllen;
    message->msg_namelen = some.message.msg_namelen;
    message->msg_flags = some.message.msg_flags;
    return got;
}

int pthread_create(pthread_t* thread, const pthread_attr_t* how, void* (*what)(void*), void* with) {
    REAL(pthread_create, int, pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    return fails(Board::THREAD) ? EAGAIN : real(thread, how, what, with);
}

pid_t fork() {
    REAL(fork, pid_t);
    if (fails(Board::FORK)) return -1;
    const pid_t child = real();
    if (child == 0 && board) {
        ++depth;
        findRole();
    }
    return child;
}

void* malloc(std::size_t size) { return fails(Board::MALLOC) ? nullptr : __libc_malloc(size); }
void* calloc(std::size_t count, std::size_t size) {
    return fails(Board::MALLOC) ? nullptr : __libc_calloc(count, size);
}
void* realloc(void* old, std::size_t size) {
    return fails(Board::MALLOC) ? nullptr : __libc_realloc(old, size);
}
void* aligned_alloc(std::size_t alignment, std::size_t size) {
    return fails(Board::MALLOC) ? nullptr : __libc_memalign(alignment, size);
}

int bind(int fd, const sockaddr* to, socklen_t size) {
    REAL(bind, int, int, const sockaddr*, socklen_t);
    const int result = real(fd, to, size);
    if (role != -1 && result == 0 && to->sa_family == AF_UNIX) {
        const char* path = reinterpret_cast<const sockaddr_un*>(to)->sun_path;
        if (path[0] == '/' && std::strstr(path, ".vexsock.")) {
            std::snprintf(board->socketFile, sizeof board->socketFile, "%s", path);
            board->socketBirth = birthOf(path);
        }
    }
    return result;
}

void abort() {
    REAL(abort, void);
    onAbort();
    real();
    std::_Exit(134);
}

void __assert_fail(const char* what, const char* file, unsigned line, const char* function) {
    std::fprintf(stderr, "%s:%u: %s: Assertion `%s' failed.\n", file, line, function, what);
    std::abort();
}

int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(),
                      void (*fini)(), void (*loaderFini)(), void* stack) {
    REAL(__libc_start_main, int, int (*)(int, char**, char**), int, char**, void (*)(), void (*)(),
         void (*)(), void*);
    realMain = main;
    return real(instead, argc, argv, init, fini, loaderFini, stack);
}
}
