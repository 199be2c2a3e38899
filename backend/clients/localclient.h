#pragma once

#include "backend/clients/client.h"
#include "backend/clients/debuggerprocess.h"
#include "backend/clients/identity.h"
#include "backend/drivers/debuggerstart.h"
#include "backend/drivers/promptmatcher.h"
#include "backend/os/clock.h"
#include "backend/os/eventloop.h"
#include "backend/os/stream.h"

#include <memory>
#include <string>

/// A debugger of this machine on its pseudo-terminal, and the terminal that its program reads from.
/// Kills the debugger when destroyed; a debugger that has attached to its program must be released
/// before.
/// One thread. Outlives the loop's last turn.
class LocalClient : public Client {
  public:
    /// Starts the debugger. The listener must outlive this. Throws std::system_error.
    LocalClient(EventLoop& loop, Listener& listener, const DebuggerStart& start);
    /// The same for a debugger that was started by another process, as `start` says.
    LocalClient(EventLoop& loop, Listener& listener, const DebuggerStart& start,
                std::unique_ptr<DebuggerProcess> process);
    ~LocalClient() override;

    void type(const std::string& line) override;
    /// Sends SIGINT to the debugger and to what it runs in its foreground, a shell's command; the
    /// debugged program has a group of its own. The signal waits until the debugger has begun with
    /// what was typed: a debugger that still reads its command drops the interrupt and runs the
    /// command after it. A prompt that comes before that makes the interrupt void.
    void interrupt() override;
    void resume() override;
    /// Makes a debugger that has attached to its program let it go, without breakpoints, and end:
    /// what it runs is interrupted, then it finds the end of its input. Its output ends here. When
    /// this process is killed, the same happens.
    void release() override;
    bool ended() override;
    bool holds() const override;
    std::string identity() const override { return who().str(); }
    Identity who() const;
    MpiState mpiState() const override;
    pid_t pid() const override { return process->pid(); }
    bool running() const override { return process->running(); }

  private:
    Listener& listener;
    const int number; // in the session
    const std::unique_ptr<DebuggerProcess> process;
    DebuggerProcess::Terminals terminals;
    Stream stream;
    Stream inputStream;
    PromptMatcher matcher;
    std::string unwritten; // lines that the debugger's terminal has not taken yet
    const pid_t target;    // the process to attach to; 0: none
    const std::string program;
    const std::string core; // empty: none
    const bool numberIsRank;
    Timer patience; // with a debugger that is to be interrupted
    Clock::time_point typedAt;
    Clock::time_point interruptedAt = {}; // by a SIGINT that has stopped nothing yet
    bool answered = false;                // something was printed after the last line
    bool writing = false;
    bool paused = false; // mayRead refused for the debugger's terminal
    bool inputPaused = false;

    void waitToRead();
    void waitToReadInput();
    void wait(Stream& from, bool& held, bool (LocalClient::*read)());
    void writeSome();
    bool mayInterrupt();
    bool mayGoOn(ssize_t result);
    bool readSome();
    bool readInput();
};
