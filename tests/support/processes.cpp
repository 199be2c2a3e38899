#include "tests/support/processes.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

std::string Processes::content(pid_t pid, const char* file) {
    std::ifstream stream("/proc/" + std::to_string(pid) + "/" + file, std::ios::binary);
    std::ostringstream text;
    // Inserting stops where the process vanishes; iterators over the buffer would throw.
    text << stream.rdbuf();
    return text.str();
}

using Processes::content;

namespace {

struct Stat {
    char state = 'X';
    pid_t parent = 0;
};

// "pid (name) state parent ...", where the name may hold anything.
Stat statOf(pid_t pid) {
    const std::string text = content(pid, "stat");
    const std::size_t end = text.rfind(')');
    Stat stat;
    if (end != std::string::npos)
        std::istringstream(text.substr(end + 1)) >> stat.state >> stat.parent;
    return stat;
}

} // namespace

std::vector<pid_t> Processes::descendants(pid_t ancestor) {
    std::vector<pid_t> found;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(entry.path().filename().c_str()); // 0 when it is no process
        pid_t at = pid;
        while (at > 1 && (at == pid || at != ancestor))
            at = statOf(at).parent;
        if (pid > 0 && at == ancestor) found.push_back(pid);
    }
    return found;
}

std::vector<pid_t> Processes::startedWith(const std::string& entry) {
    std::vector<pid_t> found;
    for (const auto& each : std::filesystem::directory_iterator("/proc")) {
        const pid_t pid = std::atoi(each.path().filename().c_str());
        if (pid > 0 && content(pid, "environ").find(entry + '\0') != std::string::npos)
            found.push_back(pid);
    }
    return found;
}

pid_t Processes::parent(pid_t pid) { return statOf(pid).parent; }

std::string Processes::name(pid_t pid) {
    const std::string text = content(pid, "comm");
    return text.substr(0, text.find('\n'));
}

bool Processes::lives(pid_t pid) {
    const char state = statOf(pid).state;
    return state != 'X' && state != 'Z';
}
