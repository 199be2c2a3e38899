#include "backend/clients/debuggerchild.h"

DebuggerChild::DebuggerChild(const DebuggerStart& start) {
    ChildProcess::Start what;
    what.argv = start.argvFor(terminal.name(), inputTerminal.name());
    what.environment = start.environment;
    what.terminal = terminal.terminal();
    what.inherits = start.inherits;
    if (start.attach != 0) what.orphan = ChildProcess::Start::INTERRUPTED;
    process.start(what);
    terminal.closeTerminal();
}
