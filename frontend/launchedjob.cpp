#include "frontend/launchedjob.h"

#include <stdexcept>
#include <system_error>

namespace {

// Logins that may be under way at a time: a host turns more away.
constexpr int mostLogins = 8;

std::string plural(int number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

// One word of a shell's command line: ssh has its words read by a shell on the other side.
std::string quoted(const std::string& word) {
    std::string text = "'";
    for (const char c : word)
        text += c == '\'' ? "'\\''" : std::string(1, c);
    return text + "'";
}

} // namespace

LaunchedJob::LaunchedJob(asio::io_context& eventLoop, Plan wanted, Handler handler)
    : loop(eventLoop), plan(std::move(wanted)), handle(std::move(handler)) {}

void LaunchedJob::start() {
    try {
        port.emplace(loop, !plan.onlyTcp,
                     [this](const AgentHello& hello, auto link) { onHello(hello, link); });
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string("cannot listen for the tasks: ") + error.what());
    }
    if (perHost()) {
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
    while (!over && launchers.size() < plan.hosts.size() &&
           static_cast<int>(launchers.size()) < arrivals + mostLogins) {
        Rendezvous where = port->rendezvous();
        where.rank = static_cast<int>(launchers.size());
        where.size = size();
        std::vector<std::string> argv = plan.launcher;
        argv.insert(argv.end(),
                    {plan.hosts[launchers.size()], quoted(plan.agent), "--rendezvous", "-"});
        launch(std::move(argv), where.str());
    }
}

void LaunchedJob::launch(std::vector<std::string> argv, const std::string& input) {
    const std::size_t number = launchers.size();
    const std::string prefix = perHost() ? plan.hosts[number] + ": " : "";
    try {
        launchers.push_back(std::make_unique<Launcher>(
            loop, argv, input,
            Launcher::Handler{[this, prefix](const std::string& line) {
                                  spoke = true;
                                  if (!over) handle.said(prefix + line);
                              },
                              [this, number](const std::string& how) { onEnded(number, how); }}));
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string("cannot start the launcher: ") + error.what());
    }
}

void LaunchedJob::onHello(const AgentHello& hello, const std::shared_ptr<AgentLink>& link) {
    if (over) return link->close();
    const std::string who =
        "the agent of host " + hello.host + ", process " + std::to_string(hello.pid);
    if (hello.protocol != AgentHello::version) {
        link->close();
        return fail(who + ", is of another version of VEX; --agent names another one.");
    }
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
    ++arrivals;
    handle.connected(hello.rank, link);
    if (perHost()) {
        try {
            startNext();
        } catch (const std::runtime_error& error) {
            return fail(error.what());
        }
    }
    if (arrivals == size()) {
        file.reset();
        port->close();
    }
}

void LaunchedJob::setSize(int size) {
    present.assign(static_cast<std::size_t>(size), false);
    handle.sized(size);
}

void LaunchedJob::collect() {
    // What is said of one may start another.
    for (std::size_t i = 0; i < launchers.size(); ++i)
        launchers[i]->collect();
}

void LaunchedJob::onEnded(std::size_t number, const std::string& how) {
    const bool there = perHost() ? present[number] : size() > 0 && arrivals == size();
    if (over) return;
    if (there) return handle.said("(" + how + "; tasks that end with it are removed)");
    if (perHost())
        return fail(plan.launcher[0] + " for host " + plan.hosts[number] + " " + how +
                    " before its task was there. Does this work: " + joined(plan.launcher) + " " +
                    plan.hosts[number] + " " + plan.agent + " --version");
    fail("the launcher " + how + " before all tasks were there (" +
         (size() == 0 ? std::string("none was")
                      : std::to_string(arrivals) + " of " + std::to_string(size())) +
         "). " +
         (spoke ? "What it said stands above; options of its own go into --launch."
                : "Does this work: " + joined(plan.launcher) + " " + plan.agent + " --version"));
}

bool LaunchedJob::running() const {
    for (const auto& each : launchers) {
        if (each->running()) return true;
    }
    return false;
}

void LaunchedJob::listPids(std::vector<pid_t>& pids) const {
    for (const auto& each : launchers)
        pids.push_back(each->pid());
}

void LaunchedJob::stop() {
    over = true;
    file.reset();
    if (port) port->close();
}

void LaunchedJob::fail(const std::string& problem) {
    stop();
    handle.failed(problem);
}
