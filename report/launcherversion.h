#pragma once

#include "backend/os/childprocess.h"
#include "backend/os/pipe.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>
#include <sys/types.h>
#include <vector>

/// Asks a job's launcher for its version while other things are done. Runs none but launchers that
/// are known to take the question for one: a script of that place might start a job.
class LauncherVersion {
  public:
    LauncherVersion() = default;

    /// The first of the words of a command line that names a launcher.
    void ask(const std::vector<std::string>& words);
    /// The launcher that is this process, or below it.
    void askProcess(pid_t process);
    /// The line of the answer that tells it; empty: there is none, or none within 3 s of the
    /// question. Once.
    std::string answer();

    /// The line of such an answer that tells the version, with single blanks; where the first one
    /// has no number, it and the first that has one.
    static std::string lineOf(std::string_view answer);

  private:
    ChildProcess process;
    std::optional<Pipe> output;
    std::chrono::steady_clock::time_point until;

    void start(const std::string& program);
};
