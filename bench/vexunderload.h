#pragma once

#include "common/command.h"
#include "common/unixsock.h"

#include <string>
#include <sys/types.h>
#include <vector>

/// A session of vex that a benchmark runs: started on a pseudo-terminal whose output is dropped,
/// with a console of which only the connection exists. Ends the session when destroyed.
class VexUnderLoad {
  public:
    /// What one command cost: processor time of the session's process, and wall time, in seconds.
    struct Cost {
        double processor = 0;
        double wall = 0;
        /// Bytes and records that the console got.
        std::size_t bytes = 0;
        int records = 0;
    };

    /// Starts vex of that directory with these words and waits until all its clients have
    /// prompted. Throws std::runtime_error when the session does not come up.
    VexUnderLoad(const std::string& binaries, const std::vector<std::string>& words);
    ~VexUnderLoad();
    VexUnderLoad(const VexUnderLoad&) = delete;
    VexUnderLoad& operator=(const VexUnderLoad&) = delete;

    /// What the start cost.
    const Cost& startCost() const { return start; }
    /// Carries out a client command of all clients, until READY. Takes the record that a console
    /// takes as its cue to ask for the group FILTERED, and asks.
    Cost command(const std::string& text);
    /// stat, of all clients.
    Cost stat();
    /// kquit, until vex has ended.
    Cost quit();

    pid_t session() const { return sessionProcess; }
    /// The largest resident size that a process has had, in bytes.
    static std::size_t peakOf(pid_t process);
    /// The memory that is a process's alone, in bytes.
    static std::size_t privateOf(pid_t process);
    /// Processor time that a process has used, in seconds.
    static double processorOf(pid_t process);
    static double now();

  private:
    pid_t vex = -1;
    pid_t sessionProcess = -1;
    int terminal = -1;
    std::string folder;
    int id = 0;
    UnixSocket socket;
    Cost start;
    std::vector<char> sink = std::vector<char>(1024 * 1024); // for what is read and dropped

    std::string awaitSession();
    void send(Command::Type type, const std::string& body);
    Cost ask(Command::Type type, const std::string& text);
    struct Message {
        int kind = 0;
        std::size_t size = 0;
        bool ready = false;
    };
    Message next();
};
