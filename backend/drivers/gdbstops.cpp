#include "backend/drivers/gdbstops.h"

// The breakpoint is made by a command because only commands can be kept from telling that the
// function is not there yet. A library that wraps the function calls it again by its other name,
// which is often the same address: the task has been stopped then. The stop is silent, because gdb
// would name the breakpoint by a number that differs in every task.
const char* const GdbStops::onAbort = R"(
import gdb
def within(frame):
    for _ in range(8):
        frame = frame and frame.older()
        if frame and frame.name() in ("MPI_Abort", "PMPI_Abort"): return True
class Abort(gdb.Breakpoint):
    def __init__(self):
        super().__init__("MPI_Abort", internal=True)
        self.silent = True
    def stop(self):
        try: return not within(gdb.newest_frame())
        except gdb.error: return True
class Make(gdb.Command):
    def __init__(self): super().__init__("vex-stop-on-abort", gdb.COMMAND_BREAKPOINTS)
    def invoke(self, argument, from_tty): self.made = Abort()
make = Make()
gdb.execute("vex-stop-on-abort", to_string=True)
def stopped(event):
    if not isinstance(event, gdb.BreakpointEvent) or make.made not in event.breakpoints: return
    print("The task calls MPI_Abort and is kept from ending: where tells from where, "
          "continue lets it end the job")
gdb.events.stop.connect(stopped)
)";

// A task may run when an interrupt has stopped it, or the debugger by attaching to it: interrupted
// once more, it stands as it stood. Calls of its functions leave that as it is, whatever events
// they have, if they end: one that is stopped itself leaves the task in another frame. What gdb
// says of the stop is kept back until it is known why: an interrupt's is of no interest, but forks
// are. Other hooks see the task run before that, and see it stop behind it.
const char* const GdbStops::briefRuns = R"(
import gdb, os, tempfile
free, first, again, terminal, cover = False, True, None, None, None
before, calling = None, False
def scratch():
    file, name = tempfile.mkstemp()
    os.unlink(name)
    return file
def hide(event):
    global terminal, cover
    if terminal is not None: return
    if cover is None:
        # Python 3.8 or later.
        cover = os.memfd_create("stop") if hasattr(os, "memfd_create") else scratch()
    gdb.flush()
    terminal = os.dup(1)
    os.dup2(cover, 1)
def reveal():
    global terminal
    if terminal is None: return
    gdb.flush()
    text = b"" if free else os.pread(cover, os.fstat(cover).st_size, 0)
    os.ftruncate(cover, 0)
    os.lseek(cover, 0, os.SEEK_SET)
    os.dup2(terminal, 1)
    os.close(terminal)
    terminal = None
    while text: text = text[os.write(1, text):]
def continued(event):
    global free, before
    if not calling: before = None
    free = False
def stopped(event):
    global free
    free = isinstance(event, gdb.SignalEvent) and event.stop_signal == "SIGINT"
    try: free = free and int(gdb.parse_and_eval("$_siginfo.si_code")) != -6
    except gdb.error: pass
    reveal()
def frame():
    try: return gdb.newest_frame()
    except gdb.error: return None
def called(event):
    global before, calling
    calling = isinstance(event, gdb.InferiorCallPreEvent)
    if calling and before is None: before = free, frame()
def settle():
    global again, first, free, before
    # Not before the prompt: at the end of a call its frame may be there still.
    if before is not None:
        free = before[0] and before[1] is not None and before[1] == frame()
        before = None
    if first: first, free = False, BEGIN
    try:
        if again is not None and again.is_valid(): again.switch()
    except gdb.error: pass
    again = None
def reason():
    thread = gdb.selected_thread()
    if thread is None: return "it has no process"
    if thread.is_running(): return "it runs"
    return "" if free else "no interrupt has stopped it"
class Standing(gdb.Command):
    def __init__(self): super().__init__("vex-standing", gdb.COMMAND_RUNNING)
    def invoke(self, argument, from_tty):
        self.dont_repeat()
        print(reason() or "may run")
class Resume(gdb.Command):
    def __init__(self): super().__init__("vex-resume", gdb.COMMAND_RUNNING)
    def invoke(self, argument, from_tty):
        global again
        self.dont_repeat()
        if reason(): return
        thread, said = gdb.selected_thread(), ""
        gdb.events.cont.connect(hide)
        try: said = gdb.execute("continue", to_string=True)
        except KeyboardInterrupt: pass
        except gdb.error as problem: print(problem)
        finally:
            gdb.events.cont.disconnect(hide)
            reveal()
        for line in said.splitlines():
            if line.startswith("[Detaching after ") or not free and line != "Continuing.":
                print(line)
        if free: again = thread
Standing()
Resume()
gdb.events.cont.connect(continued)
gdb.events.stop.connect(stopped)
gdb.events.inferior_call.connect(called)
gdb.events.before_prompt.connect(settle)
)";

const char* const GdbStops::plainBriefRuns = "alias vex-standing = echo";
const char* const GdbStops::standingCommand = "vex-standing";
const char* const GdbStops::mayRun = "may run";
const char* const GdbStops::resumeCommand = "vex-resume";
