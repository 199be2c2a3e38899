#include "agent/script/imitation.h"

#include "backend/os/processtree.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <sched.h>
#include <set>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

// The texts of a file of /proc, each with a NUL behind it.
std::vector<std::string> textsOf(pid_t model, const char* file) {
    const std::string all = ProcessTree::fileOf(model, file);
    std::vector<std::string> texts;
    for (std::size_t begin = 0; begin < all.size();) {
        const std::size_t end = std::min(all.find('\0', begin), all.size());
        texts.push_back(all.substr(begin, end - begin));
        begin = end + 1;
    }
    return texts;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    return pointers;
}

// A number of a line of /proc/PID/status; 0: there is none.
unsigned long long statusOf(const std::string& status, const std::string& name, int base) {
    const std::size_t at = status.find("\n" + name + ":");
    return at == std::string::npos
               ? 0
               : std::strtoull(status.c_str() + at + name.size() + 2, nullptr, base);
}

void takeDescriptors(std::vector<std::pair<int, Descriptor>> wanted) {
    int above = STDERR_FILENO;
    std::set<int> numbers;
    for (const auto& [number, copy] : wanted) {
        above = std::max(above, number);
        numbers.insert(number);
    }
    // None stands where another is to be.
    for (auto& [number, copy] : wanted) {
        const int moved = ::fcntl(copy.get(), F_DUPFD_CLOEXEC, above + 1);
        if (moved == -1) throw std::system_error(errno, std::generic_category(), "fcntl");
        copy.reset(moved);
    }
    for (const auto& [number, copy] : wanted)
        ::dup2(copy.get(), number);
    // What the script has closed.
    for (int number = 0; number <= above; ++number) {
        if (!numbers.contains(number)) ::close(number);
    }
}

} // namespace

void imitate(Follower::Found found) {
    const pid_t model = found.model;
    const std::string folder = "/proc/" + std::to_string(model) + "/";
    const std::string program = ProcessTree::executableOf(model);
    auto arguments = textsOf(model, "cmdline"), environment = textsOf(model, "environ");
    const std::string status = ProcessTree::fileOf(model, "status");
    std::error_code fault;
    const auto directory = std::filesystem::read_symlink(folder + "cwd", fault);
    if (!fault) std::filesystem::current_path(directory, fault);
    ::umask(static_cast<mode_t>(statusOf(status, "Umask", 8)));
    const unsigned long long ignored = statusOf(status, "SigIgn", 16);
    for (int number = 1; number < 32; ++number) {
        if (number != SIGKILL && number != SIGSTOP)
            ::signal(number, (ignored >> (number - 1) & 1) != 0 ? SIG_IGN : SIG_DFL);
    }
    for (int kind = 0; kind < RLIM_NLIMITS; ++kind) {
        const auto which = static_cast<__rlimit_resource>(kind);
        rlimit limit{};
        if (::prlimit(model, which, nullptr, &limit) == 0) ::setrlimit(which, &limit);
    }
    cpu_set_t processors;
    if (::sched_getaffinity(model, sizeof processors, &processors) == 0)
        ::sched_setaffinity(0, sizeof processors, &processors);
    ::setpriority(PRIO_PROCESS, 0, ::getpriority(PRIO_PROCESS, static_cast<id_t>(model)));
    takeDescriptors(std::move(found.descriptors));
    ::execve(program.c_str(), pointersTo(arguments).data(), pointersTo(environment).data());
    throw std::system_error(errno, std::generic_category(), program);
}
