#pragma once

#include "backend/drivers/corerules.h"
#include "backend/drivers/driver.h"

/// The driver of lldb, version 14 or later. Needs none of its Python.
class Lldb : public Driver {
  public:
    explicit Lldb(std::string path, Subject looksAt = Subject::PROGRAM)
        : executable(std::move(path)), subject(looksAt) {}

    std::string name() const override { return "lldb"; }
    std::vector<std::string> argv(const Launch& launch) const override;
    std::string prompt(const std::string& nonce) const override;
    std::string whole(std::string line) const override { return line; }
    bool asks(std::string_view tail) const override;
    // An idle lldb says nothing: no line is equal to this.
    std::string interruptEcho() const override { return "\001"; }
    bool showsInterrupt(std::string_view line) const override;
    std::string forkMark() const override { return ""; }
    bool reportsError(std::string_view line) const override { return line.starts_with("error: "); }
    bool isGreeting(std::string_view line) const override;
    bool letsRun(std::string_view line) const override;
    bool leavesPlace(std::string_view line) const override;
    std::string refusal(std::string_view line) const override {
        return subject == Subject::CORE ? CoreRules::lldbRefuses(line) : "";
    }
    bool keepsBars(std::string_view line) const override;
    std::string backtraceCommand(int calls) const override;
    StackLine parseStackLine(std::string_view line) const override;
    std::string valueCommand(const std::string& expression) const override {
        return "expression -- " + expression;
    }
    Value parseValue(std::string_view answer) const override;

  private:
    const std::string executable;
    const Subject subject;
};
