#include "frontend/launch/launchedjob.h"

#include <chrono>
#include <stdexcept>
#include <system_error>

namespace {

// Logins that may be under way at a time: a host turns more away.
constexpr std::size_t mostLogins = 8;
// For one of a lenient plan.
constexpr auto longestLogin = std::chrono::seconds(30);

std::string plural(int number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

} // namespace

LaunchedJob::LaunchedJob(EventLoop& eventLoop, Plan wanted, Handler handler)
    : loop(eventLoop), plan(std::move(wanted)), handle(std::move(handler)) {}

void LaunchedJob::start() {
    try {
        port.emplace(loop, !plan.onlyTcp,
                     [this](const AgentHello& hello, auto link) { onHello(hello, link); });
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string("cannot listen for the tasks: ") + error.what());
    }
    if (perHost()) {
        for (std::size_t i = 0; i < plan.hosts.size(); ++i) {
            if (!plan.hosts[i].empty()) remote.push_back(static_cast<int>(i));
        }
        setSize(static_cast<int>(plan.hosts.size()));
        startNext();
        return;
    }
    file.emplace(RendezvousFile::defaultFolder(), port->rendezvous());
    std::vector<std::string> argv = plan.launcher;
    argv.insert(argv.end(), {plan.agent, "--rendezvous", file->path().string()});
    launch(std::move(argv), "");
}

void LaunchedJob::startNext() {
    while (!over && launchers.size() < remote.size() && launchers.size() < arrivals + mostLogins) {
        Rendezvous where = port->rendezvous();
        where.rank = remote[launchers.size()];
        where.size = size();
        std::vector<std::string> argv = plan.launcher;
        argv.insert(argv.end(),
                    {hostOf(launchers.size()), Launcher::quoted(plan.agent), "--rendezvous", "-"});
        launch(std::move(argv), where.str());
    }
}

void LaunchedJob::launch(std::vector<std::string> argv, const std::string& input) {
    const std::size_t number = launchers.size();
    const std::string prefix = perHost() ? hostOf(number) + ": " : "";
    try {
        Login login;
        login.launcher = std::make_unique<Launcher>(
            loop, argv, input,
            Launcher::Handler{[this, prefix](const std::string& line) {
                                  spoke = true;
                                  if (!over) handle.said(prefix + line);
                              },
                              [this, number](const std::string& how) { onEnded(number, how); }});
        launchers.push_back(std::move(login));
        if (plan.lenient) limit(number);
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string("cannot start the launcher: ") + error.what());
    }
}

// The others do not wait for a host that does not answer.
void LaunchedJob::limit(std::size_t number) {
    auto& timer = launchers[number].patience;
    timer = std::make_unique<Timer>(loop);
    timer->after(longestLogin, [this, number] {
        if (isThere(number)) return;
        launchers[number].late = true;
        launchers[number].launcher->kill();
    });
}

bool LaunchedJob::isThere(std::size_t number) const {
    return perHost() ? present[static_cast<std::size_t>(remote[number])]
                     : expected > 0 && arrivals == expected;
}

void LaunchedJob::onHello(const AgentHello& hello, const std::shared_ptr<AgentLink>& link) {
    // Of a session that runs only forked processes are missing.
    if (over || (expected > 0 && arrivals == expected && hello.forked <= 0)) return link->close();
    if (hello.protocol != AgentHello::version) {
        link->close();
        return fail("an agent is of another version of VEX; --agent names another one.");
    }
    if (hello.forked > 0) return onForked(hello, link);
    if (hello.rank == -1) {
        link->close();
        return fail("the launcher does not tell its tasks their ranks by " +
                    std::string("OMPI_COMM_WORLD_RANK, PMIX_RANK, PMI_RANK or SLURM_PROCID. Is it "
                                "one of mpirun, mpiexec and srun? For ssh, give --hosts."));
    }
    if (hello.size < 1 || hello.size > maxSize) {
        link->close();
        return fail("the job has " + plural(hello.size, "task") +
                    "; a session has 1 to 4096 of them.");
    }
    if (size() == 0) setSize(hello.size);
    const auto rank = static_cast<std::size_t>(hello.rank);
    const std::string who =
        "the agent of host " + hello.host + ", process " + std::to_string(hello.pid);
    if (hello.size != size() || hello.rank < 0 || hello.rank >= size() || present[rank]) {
        link->close();
        handle.said(who + ", was refused: it says that it is rank " + std::to_string(hello.rank) +
                    " of " + std::to_string(hello.size) +
                    (hello.rank >= 0 && hello.rank < size() && present[rank]
                         ? ", and that one is there already"
                         : ""));
        return;
    }
    present[rank] = true;
    handle.connected(hello.rank, link);
    count();
}

void LaunchedJob::onForked(const AgentHello& hello, const std::shared_ptr<AgentLink>& link) {
    if (plan.forks && !over)
        handle.forked(hello.rank, hello.forked, link);
    else
        link->close();
}

// One more is there, or will not come.
void LaunchedJob::count() {
    ++arrivals;
    if (perHost()) {
        try {
            startNext();
        } catch (const std::runtime_error& error) {
            return fail(error.what());
        }
    }
    if (arrivals < expected) return;
    file.reset();
    if (plan.forks)
        port->expectFew();
    else
        port->close();
}

void LaunchedJob::setSize(int size) {
    present.assign(static_cast<std::size_t>(size), perHost());
    for (const int each : remote)
        present[static_cast<std::size_t>(each)] = false;
    expected = perHost() ? remote.size() : present.size();
    handle.sized(size);
}

void LaunchedJob::collect() {
    // What is said of one may start another.
    for (std::size_t i = 0; i < launchers.size(); ++i)
        launchers[i].launcher->collect();
}

void LaunchedJob::onEnded(std::size_t number, const std::string& how) {
    if (over) return;
    if (isThere(number)) return handle.said("(" + how + "; tasks that end with it are removed)");
    if (perHost()) {
        const std::string& host = hostOf(number);
        const std::string problem =
            plan.launcher[0] + " for host " + host + " " +
            (launchers[number].late ? "was given up" : how) +
            " before its task was there. Does this work: " + joined(plan.launcher) + " " + host +
            " " + plan.agent + " --version";
        if (!plan.lenient) return fail(problem);
        present[static_cast<std::size_t>(remote[number])] = true;
        handle.missing(remote[number], problem);
        return count();
    }
    fail("the launcher " + how + " before all tasks were there (" +
         (size() == 0 ? std::string("none was")
                      : std::to_string(arrivals) + " of " + std::to_string(expected)) +
         "). " +
         (spoke ? "What it said stands above; options of its own go into --launch."
                : "Does this work: " + joined(plan.launcher) + " " + plan.agent + " --version"));
}

std::set<std::string> LaunchedJob::awaitedHosts() const {
    std::set<std::string> hosts;
    for (std::size_t i = 0; perHost() && i < launchers.size(); ++i) {
        if (!isThere(i)) hosts.insert(hostOf(i));
    }
    return hosts;
}

bool LaunchedJob::running() const {
    for (const auto& each : launchers) {
        if (each.launcher->running()) return true;
    }
    return false;
}

void LaunchedJob::listPids(std::vector<pid_t>& pids) const {
    for (const auto& each : launchers)
        pids.push_back(each.launcher->pid());
}

void LaunchedJob::stop() {
    over = true;
    file.reset();
    if (port) port->close();
    for (std::size_t i = 0; i < launchers.size() && perHost(); ++i) {
        if (launchers[i].patience) launchers[i].patience->cancel();
        if (!isThere(i)) launchers[i].launcher->kill();
    }
}

void LaunchedJob::fail(const std::string& problem) {
    stop();
    handle.failed(problem);
}
