#include "backend/jobs/jobprocesses.h"

#include "backend/os/directory.h"
#include "backend/os/rankvariables.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using Environment = std::map<std::string, std::string>;

// The variables that name the job, where the rank is told by these.
struct Key {
    std::string_view rank;
    std::vector<std::string> names;
};
const std::vector<Key>& keys() {
    static const std::vector<Key> all{
        {"OMPI_COMM_WORLD_RANK", {"PMIX_NAMESPACE"}},
        {"PMI_RANK", {"PMI_JOBID"}},
        {"PMIX_RANK", {"PMIX_NAMESPACE"}},
        {"SLURM_PROCID", {"SLURM_JOB_ID", "SLURM_STEP_ID"}},
    };
    return all;
}

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    // Inserting stops where the process vanishes.
    text << file.rdbuf();
    return text.str();
}

Environment environmentOf(const fs::path& process) {
    std::istringstream all(contentOf(process / "environ"));
    Environment found;
    for (std::string entry; std::getline(all, entry, '\0');) {
        const std::size_t sign = entry.find('=');
        if (sign != std::string::npos) found.emplace(entry.substr(0, sign), entry.substr(sign + 1));
    }
    return found;
}

const char* valueOf(const Environment& environment, const std::string& name) {
    const auto at = environment.find(name);
    return at == environment.end() ? nullptr : at->second.c_str();
}

// The variable that tells the rank; null: none does.
const char* rankVariable(const Environment& environment) {
    for (const RankVariables::Names& each : RankVariables::all) {
        if (RankVariables::valueOf(valueOf(environment, each.rank)) >= 0) return each.rank;
    }
    return nullptr;
}

int sizeOf(const Environment& environment) {
    for (const RankVariables::Names& each : RankVariables::all) {
        if (RankVariables::valueOf(valueOf(environment, each.rank)) < 0) continue;
        const int size = RankVariables::valueOf(valueOf(environment, each.jobSize));
        if (size > 0) return size;
    }
    return -1;
}

JobProcesses::Name nameOf(const Environment& environment) {
    const char* const rank = rankVariable(environment);
    const auto key = std::ranges::find(keys(), std::string_view(rank ? rank : ""), &Key::rank);
    if (key == keys().end()) return "";
    std::string name;
    for (const std::string& each : key->names) {
        const char* const value = valueOf(environment, each);
        if (!value || !*value) return "";
        name.append(name.empty() ? "" : " ").append(each).append("=").append(value);
    }
    return name;
}

bool belongs(const Environment& environment, const JobProcesses::Name& job) {
    const std::string name = nameOf(environment);
    return !name.empty() && (job.ends_with('@') ? name.starts_with(job) : name == job);
}

// A process that has the job's variables.
struct Member {
    int rank;
    pid_t parent;
    unsigned long long start;
};

// The fields of stat(5) behind the name, which may hold anything; nothing when it is dead.
std::optional<Member> memberOf(const fs::path& process, int rank) {
    const std::string stat = contentOf(process / "stat");
    const std::size_t bracket = stat.rfind(')');
    if (bracket == std::string::npos) return std::nullopt;
    std::istringstream fields(stat.substr(bracket + 1));
    std::string state, skipped;
    Member found{rank, 0, 0};
    fields >> state >> found.parent;
    for (int field = 5; field < 22; ++field)
        fields >> skipped;
    fields >> found.start;
    if (!fields || state == "Z" || state == "X") return std::nullopt;
    return found;
}

bool isOwn(const fs::path& process) {
    struct stat status {};
    return ::stat(process.c_str(), &status) == 0 && status.st_uid == ::geteuid();
}

} // namespace

JobProcesses::Name JobProcesses::nameOf(pid_t process, const std::string& proc) {
    return ::nameOf(environmentOf(fs::path(proc) / std::to_string(process)));
}

int JobProcesses::sizeOf(pid_t process, const std::string& proc) {
    return ::sizeOf(environmentOf(fs::path(proc) / std::to_string(process)));
}

JobProcesses::Job JobProcesses::find(const Name& job, const std::string& proc) {
    Job found;
    std::map<pid_t, Member> members;
    for (const std::string& name : namesIn(proc)) {
        const auto pid = wholeNumber<pid_t>(name);
        const fs::path path = fs::path(proc) / name;
        if (!pid || !isOwn(path)) continue;
        const Environment environment = environmentOf(path);
        if (!belongs(environment, job)) continue;
        const int rank = RankVariables::valueOf(valueOf(environment, rankVariable(environment)));
        if (const auto member = memberOf(path, rank)) members.emplace(*pid, *member);
        if (found.size == -1) found.size = ::sizeOf(environment);
    }
    // Of several, the first one: the others have lost the parent that they came from.
    std::map<int, std::pair<unsigned long long, pid_t>> firsts;
    for (const auto& [pid, member] : members) {
        const auto parent = members.find(member.parent);
        if (parent != members.end() && parent->second.rank == member.rank) continue;
        const auto [at, isNew] = firsts.try_emplace(member.rank, member.start, pid);
        if (!isNew) at->second = std::min(at->second, {member.start, pid});
    }
    for (const auto& [rank, first] : firsts)
        found.tasks.push_back({rank, first.second});
    return found;
}

// A number behind the program's name is the program's own.
int JobProcesses::sizeIn(const std::vector<std::string>& words) {
    static const std::set<std::string> counts{"-n", "-np", "--np", "-c", "--n", "--ntasks"};
    static const std::map<std::string, std::size_t> values{
        {"--host", 1},   {"-host", 1},     {"-H", 1},    {"--hostfile", 1}, {"-hostfile", 1},
        {"-f", 1},       {"-N", 1},        {"-ppn", 1},  {"-x", 1},         {"-machinefile", 1},
        {"--map-by", 1}, {"--bind-to", 1}, {"-wdir", 1}, {"--wdir", 1},     {"-env", 2},
        {"-genv", 2},    {"--mca", 2},     {"-mca", 2},  {"--prtemca", 2},  {"--pmixmca", 2},
    };
    int sum = 0;
    bool ofLauncher = true;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const auto skipped = values.find(words[i]);
        if (words[i] == ":") {
            ofLauncher = true;
        } else if (!ofLauncher) {
            continue;
        } else if (counts.contains(words[i]) && i + 1 < words.size()) {
            const auto number = wholeNumber<int>(words[++i]);
            if (number && *number > 0 && *number < 1 << 24) sum += *number;
        } else if (skipped != values.end()) {
            i += skipped->second;
        } else {
            ofLauncher = words[i].starts_with('-');
        }
    }
    return sum > 0 ? sum : -1;
}

std::optional<JobProcesses::Daemon> JobProcesses::daemonIn(const std::vector<std::string>& words) {
    const auto daemon = std::ranges::find_if(words, [](const std::string& word) {
        return word == "prted" || word.find("/prted") != word.npos || word.starts_with("prted ");
    });
    if (daemon - words.begin() < 2 || daemon == words.end() || daemon[-1].starts_with('-'))
        return std::nullopt;
    std::string rest;
    for (auto word = daemon; word != words.end(); ++word)
        rest.append(*word).append(" ");
    // A shell there takes quotation marks off.
    std::erase_if(rest, [](char c) { return c == '"' || c == '\''; });
    const std::string option = "ess_base_nspace ";
    const std::size_t at = rest.find(option);
    if (at == std::string::npos) return std::nullopt;
    std::istringstream behind(rest.substr(at + option.size()));
    std::string space;
    behind >> space;
    // The daemons' own namespace is number 0 of the launcher's.
    const std::size_t number = space.rfind('@');
    if (number == std::string::npos) return std::nullopt;
    return Daemon{daemon[-1], "PMIX_NAMESPACE=" + space.substr(0, number + 1)};
}
