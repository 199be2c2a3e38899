#include "frontend/executables.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace {

bool isExecutable(const std::string& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

// A program that is installed together with this one.
std::string companion(const std::string& name, const std::string& option) {
    std::error_code fault;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", fault);
    const std::string beside = (self.parent_path() / name).string();
    if (!fault && isExecutable(beside)) return beside;
    if (const auto found = Executables::find(name)) return *found;
    throw std::runtime_error("cannot find " + name +
                             ", neither beside vex nor in PATH. Install it, or name it with " +
                             option + ".");
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
    if (isExecutable(here)) return here;
    if (bare) {
        if (const auto found = find(name)) return *found;
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

std::string Executables::console(const std::string& given) {
    if (!given.empty()) {
        if (const auto found = find(given)) return *found;
        throw std::runtime_error("cannot find the console program '" + given + "'.");
    }
    return companion("vexconsole", "--console");
}

std::string Executables::agent() {
    return std::filesystem::absolute(companion("vexagent", "--agent")).lexically_normal().string();
}

std::string Executables::debugger(const std::string& name) {
    if (const auto found = find(name)) return *found;
    throw std::runtime_error("cannot find the debugger '" + name +
                             "'. Install it (Debian: apt-get install gdb), or name one with "
                             "--debugger.");
}
