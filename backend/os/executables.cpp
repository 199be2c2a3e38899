#include "backend/os/executables.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isExecutable(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

// A program that is installed together with this program.
std::string companion(const std::string& name, const std::string& remedy) {
    std::error_code fault;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", fault);
    const std::string beside = (self.parent_path() / name).string();
    if (!fault && isExecutable(beside)) return beside;
    if (const auto found = Executables::find(name)) return *found;
    throw std::runtime_error("cannot find " + name +
                             ", neither beside vex nor in PATH. Install it" + remedy + ".");
}

// The beginning of a file: as much of an ELF header as tells the machine (elf(5)).
std::string headOf(const std::string& path) {
    std::string head(20, '\0');
    std::ifstream file(path, std::ios::binary);
    file.read(head.data(), static_cast<std::streamsize>(head.size()));
    head.resize(static_cast<std::size_t>(file.gcount()));
    return head;
}

// A debugger would say what is wrong once for each task, and in its own words.
void checkFormat(const std::string& path, const std::string& name) {
    const std::string head = headOf(path), own = headOf("/proc/self/exe");
    if (head.empty()) return; // it may be executed and not read
    if (head.starts_with("#!")) return;
    if (!head.starts_with("\177ELF"))
        throw std::runtime_error("'" + name + "' is no program for this system. See: file " + name);
    if (head.size() == own.size() && head.compare(18, 2, own, 18, 2) != 0)
        throw std::runtime_error("'" + name +
                                 "' is a program for another kind of processor. Build it for this "
                                 "one. See: file " +
                                 name);
}

} // namespace

std::optional<std::string> Executables::find(const std::string& name) {
    if (name.find('/') != std::string::npos)
        return isExecutable(name) ? std::optional(name) : std::nullopt;
    const char* path = std::getenv("PATH");
    std::istringstream folders(path ? path : "/usr/local/bin:/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string file = (folder.empty() ? "." : folder) + "/" + name;
        if (isExecutable(file)) return file;
    }
    return std::nullopt;
}

std::string Executables::program(const std::string& name) {
    const bool bare = name.find('/') == std::string::npos;
    const std::string here = bare ? "./" + name : name;
    std::optional<std::string> found;
    if (isExecutable(here))
        found = here;
    else if (bare)
        found = find(name);
    if (found) {
        checkFormat(*found, name);
        return *found;
    }
    struct stat status {};
    if (::stat(here.c_str(), &status) == -1) {
        throw std::runtime_error("cannot find the program '" + name + "': " + std::strerror(errno) +
                                 (bare ? ". It is neither here nor in PATH; give its path."
                                       : ". Check the path, or build it first."));
    }
    if (S_ISDIR(status.st_mode))
        throw std::runtime_error("'" + name + "' is a directory; name the program in it.");
    throw std::runtime_error("'" + name +
                             "' is not executable. Is it the program? Then try: chmod +x " + name);
}

bool Executables::isScript(const std::string& path) { return headOf(path).starts_with("#!"); }

bool Executables::isWrapper(const std::string& path) {
    static constexpr std::string_view wrappers[] = {
        "chrt",    "env",    "ionice", "nice",    "nohup", "numactl", "prlimit",
        "setarch", "setsid", "stdbuf", "taskset", "time",  "timeout"};
    const std::string name = std::filesystem::path(path).filename().string();
    return std::ranges::find(wrappers, name) != std::end(wrappers);
}

std::string Executables::console(const std::string& given) {
    if (!given.empty()) {
        if (const auto found = find(given)) return *found;
        throw std::runtime_error("cannot find the console program '" + given + "'.");
    }
    return companion("vexconsole", ", or name it with --console");
}

std::string Executables::reporter() { return companion("vexreport", ""); }

std::string Executables::agent() {
    return std::filesystem::absolute(companion("vexagent", ", or name it with --agent"))
        .lexically_normal()
        .string();
}

std::string Executables::mpiLibrary(const std::string& agent) {
    namespace fs = std::filesystem;
    std::error_code fault;
    const fs::path self = fs::read_symlink("/proc/self/exe", fault);
    const fs::path folder =
        agent.find('/') == std::string::npos ? self.parent_path() : fs::path(agent).parent_path();
    const fs::path beside = folder / "libvexmpi.so";
    const fs::path installed = folder.parent_path() / VEX_LIBDIR "/vex/libvexmpi.so";
    const std::string path = fs::exists(beside, fault) ? beside.string() : installed.string();
    // An agent may be on the tasks' hosts only, and its library, too.
    if (!fs::exists(path, fault) && folder == self.parent_path())
        throw std::runtime_error("cannot find libvexmpi.so, neither beside vex nor as " + path +
                                 ". Install it, or leave out --trace-mpi.");
    const auto isPlain = [](unsigned char c) {
        return std::isalnum(c) != 0 ||
               std::string_view("/._+-@%,").find(char(c)) != std::string::npos;
    };
    if (!std::ranges::all_of(path, isPlain))
        throw std::runtime_error("no program can load '" + path +
                                 "': its path has characters that LD_PRELOAD does not take.");
    return path;
}

std::string Executables::debugger(const std::string& name) {
    if (const auto found = find(name)) return *found;
    const bool lldb = name.substr(name.rfind('/') + 1).starts_with("lldb");
    throw std::runtime_error("cannot find the debugger '" + name +
                             "'. Install it (Debian: apt-get install " + (lldb ? "lldb" : "gdb") +
                             "), or name one with --debugger.");
}
