#include "frontend/terminal/consoleprocess.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

ConsoleProcess::ConsoleProcess() : isTerminal(::tcgetattr(STDIN_FILENO, &before) == 0) {}

void ConsoleProcess::start(const std::string& executable, int session,
                           const std::vector<std::string>& words, const Environment& environment) {
    std::vector<std::string> argv{executable, "-s", std::to_string(session), "-b",
                                  std::to_string(::getpid())};
    argv.insert(argv.end(), words.begin(), words.end());
    process.start({std::move(argv), environment, -1});
}

bool ConsoleProcess::ended() {
    switch (process.poll()) {
    case ChildProcess::STOPPED:
        // Not the user's key, but somebody who stops that process alone, and may end it.
        if (WSTOPSIG(process.status()) == SIGSTOP) return false;
        ::raise(SIGSTOP);
        process.signal(SIGCONT);
        return false;
    case ChildProcess::ENDED:
        if (isTerminal && WIFSIGNALED(process.status()))
            ::tcsetattr(STDIN_FILENO, TCSADRAIN, &before);
        return true;
    default:
        return false;
    }
}
