#pragma once

#include "backend/os/childprocess.h"
#include "backend/os/eventloop.h"
#include "backend/os/stream.h"
#include "common/descriptor.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// A process of the user's launcher (mpirun or ssh, say) in a session of its own: the keys of the
/// terminal do not reach it. Kills it when destroyed. One thread; the handlers run from the event
/// loop, or from collect.
class Launcher {
  public:
    struct Handler {
        /// The launcher printed a line.
        std::function<void(const std::string& line)> line;
        /// The launcher has ended, and all that it printed was handed over; how it ended goes
        /// behind its name in a sentence.
        std::function<void(const std::string& how)> ended;
    };

    /// Starts the launcher, with a text as its standard input. SIGPIPE must be ignored. Throws
    /// std::system_error.
    Launcher(EventLoop& loop, const std::vector<std::string>& argv, const std::string& input,
             Handler handler);
    ~Launcher();

    /// Looks whether the launcher has ended; call it on SIGCHLD.
    void collect();
    /// Makes the launcher end; collect sees that. SIGTERM comes first: by it srun takes its job out
    /// of the queue, and mpirun clears up. After two seconds comes SIGKILL.
    void stop();
    /// When it had to be killed: the command that takes back what it has left behind, "scancel
    /// 4711"; nothing where none is known of.
    std::optional<std::string> remedy() const;
    /// Whether it has ended with a status other than 0, though nobody has stopped it.
    bool failed() const;
    pid_t pid() const { return process.pid(); }
    bool running() const { return process.running(); }

    /// Cuts a command line into words as a shell does, with quotes, backslashes, variables, "~" and
    /// patterns. Throws std::runtime_error for commands in it and for anything that is no word.
    static std::vector<std::string> split(const std::string& line);

  private:
    Handler handle;
    Descriptor pipe;     // of the launcher's output
    Stream output;       // of the pipe
    std::string partial; // of a line
    Descriptor inputPipe;
    std::string unwritten; // of its input
    Stream inputStream;    // of the pipe, until all is written
    std::string slurmJob;  // that waits in the queue, as srun has told
    Timer patience;
    bool stopped = false; // by stop
    bool killed = false;
    ChildProcess process;

    void waitToRead();
    void writeSome();
    bool readSome();
    void tell(const std::string& line);
};
