#pragma once

#include <string>

/// Tells programs from other words; its owner looks where the shell would.
class ProgramLookup {
  public:
    virtual ~ProgramLookup() = default;
    /// Whether a program of this name can be run.
    virtual bool isProgram(const std::string& name) = 0;
};
