#include "backend/os/processtree.h"

#include "backend/os/directory.h"
#include "common/descriptor.h"
#include "common/wholenumber.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <linux/kcmp.h>
#include <map>
#include <set>
#include <sstream>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// A field of /proc/PID/stat, counted as proc(5) does, from the third on; the second, a name in
// brackets, may hold anything. Empty: it is gone, or dead and not reaped.
std::string statField(pid_t id, int number) {
    const std::string stat = ProcessTree::fileOf(id, "stat");
    const std::size_t bracket = stat.rfind(')');
    if (bracket == std::string::npos) return "";
    std::istringstream fields(stat.substr(bracket + 1));
    std::string state, field;
    fields >> state;
    if (state == "Z" || state == "X") return "";
    for (int at = 3; at < number; ++at)
        fields >> field;
    return field;
}

// Most kernels list the children of each thread (CONFIG_PROC_CHILDREN).
bool listsChildren() {
    static const bool lists = ::access("/proc/thread-self/children", R_OK) == 0;
    return lists;
}

// The living children of a process as the kernel lists them. One may be missing while another one
// ends; a list without any is complete.
std::vector<pid_t> listedChildren(pid_t parent) {
    std::vector<pid_t> found;
    for (const std::string& thread : namesIn("/proc/" + std::to_string(parent) + "/task")) {
        std::istringstream ids(ProcessTree::fileOf(parent, "task/" + thread + "/children"));
        for (pid_t id; ids >> id;) {
            if (ProcessTree::parentOf(id) == parent) found.push_back(id);
        }
    }
    return found;
}

} // namespace

std::vector<pid_t> ProcessTree::everyone() {
    std::vector<pid_t> ids;
    for (const std::string& name : namesIn("/proc")) {
        if (const auto id = wholeNumber<pid_t>(name)) ids.push_back(*id);
    }
    return ids;
}

std::string ProcessTree::fileOf(pid_t id, const std::string& name) {
    const std::string path = "/proc/" + std::to_string(id) + "/" + name;
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    std::string text;
    std::array<char, 8192> piece;
    for (ssize_t got; file && (got = ::read(file.get(), piece.data(), piece.size())) > 0;)
        text.append(piece.data(), static_cast<std::size_t>(got));
    return text;
}

std::string ProcessTree::statusField(pid_t pid, const std::string& name) {
    // The name that the process gave itself stands in front, without newlines.
    const std::string text = '\n' + fileOf(pid, "status");
    const std::size_t line = text.find('\n' + name + ':');
    if (line == std::string::npos) return "";
    const std::size_t end = text.find('\n', line + 1);
    const std::size_t begin = text.find_first_not_of(" \t", line + name.size() + 2);
    return begin < end ? text.substr(begin, end - begin) : "";
}

pid_t ProcessTree::parentOf(pid_t id) { return std::atoi(statField(id, 4).c_str()); }

unsigned long long ProcessTree::startOf(pid_t id) {
    return std::strtoull(statField(id, 22).c_str(), nullptr, 10);
}

std::string ProcessTree::executableOf(pid_t id) {
    std::error_code fault;
    return std::filesystem::read_symlink("/proc/" + std::to_string(id) + "/exe", fault).string();
}

bool ProcessTree::shareMemory(pid_t one, pid_t other) {
    return ::syscall(SYS_kcmp, one, other, KCMP_VM, 0, 0) == 0;
}

std::vector<pid_t> ProcessTree::descendants(pid_t root, pid_t except) {
    std::multimap<pid_t, pid_t> all;
    if (!listsChildren()) {
        for (pid_t id : everyone())
            all.emplace(parentOf(id), id);
    }
    std::vector<pid_t> found{root};
    for (std::size_t i = 0; i < found.size(); ++i) {
        if (listsChildren()) {
            for (const pid_t child : listedChildren(found[i]))
                all.emplace(found[i], child);
        }
        const auto [first, last] = all.equal_range(found[i]);
        for (auto each = first; each != last; ++each) {
            if (each->second != except) found.push_back(each->second);
        }
    }
    std::reverse(found.begin(), found.end());
    found.pop_back();
    return found;
}

std::vector<pid_t> ProcessTree::children(pid_t parent) {
    if (listsChildren()) return listedChildren(parent);
    std::vector<pid_t> found = everyone();
    std::erase_if(found, [parent](pid_t id) { return parentOf(id) != parent; });
    return found;
}

std::string ProcessTree::nameOf(pid_t id) {
    const std::string text = fileOf(id, "comm");
    return text.substr(0, text.find('\n'));
}

pid_t ProcessTree::programOf(pid_t task) {
    static const std::set<std::string> shells{"sh", "bash", "dash", "ksh", "zsh", "csh", "tcsh"};
    while (shells.contains(nameOf(task))) {
        const std::vector<pid_t> below = ProcessTree::children(task);
        if (below.size() != 1) break;
        task = below[0];
    }
    return task;
}

std::vector<std::string> ProcessTree::wordsOf(pid_t id) {
    std::istringstream text(fileOf(id, "cmdline"));
    std::vector<std::string> words;
    for (std::string word; std::getline(text, word, '\0');)
        words.push_back(word);
    return words;
}

std::optional<std::string> ProcessTree::variable(pid_t id, const std::string& name) {
    std::istringstream all(fileOf(id, "environ"));
    for (std::string entry; std::getline(all, entry, '\0');) {
        if (entry.starts_with(name + "=")) return entry.substr(name.size() + 1);
    }
    return std::nullopt;
}

void ProcessTree::killDescendants(pid_t root, pid_t except) {
    // A process can start another one between the look and the blow, so look again.
    for (int round = 0; round < 200; ++round) {
        const std::vector<pid_t> living = descendants(root, except);
        if (living.empty()) return;
        for (pid_t id : living)
            ::kill(id, SIGKILL);
        ::usleep(5000);
    }
}

std::optional<pid_t> ProcessTree::endedChild() {
    siginfo_t what{};
    if (::waitid(P_ALL, 0, &what, WEXITED | WNOHANG | WNOWAIT) == -1 || what.si_pid == 0)
        return std::nullopt;
    return what.si_pid;
}

void ProcessTree::reapStrangers(const std::vector<pid_t>& known) {
    while (const auto child = endedChild()) {
        // Its owner waits for it; the others come after that.
        if (std::binary_search(known.begin(), known.end(), *child)) return;
        ::waitpid(*child, nullptr, WNOHANG);
    }
}
