#pragma once

#include "backend/drivers/driver.h"

/// The driver of gdb, version 12 or later.
class Gdb : public Driver {
  public:
    explicit Gdb(std::string path) : executable(std::move(path)) {}

    std::string name() const override { return "gdb"; }
    std::vector<std::string> argv(const Launch& launch) const override;
    std::vector<std::string> indexCacheWords() const override;
    std::string prompt(const std::string& nonce) const override;
    std::string whole(std::string line) const override;
    bool asks(std::string_view tail) const override;
    std::string interruptEcho() const override { return "Quit"; }
    bool showsInterrupt(std::string_view line) const override;
    std::string forkMark() const override;
    bool marksErrors() const override { return true; }
    bool isGreeting(std::string_view line) const override;
    std::string hintFor(std::string_view line) const override;
    bool keepsBars(std::string_view line) const override;
    std::string backtraceCommand(int calls) const override;
    StackLine parseStackLine(std::string_view line) const override;

  private:
    const std::string executable;
};
