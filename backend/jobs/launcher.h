#pragma once

#include "backend/os/childprocess.h"
#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "common/descriptor.h"

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <vector>

/// One process of the user's launcher, mpirun or an ssh, in a session of its own: the keys of the
/// terminal do not reach it. Kills it when destroyed. One thread; the handlers run from the event
/// loop, or from collect.
class Launcher {
  public:
    struct Handler {
        /// One line that it printed.
        std::function<void(const std::string& line)> said;
        /// It has ended, and all that it printed was handed over.
        std::function<void(const std::string& how)> ended;
    };

    /// Starts it, with a short text as its standard input. Throws std::system_error.
    Launcher(EventLoop& loop, const std::vector<std::string>& argv, const std::string& input,
             Handler handler);
    ~Launcher();

    /// Looks whether it has ended; call it on SIGCHLD.
    void collect();
    /// Makes it end; collect sees that.
    void kill() const { process.signal(SIGKILL); }
    pid_t pid() const { return process.pid(); }
    bool running() const { return process.running(); }

    /// Cuts a command line into words as a shell does: quotes, backslashes, variables, "~" and
    /// patterns, but neither commands nor anything that is no word. Throws std::runtime_error.
    static std::vector<std::string> split(const std::string& line);
    /// One word of a shell's command line: ssh has its words read by a shell on the other side. One
    /// without special characters stays as it is, for launchers that have none there.
    static std::string quoted(const std::string& word);

  private:
    Handler handle;
    Descriptor pipe; // from it
    Stream output;   // of the pipe
    std::string partial;
    ChildProcess process;

    void waitToRead();
    bool readSome();
};
