#pragma once

#include <string>

/// What a debugger that debugs nothing answers for its task, at once:
///   lines N [BYTES]   N lines (of 80 bytes) that all tasks say alike
///   own N             N lines with the task's number in each
///   flood MIB         numbered lines
///   line MIB          one line
///   print ANYTHING    "$1 = 7" of task 7
///   where, vex-stacks one of 40 stacks
///   run               begins to run, until it is interrupted
/// Everything else is answered by nothing.
class Answers {
  public:
    explicit Answers(int number) : task(number) {}

    /// The output of a command line, without a prompt.
    std::string to(const std::string& line);
    /// Whether the command that was answered last goes on until it is interrupted.
    bool running() const { return runs; }
    /// What an interrupt of a running command prints.
    std::string interrupted();

  private:
    const int task;
    int values = 0; // that print has shown
    bool runs = false;

    std::string stack(bool ofAllThreads) const;
};
