#include "frontend/session/taskstarts.h"

#include "frontend/session/forkedclients.h"

#include <filesystem>

// Of that task, or of all of them.
DebuggerStart TaskStarts::make(std::size_t tasks, std::optional<int> task) const {
    Driver::Launch launch = ForkedClients::newLaunch(driver, options, errors);
    launch.program = options.program;
    launch.starter = options.starter;
    if (task.value_or(0) == 0) launch.inputFile = options.input;
    const std::string core =
        options.cores.empty() ? "" : options.cores.at(static_cast<std::size_t>(*task));
    if (!core.empty()) {
        launch.core = std::filesystem::absolute(core).string();
        launch.stopsOnAbort = false;
    }
    DebuggerStart start =
        DebuggerStart::of(driver, launch, {{"VEX_NTASKS", std::to_string(tasks)}, {"VEX_JOB", job}},
                          options.attaches() ? 1 : 0);
    start.clientVariable = "VEX_TASK";
    start.core = core;
    start.numberIsRank = options.coresHaveRanks;
    start.throughShells = options.mpiLauncher != 0;
    if (options.forks) start.forkMark = driver.forkMark();
    return start;
}

DebuggerStart TaskStarts::local(int task, std::size_t tasks) const {
    return make(tasks, task).with(task, targetOf(task));
}

pid_t TaskStarts::targetOf(int task) const {
    return options.attaches() ? options.targets[static_cast<std::size_t>(task)].pid : 0;
}
