#pragma once

/// A text in Python for gdb: its command "vex-stacks N" shows the stacks of all threads, of each
/// the N innermost calls: "thread", a tab and whether it is the one of main; "call", its name, its
/// source line, its library and whether it is an interpreter's, with tabs between; "python" and the
/// name of an interpreted function, and "python" behind another tab where that is the interpreter's
/// own.
///
/// The functions of a Python program stand behind the call of the evaluation loop that runs them,
/// innermost first, as "name (file.py:line)". They come from what the interpreter keeps for a
/// thread, by the offsets that it tells itself (since 3.13) or that are known here (3.9 to 3.12),
/// else by the support for gdb that comes with the interpreter, where gdb has loaded it. A chain
/// that loops, points nowhere or takes more than a second a task ends with an ellipsis.
extern const char* const gdbStacks;
