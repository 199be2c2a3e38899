#pragma once

#include "common/clientset.h"

#include <string_view>

/// Which tasks have forked processes that no debugger follows and that stay the same program, as
/// the workers of a pool do: read off what gdb tells of forks, and, for a process of this machine
/// that lives, off the process table.
class ForkedWorkers {
  public:
    /// The clients' debuggers, or tasks, have said this line.
    void heard(const ClientSet& clients, std::string_view line);
    const ClientSet& parents() const { return found; }

  private:
    ClientSet found;
};
