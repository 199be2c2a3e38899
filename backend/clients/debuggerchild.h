#pragma once

#include "backend/clients/debuggerprocess.h"
#include "backend/drivers/debuggerstart.h"
#include "backend/os/childprocess.h"
#include "backend/os/pty.h"

/// A debugger that is a child of this process, on a pseudo-terminal. Kills it when destroyed; one
/// that has attached to its program must have ended before. Holds the terminal that its program
/// reads from, so that what the program leaves behind may write there. One thread.
class DebuggerChild : public DebuggerProcess {
  public:
    /// Starts the debugger. Throws std::system_error.
    explicit DebuggerChild(const DebuggerStart& start);

    Terminals takeTerminals() override {
        return {terminal.takeMaster(), inputTerminal.takeMaster()};
    }
    pid_t pid() const override { return process.pid(); }
    bool running() const override { return process.running(); }
    bool ended() override { return process.poll() == ChildProcess::ENDED; }
    void signal(int number) override { process.signal(number); }
    void signalGroup(int number) override { process.signalGroup(number); }

  private:
    Pty terminal;
    Pty inputTerminal;
    ChildProcess process;
};
