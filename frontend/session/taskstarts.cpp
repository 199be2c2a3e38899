#include "frontend/session/taskstarts.h"

#include "frontend/session/forkedclients.h"

#include <filesystem>

DebuggerStart TaskStarts::withCore(std::size_t tasks, const std::string& core) const {
    Driver::Launch launch = ForkedClients::newLaunch(driver, errors);
    launch.program = options.program;
    if (!core.empty()) launch.core = std::filesystem::absolute(core).string();
    launch.cachesIndex = options.indexCache;
    DebuggerStart start =
        DebuggerStart::of(driver, launch, {{"VEX_NTASKS", std::to_string(tasks)}, {"VEX_JOB", job}},
                          options.attaches() ? 1 : 0);
    start.clientVariable = "VEX_TASK";
    start.throughShells = options.mpiLauncher != 0;
    if (options.forks) start.forkMark = driver.forkMark();
    return start;
}

DebuggerStart TaskStarts::local(int task, std::size_t tasks) const {
    const std::string core =
        options.cores.empty() ? "" : options.cores[static_cast<std::size_t>(task)];
    DebuggerStart start = withCore(tasks, core).with(task, targetOf(task));
    start.core = core;
    start.numberIsRank = options.coresHaveRanks;
    return start;
}

pid_t TaskStarts::targetOf(int task) const {
    return options.attaches() ? options.targets[static_cast<std::size_t>(task)].pid : 0;
}
