#pragma once

/// Python texts for gdb about where a task stands. They need Python and keep their names to
/// themselves.
namespace GdbStops {

/// Keeps a task from ending that calls MPI_Abort, or that an error handler of MPI ends, when MPI
/// has said why: breakpoints of gdb's own, without numbers that a user sees.
extern const char* const onAbort;
/// How the line begins that it prints then.
constexpr const char* abortLine = "The task calls MPI_Abort and is kept from ending";
constexpr const char* errorLine = "The task made a fatal error in MPI and is kept from ending";

/// Two commands, one that prints whether the task may be let run for a moment, and one that lets it
/// run until it is interrupted. BEGIN stands for "True" where gdb has attached to its task, else
/// for "False".
extern const char* const briefRuns;
/// What a gdb without Python has in the place of the first: it prints nothing.
extern const char* const plainBriefRuns;

extern const char* const standingCommand;
/// What it prints when the task may run; any other text is the reason why not.
extern const char* const mayRun;
extern const char* const resumeCommand;

} // namespace GdbStops
