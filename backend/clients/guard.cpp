#include "backend/clients/guard.h"

#include <cerrno>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

Guard::Guard(std::initializer_list<int> signals) {
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    sigset_t before;
    ::sigemptyset(&heard);
    ::sigaddset(&heard, SIGCHLD);
    for (const int number : signals)
        ::sigaddset(&heard, number);
    ::sigprocmask(SIG_BLOCK, &heard, &before);
    const pid_t self = ::getpid();
    id = ::fork();
    if (id == -1) throw std::system_error(errno, std::generic_category(), "cannot start a process");
    if (id != 0) return;
    // Forking does not hand the first of these down.
    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    orphan = ::getppid() != self;
    ::sigprocmask(SIG_SETMASK, &before, nullptr);
}

int Guard::wait(const Detachment::Rest& rest) const {
    for (;;) {
        int number = 0;
        ::sigwait(&heard, &number);
        if (number != SIGCHLD) {
            ::kill(id, number == SIGQUIT ? SIGKILL : SIGTERM);
            continue;
        }
        int status = 0;
        for (pid_t ended; (ended = ::waitpid(-1, &status, WNOHANG)) > 0;) {
            if (ended != id) continue;
            Detachment::complete(rest);
            return status;
        }
    }
}
