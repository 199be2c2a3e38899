#include "report/forkedworkers.h"

#include "backend/os/processtree.h"
#include "common/wholenumber.h"

#include <string>
#include <string_view>
#include <sys/types.h>

namespace {

constexpr std::string_view forked = "[Detaching after fork from child process ";
// Most of those become another program: system(3), popen(3).
constexpr std::string_view forkedToExecute = "[Detaching after vfork from child process ";

// Whether a process executes what its parent does. Of one that is gone nothing can be told.
bool isSameProgram(pid_t process, bool otherwise) {
    const pid_t parent = ProcessTree::parentOf(process);
    const std::string file = ProcessTree::executableOf(process);
    if (parent == 0 || file.empty() || ProcessTree::shareMemory(process, parent)) return otherwise;
    return file == ProcessTree::executableOf(parent);
}

} // namespace

void ForkedWorkers::heard(const ClientSet& clients, std::string_view line) {
    const bool executes = line.starts_with(forkedToExecute);
    if ((!executes && !line.starts_with(forked)) || !line.ends_with(']')) return;
    line.remove_prefix(executes ? forkedToExecute.size() : forked.size());
    line.remove_suffix(1);
    const auto process = wholeNumber<pid_t>(line);
    if (process && isSameProgram(*process, !executes)) found.insert(clients);
}
