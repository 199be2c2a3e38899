#pragma once

#include "backend/os/childprocess.h"

#include <string>
#include <termios.h>
#include <utility>
#include <vector>

/// The console that this process starts on the user's terminal. Keeps the terminal's state from
/// before, and puts it back when the console could not do so itself.
class ConsoleProcess {
  public:
    using Environment = std::vector<std::pair<std::string, std::string>>;

    ConsoleProcess();

    /// The words stand behind those that name the session. Throws std::system_error.
    void start(const std::string& executable, int session, const std::vector<std::string>& words,
               const Environment& environment);
    bool running() const { return process.running(); }
    /// Looks what became of the console. When it was stopped from the terminal (Ctrl-Z), this
    /// process stops as well, so that the shell has its terminal back, and both go on together.
    /// True when the console has ended, once.
    bool ended();
    /// As waitpid gave it; valid after ended has said true.
    int status() const { return process.status(); }
    void signal(int number) const { process.signal(number); }

  private:
    ChildProcess process;
    termios before{};
    bool isTerminal;
};
