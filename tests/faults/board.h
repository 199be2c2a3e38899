#pragma once

#include <array>
#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>

/// When a file was made, in ns; 0: there is none, or the file system does not tell.
inline long long birthOf(const char* path) {
    struct statx facts {};
    if (::statx(AT_FDCWD, path, 0, STATX_BTIME, &facts) == -1) return 0;
    return facts.stx_btime.tv_sec * 1'000'000'000LL + facts.stx_btime.tv_nsec;
}

/// The call that fails: the one of this number, from 1 on, of a kind in a role.
struct Fault {
    std::size_t role = 0, kind = 0;
    int number = 0;
    bool operator==(const Fault&) const = default;
};

/// What the driver and the shim in the programs of one session share: a file that all of them map.
struct Board {
    /// The kinds of calls that are counted, and failed with the errno at the same place below.
    static constexpr auto kinds = std::to_array<std::string_view>(
        {"read", "write", "send", "recv", "sendmsg", "recvmsg", "open", "poll", "epoll_ctl",
         "epoll_wait", "fork", "pipe", "pty", "socket", "connect", "accept", "thread", "malloc"});
    static constexpr auto errors = std::to_array(
        {EIO, ENOSPC, ENOBUFS, ECONNRESET, ENOBUFS, ECONNRESET, EMFILE, ENOMEM, ENOSPC, ENOMEM,
         EAGAIN, EMFILE, ENOSPC, EMFILE, ECONNREFUSED, EMFILE, EAGAIN, ENOMEM});
    /// The place of a kind; no constant when there is none of that name.
    static consteval std::size_t kindOf(std::string_view name) {
        std::size_t kind = 0;
        while (kinds.at(kind) != name)
            ++kind;
        return kind;
    }

    /// The processes of a session, its roles: a program and how many times it has forked itself.
    /// The shim is idle in any other program.
    struct Process {
        std::string_view name, program;
        int depth;
    };
    static constexpr auto processes = std::to_array<Process>({{"foreground", "vex", 0},
                                                              {"guardian", "vex", 1},
                                                              {"session", "vex", 2},
                                                              {"console", "vexconsole", 0},
                                                              {"keeper", "vexagent", 0},
                                                              {"node", "vexagent", 1}});

    /// FAIL: the fault happens, in one process. CUT: every read and write of a stream is cut to one
    /// byte. INTERRUPT: every second call that may wait fails with EINTR.
    enum Mode { NOTHING, FAIL, CUT, INTERRUPT };
    Mode mode = NOTHING;
    Fault fault;
    bool traces = false; // a failed call and an abort append to the file where they are

    /// What has happened: the call was reached, a process was about to abort, how many calls of
    /// each kind the busiest process of a role has made, and the session's socket file.
    std::atomic<bool> reached = false;
    std::atomic<bool> aborted = false;
    std::atomic<int> calls[processes.size()][kinds.size()] = {};
    char socketFile[108] = "";
    long long socketBirth = 0;

    /// The environment's variable: the path of the file.
    static constexpr const char* variable = "VEX_FAULTS";
};
