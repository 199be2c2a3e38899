#include "frontend/terminal/guardian.h"

#include "backend/clients/guard.h"
#include "backend/os/insist.h"
#include "backend/os/standardstreams.h"
#include "backend/os/tracing.h"
#include "backend/wire/rendezvous.h"

#include <csignal>
#include <sys/wait.h>
#include <unistd.h>

namespace {

Detachment::Rest restOf(const Options& options) {
    Detachment::Rest rest{.patient = !options.launcherWords.empty()};
    for (const Target& each : options.targets) {
        if (each.host.empty() && !Tracing::isStopped(each.pid)) rest.ran.push_back(each.pid);
    }
    return rest;
}

} // namespace

std::optional<int> Guardian::run(Session& session, Channel& line, const Options& options) {
    const Detachment::Rest rest = restOf(options);
    ::setsid();
    std::signal(SIGHUP, SIG_IGN);
    const Guard guard({SIGTERM, SIGINT, SIGQUIT});
    if (guard.isChild()) return guard.isOrphan() ? std::optional(128 + SIGTERM) : std::nullopt;
    session.stopListening();
    line.close();
    // What the session has to say at its start is said by itself.
    StandardStreams::detach();
    const int status = guard.wait(rest);
    insist([&] { RendezvousFile::removeOf(guard.child()); });
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
