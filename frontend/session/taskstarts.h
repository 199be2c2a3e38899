#pragma once

#include "backend/drivers/debuggerstart.h"
#include "backend/drivers/driver.h"
#include "backend/drivers/errorwatch.h"
#include "frontend/session/options.h"

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>

/// What the debuggers of a session's tasks are started with, whichever way the tasks come.
class TaskStarts {
  public:
    /// The job names the session in the environment of the tasks. No errors are watched for when
    /// `errors` is null. All must outlive this.
    TaskStarts(const Options& given, const Driver& dialect, const std::string& sessionsJob,
               const ErrorWatch* watch)
        : options(given), driver(dialect), job(sessionsJob), errors(watch) {}

    /// Of any of so many tasks; it needs the task's number and process.
    DebuggerStart common(std::size_t tasks) const { return make(tasks, {}); }
    /// Of a task of this machine.
    DebuggerStart local(int task, std::size_t tasks) const;
    /// The process to attach to; 0: none.
    pid_t targetOf(int task) const;

  private:
    const Options& options;
    const Driver& driver;
    const std::string& job;
    const ErrorWatch* const errors;

    DebuggerStart make(std::size_t tasks, std::optional<int> task) const;
};
