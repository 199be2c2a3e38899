#pragma once

#include "backend/os/childprocess.h"

#include <string>
#include <termios.h>
#include <utility>
#include <vector>

/// The console that this process started on the user's terminal, and the terminal's state before
/// it, which is put back when the console could not do so itself.
class ConsoleProcess {
  public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    ConsoleProcess();

    /// Throws std::system_error.
    void start(const std::string& executable, int session, const Environment& environment);
    bool running() const { return process.running(); }
    /// Looks what became of it. When it was stopped (Ctrl-Z), this process stops as well, so that
    /// the shell has its terminal back, and both go on together. True when it has ended, once.
    bool ended();
    /// As waitpid gave it; valid after ended has said true.
    int status() const { return process.status(); }
    void signal(int number) const { process.signal(number); }

  private:
    ChildProcess process;
    termios before{};
    bool isTerminal;
};
