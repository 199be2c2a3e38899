#pragma once

#include "backend/drivers/corerules.h"
#include "backend/drivers/driver.h"
#include "backend/drivers/gdbcommands.h"
#include "backend/drivers/gdbstops.h"
#include "backend/drivers/gdbvalues.h"

/// The driver of gdb, version 12 or later.
class Gdb : public Driver {
  public:
    /// Tasks that gdb has not started have their code at addresses of their own, each at another:
    /// these are left out of gdb's own frame lines.
    explicit Gdb(std::string path, Subject looksAt = Subject::PROGRAM)
        : executable(std::move(path)), subject(looksAt) {}

    std::string name() const override { return "gdb"; }
    std::vector<std::string> argv(const Launch& launch) const override;
    std::vector<std::string> indexCacheWords() const override;
    std::string prompt(const std::string& nonce) const override;
    std::string whole(std::string line) const override;
    bool asks(std::string_view tail) const override;
    std::string insteadOfLines(std::string_view question) const override;
    bool beginsStop(std::string_view line) const override;
    StackLine parseStop(std::string_view line) const override;
    std::string interruptEcho() const override { return "Quit"; }
    bool showsInterrupt(std::string_view line) const override;
    std::string forkMark() const override;
    std::string_view keptAt(std::string_view line) const override {
        return line.starts_with(GdbStops::abortLine)   ? "MPI_Abort"
               : line.starts_with(GdbStops::errorLine) ? "a fatal error in MPI"
                                                       : "";
    }
    bool preloads() const override { return true; }
    bool marksErrors() const override { return true; }
    bool isGreeting(std::string_view line) const override;
    bool complains(std::string_view line) const override;
    std::string hintFor(std::string_view line) const override;
    bool letsRun(std::string_view line) const override { return GdbCommands::letRun(line); }
    bool leavesPlace(std::string_view line) const override { return GdbCommands::leavePlace(line); }
    bool endsTask(std::string_view line) const override {
        return line.starts_with("[Inferior ") || line.starts_with("Starting program: ") ||
               line.starts_with("Program terminated with signal ");
    }
    std::string refusal(std::string_view line) const override {
        return subject == Subject::CORE ? CoreRules::gdbRefuses(line) : "";
    }
    std::string shown(std::string line) const override;
    std::string notice() const override;
    bool keepsBars(std::string_view line) const override;
    std::string backtraceCommand(int calls) const override;
    StackLine parseStackLine(std::string_view line) const override;
    std::string valueCommand(const std::string& expression) const override {
        return GdbValues::command + (" " + expression);
    }
    Value parseValue(std::string_view answer) const override { return GdbValues::parse(answer); }
    std::string standingCommand() const override;
    std::string mayRun() const override;
    std::string resumeCommand() const override;

  private:
    static StackLine fieldsOf(std::string_view line);

    const std::string executable;
    const Subject subject;
};
