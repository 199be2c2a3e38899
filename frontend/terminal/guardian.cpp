#include "frontend/terminal/guardian.h"

#include "backend/clients/detachment.h"
#include "backend/os/standardstreams.h"
#include "backend/wire/rendezvous.h"

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

int Guardian::run(Session& session, Channel line, bool agents,
                  const std::function<int(Session& session, Channel line)>& serve) {
    ::setsid();
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t heard, before;
    ::sigemptyset(&heard);
    for (const int number : {SIGCHLD, SIGTERM, SIGINT, SIGQUIT})
        ::sigaddset(&heard, number);
    ::sigprocmask(SIG_BLOCK, &heard, &before);
    std::signal(SIGHUP, SIG_IGN);
    const pid_t self = ::getpid();
    const pid_t child = ::fork();
    if (child == -1)
        throw std::system_error(errno, std::generic_category(), "cannot start the session");
    if (child == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        if (::getppid() != self) return 128 + SIGTERM;
        ::sigprocmask(SIG_SETMASK, &before, nullptr);
        return serve(session, std::move(line));
    }
    session.stopListening();
    line.close();
    // What the session has to say at its start is said by itself.
    StandardStreams::detach();
    int status = 0;
    for (;;) {
        int number = 0;
        ::sigwait(&heard, &number);
        if (number != SIGCHLD) {
            ::kill(child, number == SIGQUIT ? SIGKILL : SIGTERM);
            continue;
        }
        // The session's own children come here only when it has ended.
        if (::waitpid(child, &status, WNOHANG) == child) break;
    }
    Aftermath::clear(agents);
    RendezvousFile::removeOf(child);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
