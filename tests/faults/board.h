#pragma once

#include <array>
#include <atomic>
#include <fcntl.h>
#include <sys/stat.h>

/// When a file was made, in ns; 0: there is none, or the file system does not tell.
inline long long birthOf(const char* path) {
    struct statx facts {};
    if (::statx(AT_FDCWD, path, 0, STATX_BTIME, &facts) == -1) return 0;
    return facts.stx_btime.tv_sec * 1'000'000'000LL + facts.stx_btime.tv_nsec;
}

/// What the driver and the shim in the programs of one session share: a file that all of them map.
struct Board {
    /// The kinds of calls that are counted, and failed.
    enum Kind {
        READ,
        WRITE,
        SEND,
        RECV,
        SENDMSG,
        RECVMSG,
        OPEN,
        POLL,
        EPOLL_CTL,
        EPOLL_WAIT,
        FORK,
        PIPE,
        PTY,
        SOCKET,
        CONNECT,
        ACCEPT,
        THREAD,
        MALLOC,
        kinds
    };
    static constexpr std::array<const char*, kinds> kindNames{
        "read", "write",  "send",      "recv",       "sendmsg", "recvmsg",
        "open", "poll",   "epoll_ctl", "epoll_wait", "fork",    "pipe",
        "pty",  "socket", "connect",   "accept",     "thread",  "malloc"};

    /// The processes of a session: a program and how many times it has forked itself. The shim is
    /// idle in any other program.
    enum Role { FOREGROUND, GUARDIAN, SESSION, CONSOLE, KEEPER, NODE, roles };
    struct Process {
        const char* name;
        const char* program;
        int depth;
    };
    static constexpr std::array<Process, roles> processes{{{"foreground", "vex", 0},
                                                           {"guardian", "vex", 1},
                                                           {"session", "vex", 2},
                                                           {"console", "vexconsole", 0},
                                                           {"keeper", "vexagent", 0},
                                                           {"node", "vexagent", 1}}};

    /// FAIL: the call of this number of a kind in a role fails, in one process. CUT: every read and
    /// write of a stream is cut to one byte. INTERRUPT: every second call that may wait fails with
    /// EINTR.
    enum Mode { NOTHING, FAIL, CUT, INTERRUPT };
    Mode mode = NOTHING;
    int role = 0;
    int kind = 0;
    int number = 0; // from 1 on

    /// What has happened: the call was reached, a process was about to abort, how many calls of
    /// each kind the busiest process of a role has made, and the session's socket file.
    std::atomic<bool> reached = false;
    std::atomic<bool> aborted = false;
    std::atomic<int> calls[roles][kinds] = {};
    char socketFile[108] = "";
    long long socketBirth = 0;

    /// The environment's variables: the path of the file, and that of one to which a failed call
    /// and an abort tell where they are.
    static constexpr const char* variable = "VEX_FAULTS";
    static constexpr const char* traceVariable = "VEX_FAULTS_TRACE";
};
