#pragma once

#include "common/descriptor.h"

#include <string>
#include <sys/types.h>
#include <utility>
#include <vector>

/// Runs a script and follows it and all that it starts (ptrace(2)) until one of them has executed a
/// program that can be debugged. That one, the model, then stands still before its first
/// instruction, while the process that has asked does in its place what it was about to do. What
/// else the script has started goes on; when the process in the model's place has ended, the model
/// is killed, and so is the script.
class Follower {
  public:
    /// What a process hears of its script.
    struct Found {
        pid_t model = -1; // -1: the script has ended without one
        int status = 0;   // of the script, as waitpid gives it
        /// Copies of the model's descriptors, with their numbers.
        std::vector<std::pair<int, Descriptor>> descriptors;
    };
    /// Starts the script in processes of their own, of which a debugger of this one does not hear,
    /// and waits for the model. Throws std::system_error.
    static Found follow(const std::vector<std::string>& script);

  private:
    Descriptor link;
    Descriptor asker; // the process that has asked, see pidfd_open(2)
    pid_t first = -1;
    pid_t model = -1;
    int status = 0;

    Follower(Descriptor toAsker, pid_t asking);
    void start(const std::vector<std::string>& script);
    void run();
    bool collect();
    void stopped(pid_t id, int how);
    void hand(pid_t id);
    void end();
};
