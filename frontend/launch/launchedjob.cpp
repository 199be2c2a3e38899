#include "frontend/launch/launchedjob.h"

#include "backend/os/limits.h"
#include "backend/os/text.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <stdexcept>
#include <system_error>

namespace {

// How long a login may take where the job can do without its agent.
constexpr auto maxLoginTime = std::chrono::seconds(30);

std::string plural(int number, const std::string& what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& words) {
    std::string text;
    for (const std::string& word : words)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

constexpr std::size_t noLogin = ~std::size_t{0};

// The clients that have a host, by their logins.
std::vector<std::vector<int>> withHost(const std::vector<std::string>& hosts, bool oneAHost) {
    std::vector<std::vector<int>> logins;
    std::map<std::string, std::size_t> loginOfHost;
    for (std::size_t i = 0; i < hosts.size(); ++i) {
        if (hosts[i].empty()) continue;
        const auto [at, isNew] = loginOfHost.emplace(hosts[i], logins.size());
        if (isNew || !oneAHost) logins.emplace_back();
        logins[oneAHost ? at->second : logins.size() - 1].push_back(static_cast<int>(i));
    }
    return logins;
}

std::vector<std::size_t> loginsOfClients(std::size_t clients,
                                         const std::vector<std::vector<int>>& logins) {
    std::vector<std::size_t> result(clients, noLogin);
    for (std::size_t login = 0; login < logins.size(); ++login) {
        for (const int client : logins[login])
            result[static_cast<std::size_t>(client)] = login;
    }
    return result;
}

} // namespace

LaunchedJob::LaunchedJob(EventLoop& eventLoop, Plan wanted, Owner& whose)
    : loop(eventLoop),
      plan(std::move(wanted)),
      owner(whose),
      remote(withHost(plan.hosts, plan.oneAHost)),
      loginOf(loginsOfClients(plan.hosts.size(), remote)),
      // The others do not wait for a host that does not answer.
      logins(loop, perHost() ? remote.size() : 1,
             plan.lenient ? std::optional<Clock::duration>(maxLoginTime) : std::nullopt, *this) {}

void LaunchedJob::start() {
    try {
        port.emplace(loop, !plan.onlyTcp, static_cast<AgentPort::Owner&>(*this));
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string("cannot listen for the tasks: ") + error.what());
    }
    if (perHost())
        setSize(static_cast<int>(plan.hosts.size()));
    else
        file.emplace(RendezvousFile::defaultFolder(), port->rendezvous());
    startLogins();
}

void LaunchedJob::startLogins() {
    try {
        if (phase != OVER) logins.startNext();
    } catch (const std::system_error& error) {
        throw std::runtime_error(std::string("cannot start the launcher: ") + error.what());
    }
}

Logins::Command LaunchedJob::commandOf(std::size_t login) {
    std::vector<std::string> argv = plan.launcher;
    if (!perHost()) {
        argv.insert(argv.end(), {plan.agent, "--rendezvous", file->path().string()});
        return {argv, ""};
    }
    Rendezvous where = port->rendezvous();
    where.ranks = remote[login];
    where.size = size();
    argv.insert(argv.end(), {hostOf(login), Text::quoted(plan.agent), "--rendezvous", "-"});
    return {argv, where.str()};
}

void LaunchedJob::onLine(std::size_t login, const std::string& line) {
    spoke = true;
    if (phase != OVER || tells) owner.onLauncherSaid(prefix(login) + line);
}

void LaunchedJob::onHello(const AgentHello& hello, std::shared_ptr<AgentLink> link) {
    if (phase != GATHERING) return link->close();
    if (hello.protocol != AgentHello::version) {
        link->close();
        return fail("an agent is of another version of VEX (" +
                    (hello.program.empty() ? "" : hello.program + ", ") + "protocol " +
                    std::to_string(hello.protocol) + "; this is " + VEX_VERSION + ", protocol " +
                    std::to_string(AgentHello::version) + "); --agent names another one.");
    }
    owner.onAgent(hello, std::move(link));
}

void LaunchedJob::onFull() {
    owner.onLauncherSaid("agents wait: vex may open no more files here (ulimit -Hn)");
}

std::vector<int> LaunchedJob::admit(const std::string& host,
                                    const std::vector<NodeRecords::Task>& tasks) {
    std::vector<int> clients;
    for (const NodeRecords::Task& task : tasks) {
        if (phase != GATHERING) break;
        if (!isFit(host, task)) continue;
        markPresent(task.rank);
        clients.push_back(task.rank);
        count();
    }
    return clients;
}

bool LaunchedJob::isFit(const std::string& host, const NodeRecords::Task& task) {
    if (task.rank == -1) {
        fail("the launcher does not tell its tasks their ranks by " +
             std::string("OMPI_COMM_WORLD_RANK, PMIX_RANK, PMI_RANK or SLURM_PROCID. Is it "
                         "one of mpirun, mpiexec and srun? For ssh, give --hosts."));
        return false;
    }
    if (task.size < 1 || task.size > Limits::maxTasks) {
        fail("the job has " + plural(task.size, "task") + "; a session has 1 to " +
             std::to_string(Limits::maxTasks) + " of them.");
        return false;
    }
    if (size() == 0) setSize(task.size);
    const bool inRange = task.rank >= 0 && task.rank < size();
    const bool isThere = inRange && present[static_cast<std::size_t>(task.rank)];
    if (task.size == size() && inRange && !isThere) return true;
    owner.onLauncherSaid("the agent of host " + host + ", process " + std::to_string(task.pid) +
                         ", was refused: it says that it is rank " + std::to_string(task.rank) +
                         " of " + std::to_string(task.size) +
                         (isThere ? ", and that one is there already" : ""));
    return false;
}

void LaunchedJob::markPresent(int client) {
    present[static_cast<std::size_t>(client)] = true;
    if (!perHost()) return;
    const std::size_t login = loginOf[static_cast<std::size_t>(client)];
    if (login != noLogin &&
        std::ranges::all_of(remote[login], [this](int each) { return isPresent(each); }))
        logins.finish(login);
}

// One more agent is there, or will not come.
void LaunchedJob::count() {
    ++arrivals;
    try {
        startLogins();
    } catch (const std::runtime_error& error) {
        return fail(error.what());
    }
    if (phase == OVER || arrivals < expected) return;
    phase = COMPLETE;
    if (!perHost()) logins.finish(0);
    file.reset();
    port->close();
}

void LaunchedJob::setSize(int size) {
    present.assign(static_cast<std::size_t>(size), perHost());
    for (const std::vector<int>& clients : remote) {
        for (const int each : clients)
            present[static_cast<std::size_t>(each)] = false;
    }
    expected = static_cast<std::size_t>(std::ranges::count(present, false));
    owner.onSize(size);
}

void LaunchedJob::onEnded(std::size_t login, const std::string& how) {
    const std::string ending = prefix(login) + "(" + how +
                               (logins.failed(login) ? ": it has ended the job)"
                                                     : "; tasks that end with it are removed)");
    if (phase == OVER) {
        if (const auto remedy = logins.remedy(login)) owner.onLeftBehind(plan.launcher[0], *remedy);
        if (tells && logins.failed(login)) owner.onLauncherSaid(ending);
        return;
    }
    if (logins.finished(login)) return owner.onLauncherSaid(ending);
    if (perHost()) {
        const std::string& host = hostOf(login);
        const std::string problem =
            plan.launcher[0] + " for host " + host + " " + how +
            " before its task was there. Does this work: " + joined(plan.launcher) + " " + host +
            " " + plan.agent + " --version";
        if (!plan.lenient) return fail(problem);
        return giveUp(login, problem);
    }
    fail("the launcher " + how + " before all tasks were there (" +
         (size() == 0 ? std::string("none was")
                      : std::to_string(arrivals) + " of " + std::to_string(expected)) +
         "). " +
         (spoke ? "What it said stands above; options of its own go into --launch."
                : "Does this work: " + joined(plan.launcher) + " " + plan.agent + " --version"));
}

// The job does without the tasks of this host.
void LaunchedJob::giveUp(std::size_t login, const std::string& problem) {
    if (phase != GATHERING) return;
    ClientSet missing;
    for (const int client : remote[login]) {
        if (!isPresent(client)) missing.insert(client);
    }
    for (const int client : missing)
        markPresent(client);
    owner.onMissing(missing, problem);
    for (std::size_t i = 0; i < missing.size(); ++i)
        count();
}

std::set<std::string> LaunchedJob::awaitedHosts() const {
    std::set<std::string> hosts;
    for (std::size_t i = 0; perHost() && i < logins.count(); ++i) {
        if (logins.underWay(i)) hosts.insert(hostOf(i));
    }
    return hosts;
}

void LaunchedJob::stop(bool stillTells) {
    phase = OVER;
    tells = stillTells;
    file.reset();
    if (port) port->close();
    logins.stop();
}

void LaunchedJob::fail(const std::string& problem) {
    stop();
    owner.onJobFailed(problem);
}
