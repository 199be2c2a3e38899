#include "backend/jobs/runningjob.h"

#include "backend/jobs/jobprocesses.h"
#include "backend/jobs/mpir.h"
#include "backend/os/processtree.h"
#include "backend/os/rankvariables.h"
#include "backend/os/text.h"
#include "backend/os/thismachine.h"

#include <algorithm>
#include <arpa/inet.h>
#include <iterator>
#include <netinet/in.h>
#include <set>
#include <stdexcept>

namespace {

std::string shortName(const std::string& host) { return host.substr(0, host.find('.')); }

// MPICH's process manager: one on each host, the parent of the tasks there.
constexpr const char* manager = "hydra_pmi_proxy";

// "a, b, c and 2 more"
std::string listed(const std::set<std::string>& names) {
    constexpr std::size_t maxNamed = 3;
    std::string text;
    std::size_t count = 0;
    for (const std::string& name : names) {
        if (++count > maxNamed)
            return text + " and " + std::to_string(names.size() - maxNamed) + " more";
        text.append(count == 1 ? "" : ", ").append(name);
    }
    return text;
}

// The word behind this one; empty when it is not there.
std::string behind(const std::vector<std::string>& words, const std::string& option) {
    const auto at = std::ranges::find(words, option);
    return words.end() - at < 2 ? "" : at[1];
}

// The name of the process manager with this command line.
std::string nameIn(const std::vector<std::string>& words) {
    return behind(words, "--control-port") + "/" + behind(words, "--proxy-id");
}

// The address as this machine writes it; empty when the text is none.
std::string canonicalAddress(const std::string& text) {
    unsigned char bytes[sizeof(in6_addr)];
    char canonical[INET6_ADDRSTRLEN];
    for (int family : {AF_INET, AF_INET6}) {
        if (::inet_pton(family, text.c_str(), bytes) == 1 &&
            ::inet_ntop(family, bytes, canonical, sizeof canonical))
            return canonical;
    }
    return "";
}

bool isOwnAddress(const std::string& address) {
    return std::ranges::count(ThisMachine::addresses(), address, &ThisMachine::Address::figures) >
           0;
}

} // namespace

bool RunningJob::isThisMachine(const std::string& host) {
    if (host == "localhost") return true;
    if (const std::string address = canonicalAddress(host); !address.empty())
        return isOwnAddress(address);
    const std::string own = ThisMachine::hostName();
    if (own.empty()) return false;
    // Either name may be without its domain.
    return host == own || ((host.find('.') == std::string::npos || own.find('.') == own.npos) &&
                           shortName(host) == shortName(own));
}

void RunningJob::add(const Target& target) {
    if (!known.emplace(target.host, target.pid).second)
        throw std::runtime_error("process " + std::to_string(target.pid) +
                                 (target.host.empty() ? "" : " of " + target.host) +
                                 " is named twice.");
    // Such a host would be an option of the command that it is given to.
    if (target.host.starts_with('-')) throw std::runtime_error("'" + target.host + "' is no host.");
    found.push_back(target);
    if (target.rank >= 0) ranks.insert(target.rank);
}

void RunningJob::addRemote(const Target& target) {
    if (target.rank < 0 || !ranks.contains(target.rank)) add(target);
}

bool RunningJob::isHere(const std::string& host) {
    const auto [at, isNew] = answers.try_emplace(host, false);
    if (isNew) at->second = here(host);
    return at->second;
}

void RunningJob::addPids(const std::vector<pid_t>& pids) {
    for (pid_t pid : pids)
        add({-1, pid});
}

void RunningJob::addEntries(const TALConfig& config) {
    for (int i = 0; i < config.getEntryNum(); ++i) {
        const std::string start = "task " + std::to_string(config.getTask(i)) + " is left out: ";
        const std::string& name = config.getHostName(i);
        const std::string& address = config.getIP(i);
        if (config.getPid(i) <= 0)
            remarks.push_back(start + "it has no process");
        else if ((name.empty() && address.empty()) || isHere(name) || isHere(address))
            add({config.getTask(i), config.getPid(i)});
        else
            add({config.getTask(i), config.getPid(i), name.empty() ? address : name,
                 Text::baseName(config.getExe(i))});
    }
}

bool RunningJob::addTable(pid_t launcher) {
    const std::vector<Mpir::Entry> table = Mpir::tableOf(launcher);
    // The table of an srun that has started MPICH's managers names these and not the tasks.
    if (!table.empty() && Text::baseName(table[0].executable) == manager) return false;
    for (std::size_t i = 0; i < table.size(); ++i) {
        const int rank = static_cast<int>(i);
        if (isHere(table[i].host))
            add({rank, ProcessTree::programOf(table[i].pid)});
        else
            add({rank, table[i].pid, table[i].host, Text::baseName(table[i].executable)});
    }
    return !table.empty();
}

bool RunningJob::addByManagers(const std::vector<pid_t>& processes) {
    const std::size_t before = found.size();
    for (pid_t each : processes) {
        if (ProcessTree::nameOf(each) != manager) continue;
        for (pid_t task : ProcessTree::children(each)) {
            add({RankVariables::rankOf(task), ProcessTree::programOf(task)});
            noteSize(JobProcesses::sizeOf(task));
        }
    }
    return found.size() > before;
}

void RunningJob::addManaged(const std::string& name) {
    if (name.find('=') != std::string::npos) {
        addNamed(name);
        return;
    }
    std::vector<pid_t> processes = ProcessTree::everyone();
    std::erase_if(processes,
                  [&name](pid_t id) { return nameIn(ProcessTree::wordsOf(id)) != name; });
    addByManagers(processes);
}

// MPICH's are started by "ssh -x HOST "/usr/bin/hydra_pmi_proxy" --control-port HOST:PORT ...".
void RunningJob::noteManagers(const std::vector<pid_t>& processes) {
    for (const pid_t id : processes) {
        const std::vector<std::string> words = ProcessTree::wordsOf(id);
        if (const auto daemon = JobProcesses::daemonIn(words)) {
            noteManager({daemon->host, daemon->job});
            continue;
        }
        const auto at = std::ranges::find_if(
            words, [](const std::string& word) { return word.find(manager) != word.npos; });
        if (at - words.begin() < 2 || at == words.end() || at[-1].starts_with('-')) continue;
        noteManager({at[-1], nameIn(words)});
    }
}

// Also a wrapper around ssh has its words.
void RunningJob::noteManager(const Manager& one) {
    if (std::ranges::find(elsewhere, one) == elsewhere.end()) elsewhere.push_back(one);
}

bool RunningJob::addByRank(const std::vector<pid_t>& processes) {
    const std::size_t before = found.size();
    std::string job;
    for (pid_t id : processes) {
        const int rank = RankVariables::rankOf(id);
        // What a task has started inherits its rank; the task itself comes first.
        if (rank < 0 || ranks.contains(rank)) continue;
        add({rank, ProcessTree::programOf(id)});
        noteSize(JobProcesses::sizeOf(id));
        if (job.empty()) job = JobProcesses::nameOf(id);
    }
    // A daemon of the launcher's may have started others.
    if (!job.empty()) addNamed(job);
    return found.size() > before;
}

// Those of this machine.
bool RunningJob::addNamed(const std::string& name) {
    const std::size_t before = found.size();
    const JobProcesses::Job job = JobProcesses::find(name);
    for (const JobProcesses::Task& task : job.tasks) {
        if (!ranks.contains(task.rank)) add({task.rank, ProcessTree::programOf(task.pid)});
    }
    noteSize(job.size);
    return found.size() > before;
}

void RunningJob::addJob(pid_t launcher) {
    const std::string number = std::to_string(launcher);
    if (ProcessTree::nameOf(launcher).empty())
        throw std::runtime_error("there is no process " + number +
                                 ". Look for the job's launcher with: ps -u $USER");
    std::vector<pid_t> below = ProcessTree::descendants(launcher);
    std::ranges::reverse(below);
    std::vector<pid_t> launchers{launcher};
    // A script may have started it.
    std::ranges::copy_if(below, std::back_inserter(launchers), [](pid_t id) {
        static const std::set<std::string> names{"mpirun", "mpiexec", "orterun", "prterun", "srun"};
        const std::string name = ProcessTree::nameOf(id);
        return names.contains(name.substr(0, name.find('.')));
    });
    for (pid_t each : launchers) {
        if (addTable(each)) return;
    }
    noteManagers(below);
    // Started by a task of another job, they have the variables of that one as well.
    if (const std::string own = JobProcesses::nameOf(launcher); !own.empty())
        std::erase_if(below, [&own](pid_t id) { return JobProcesses::nameOf(id) == own; });
    const bool some = addByManagers(below) || addByRank(below);
    if (jobSize == -1) noteSize(JobProcesses::sizeIn(ProcessTree::wordsOf(launchers.back())));
    if (some || !elsewhere.empty()) return;
    throw std::runtime_error("process " + number + " (" + ProcessTree::nameOf(launcher) +
                             ") has no tasks of a parallel job. Name the job's mpirun, mpiexec or "
                             "srun, or the tasks themselves with --attach.");
}

std::string RunningJob::Shortfall::str() const {
    return "ranks " + Text::list(ranks) + " of " + std::to_string(size) + " are missing: " + why;
}

std::optional<RunningJob::Shortfall> RunningJob::shortfall() const {
    if (jobSize <= static_cast<int>(ranks.size()) || ranks.size() < found.size())
        return std::nullopt;
    Shortfall missing{{}, jobSize, "no process of yours on this host"};
    for (int rank = 0; rank < jobSize; ++rank) {
        if (!ranks.contains(rank)) missing.ranks.insert(rank);
    }
    std::set<std::string> asked;
    for (const Manager& each : elsewhere) {
        if (!silent.contains(each.host)) asked.insert(each.host);
    }
    std::string& text = missing.why;
    if (!asked.empty()) text += " or on " + listed(asked);
    text += " has them";
    if (!silent.empty()) text += ", and " + listed(silent) + " could not be asked";
    if (elsewhere.empty()) text += ", and the launcher does not tell of another host";
    return missing;
}

std::vector<Target> RunningJob::targets() const {
    std::vector<Target> ordered = found;
    std::ranges::stable_sort(ordered, {}, &Target::rank);
    return ordered;
}
