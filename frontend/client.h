#pragma once

#include "frontend/childprocess.h"
#include "frontend/clock.h"
#include "frontend/debugger.h"
#include "frontend/promptmatcher.h"
#include "frontend/pty.h"

#include <asio/io_context.hpp>
#include <asio/posix/stream_descriptor.hpp>
#include <asio/steady_timer.hpp>

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// One debugger on its pseudo-terminal, and the terminal that its program reads from. Kills the
/// debugger when destroyed; one that has attached to its program must be released before. One
/// thread; the handlers run from the event loop or from ended, and must not destroy it. Outlives
/// the loop's last turn.
class Client {
  public:
    struct Handler {
        std::function<void(std::string_view)> output;
        std::function<void()> prompt;
        /// Whether to go on reading; when not, resume begins again.
        std::function<bool()> mayRead;
    };
    using Environment = std::vector<std::pair<std::string, std::string>>;

    /// Starts the debugger, which takes its terminals from here. Throws std::system_error.
    Client(asio::io_context& loop, Handler handler, const Debugger& debugger,
           Debugger::Launch launch, const Environment& environment);
    ~Client();

    /// Types a line, given without its newline.
    void type(const std::string& line);
    /// Sends SIGINT to the debugger and to what it runs in its foreground, a shell's command; the
    /// debugged program has a group of its own. But not before the debugger has begun with what was
    /// typed: one that still reads its command drops the interrupt and runs the command after it. A
    /// prompt that comes before that makes the interrupt void.
    void interrupt();
    /// Reads on after mayRead has said no.
    void resume();
    /// Makes a debugger that has attached to its program let it go, without breakpoints, and end:
    /// what it runs is interrupted, then it finds the end of its input. Its output ends here. When
    /// this process is killed, the same happens.
    void release();
    /// Looks whether the debugger has ended. When it has, hands over what it still said and says
    /// true, once.
    bool ended();
    pid_t pid() const { return process.pid(); }
    bool running() const { return process.running(); }

  private:
    Handler handle;
    Pty terminal;      // the debugger's
    Pty inputTerminal; // the program's
    asio::posix::stream_descriptor stream;
    asio::posix::stream_descriptor inputStream;
    PromptMatcher matcher;
    std::string typed; // waits to be written
    const bool attached;
    asio::steady_timer patience;
    Clock::time_point typedAt;
    bool heard = false; // it has said something since
    bool writing = false;
    bool paused = false; // mayRead said no
    bool inputPaused = false;
    ChildProcess process;

    void waitToRead();
    void waitToReadInput();
    void writeSome();
    bool readSome();
    bool readInput();
};
