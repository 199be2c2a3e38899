#pragma once

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/// One child process. Owns it: the destructor kills it when it still runs and reaps it. Does not
/// notice its end by itself; call poll when SIGCHLD came.
class ChildProcess {
  public:
    struct Start {
        /// The program, found in PATH when it has no slash, and its arguments.
        std::vector<std::string> argv;
        /// Added to the environment.
        std::vector<std::pair<std::string, std::string>> environment;
        /// The terminal of a session of its own; -1: stays on the terminal and in the session of
        /// this process.
        int terminal = -1;
        /// What happens to a child in a session of its own when this process ends. KILLED: the
        /// child gets SIGKILL. INTERRUPTED: it gets SIGINT, and no SIGHUP from the terminal; the
        /// end of its input tells it. TERMINATED: it gets SIGTERM.
        enum Orphan { KILLED, INTERRUPTED, TERMINATED } orphan = KILLED;
        /// The standard input and both outputs of a child in a session of its own without a
        /// terminal; -1: the child has those of this process.
        int input = -1;
        int output = -1;
        /// Whether a child in a session of its own gets the other descriptors that are open here
        /// and not marked to close.
        bool inherits = false;
    };

    ChildProcess() = default;
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    /// Starts the child, with all signals at their defaults. Throws std::system_error when it
    /// cannot be started.
    void start(const Start& what);
    /// Process id; -1 before start.
    pid_t pid() const { return id; }
    bool running() const { return id > 0 && !ended; }
    /// What became of the child: looks, and does not wait.
    enum Event { NOTHING, STOPPED, ENDED };
    Event poll();
    /// As waitpid gave it; valid after poll has said STOPPED or ENDED.
    int status() const { return waitStatus; }
    /// What such a status tells: "ended with status 3", or `bySignal` and the signal's name.
    static std::string describe(int status, const std::string& bySignal);
    /// Sends the child a signal; does nothing when the child has ended.
    void signal(int number) const;
    /// The same to all of the child's process group, as the key of a terminal does it. Only for a
    /// child in a session of its own: the group of any other is this process's.
    void signalGroup(int number) const;

  private:
    pid_t id = -1;
    bool ended = false;
    int waitStatus = 0;
};
