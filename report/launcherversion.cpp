#include "report/launcherversion.h"

#include "backend/folding/safetext.h"
#include "backend/os/processtree.h"
#include "backend/os/text.h"
#include "common/descriptor.h"

#include <algorithm>
#include <cstddef>
#include <fcntl.h>
#include <poll.h>
#include <sstream>
#include <system_error>
#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 3s;
constexpr std::size_t longest = 200; // bytes of the line
constexpr std::size_t most = 65536;  // of the answer

bool isLauncher(const std::string& path) {
    static constexpr std::string_view beginnings[] = {"mpirun",  "mpiexec", "orterun", "orted",
                                                      "prterun", "prun",    "srun"};
    const std::string name = Text::baseName(path);
    return name == "ssh" || std::ranges::any_of(beginnings, [&name](std::string_view each) {
               return name.starts_with(each);
           });
}

bool hasDigit(const std::string& line) {
    return line.find_first_of("0123456789") != std::string::npos;
}

} // namespace

void LauncherVersion::ask(const std::vector<std::string>& words) {
    const auto found = std::ranges::find_if(words, isLauncher);
    if (found != words.end()) start(*found);
}

void LauncherVersion::askProcess(pid_t root) {
    std::vector<pid_t> all = ProcessTree::descendants(root);
    all.push_back(root);
    // The outermost is the one that a user has typed.
    for (auto at = all.rbegin(); at != all.rend(); ++at) {
        const std::string program = ProcessTree::executableOf(*at);
        if (isLauncher(program)) return start(program);
    }
}

void LauncherVersion::start(const std::string& program) {
    until = std::chrono::steady_clock::now() + patience;
    try {
        output.emplace();
        const Descriptor none(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        const char* const question = Text::baseName(program) == "ssh" ? "-V" : "--version";
        ChildProcess::Start what;
        what.argv = {program, question};
        what.input = none.get();
        what.output = output->writer.get();
        process.start(what);
        output->writer.reset();
    } catch (const std::system_error&) {
        output.reset(); // It is not there.
    }
}

std::string LauncherVersion::answer() {
    if (!output) return "";
    until = std::max(until, std::chrono::steady_clock::now() + 200ms);
    std::string text;
    for (;;) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(until - std::chrono::steady_clock::now());
        pollfd ready{output->reader.get(), POLLIN, 0};
        if (left <= 0ms || ::poll(&ready, 1, static_cast<int>(left.count())) <= 0) break;
        char piece[4096];
        const ssize_t got = ::read(output->reader.get(), piece, sizeof piece);
        if (got <= 0 || text.size() > most) break;
        text.append(piece, static_cast<std::size_t>(got));
    }
    output.reset();
    while (process.poll() != ChildProcess::ENDED) {
        if (std::chrono::steady_clock::now() >= until) return "";
        ::usleep(1000);
    }
    return process.status() == 0 ? lineOf(text) : "";
}

std::string LauncherVersion::lineOf(std::string_view answer) {
    std::istringstream lines{std::string(answer)};
    std::string found;
    for (std::string line; !hasDigit(found) && std::getline(lines, line);) {
        if (!found.empty() && !hasDigit(line)) continue;
        std::istringstream words(SafeText::line(line));
        for (std::string word; words >> word;)
            found += (found.empty() ? "" : " ") + word;
    }
    if (found.size() > longest)
        found.resize(longest - SafeText::unfinished(found.substr(0, longest)));
    return found;
}
