#include "backend/drivers/gdbstops.h"

// The breakpoints are made by a command because only commands can be kept from telling that a
// function is not there yet. A library that wraps MPI_Abort calls it again by its other name, which
// is often the same address: the task has been stopped then, as in what MPI_Abort calls. The stop
// is silent, because gdb would name the breakpoint by a number that differs in every task.
//
// An error handler of Open MPI has handed its message to a thread that sends it to the launcher,
// and calls ompi_mpi_abort: that thread gets a moment. Whom MPI_Abort has stopped jumps there, too.
// MPICH's MPIR_Err_return_comm is called for every error. When it makes a library of MPI, and no
// handler of the user's, write, that is the message of an error that ends the job, and the task
// stops behind it.
//
// While gdb asks a breakpoint whether to stop, none is deleted, and none is set by a name, for
// which gdb would look through all symbols: that of write is there from the start on. Others are
// enabled and disabled then, as gdb itself disables a finish breakpoint that was reached, and
// finish breakpoints are made, as gdb's own tests do.
const char* const GdbStops::onAbort = R"(
import gdb
def calls(most):
    found = []
    frame = gdb.newest_frame()
    while frame and len(found) < most:
        found.append(frame)
        frame = frame.older()
    return found
def within():
    return any(each.name() in ("MPI_Abort", "PMPI_Abort") for each in calls(16)[1:])
class Abort(gdb.Breakpoint):
    def __init__(self, function, kind):
        super().__init__(function, internal=True)
        self.silent = True
        self.kind = kind
    def stop(self):
        try: return not within()
        except gdb.error: return True
class Said(gdb.FinishBreakpoint):
    kind = "error"
    def stop(self): return True
class Write(gdb.Breakpoint):
    def __init__(self):
        super().__init__("-qualified write", internal=True)
        self.silent = True
        self.enabled = False
        self.thread_of_return = None
    def stop(self):
        try:
            stack = calls(32)
            at = next((i for i in range(len(stack)) if stack[i].name() in returns), 0)
            if not at and gdb.selected_thread().num == self.thread_of_return: self.enabled = False
            if not at or within(): return False
            files = [gdb.solib_name(each.pc()) for each in stack]
            by = next(i for i in range(at + 1) if files[i] != files[0] or
                      not files[0] and (stack[i].name() or "").startswith("MPI"))
            if by < at and files[by] == files[at] and not any(each.is_valid() for each in ends):
                ends[:] = [Said(stack[by - 1], internal=True)]
                ends[0].silent = True
        except (gdb.error, ValueError, StopIteration): pass
        return False
class Return(gdb.Breakpoint):
    def __init__(self, function):
        super().__init__(function, internal=True)
        self.silent = True
    def stop(self):
        try:
            writes[0].thread_of_return = gdb.selected_thread().num
            writes[0].enabled = True
        except gdb.error: pass
        return False
returns = ["MPIR_Err_return_comm", "MPIR_Err_return_win", "MPIR_Err_return_session"]
made, writes, ends, sending = [], [], [], False
class Make(gdb.Command):
    def __init__(self): super().__init__("vex-stop-on-abort", gdb.COMMAND_BREAKPOINTS)
    def invoke(self, argument, from_tty):
        made[:] = [Abort("MPI_Abort", "abort"), Abort("ompi_mpi_abort", "handler")]
        writes[:] = [Write()]
        made[2:] = [Return(each) for each in returns]
make = Make()
gdb.execute("vex-stop-on-abort", to_string=True)
def stopped(event):
    global sending
    if not isinstance(event, gdb.BreakpointEvent): return
    kind = next((each.kind for each in made[:2] + ends if each in event.breakpoints), "")
    if kind: print("The task " + ("calls MPI_Abort" if kind == "abort" else
        "made a fatal error in MPI") + " and is kept from ending: where tells from where, "
        "continue lets it end the job")
    sending = kind == "handler"
    if kind == "abort": made[1].enabled = False
    # What else MPI writes then ends the job.
    if kind == "error": writes[0].enabled = False
def exited(event): made[1].enabled = True
def prompting():
    global sending
    if not sending: return
    sending = False
    unwinds = "on" if gdb.parameter("unwindonsignal") else "off"
    # The program's may be Fortran, which has no such casts.
    language = gdb.parameter("language")
    try:
        gdb.execute("set unwindonsignal on", to_string=True)
        gdb.execute("set language c", to_string=True)
        gdb.parse_and_eval('((int (*)(unsigned))usleep)(300000)')
    except (gdb.error, KeyboardInterrupt): pass
    finally:
        gdb.execute("set language " + language, to_string=True)
        gdb.execute("set unwindonsignal " + unwinds, to_string=True)
gdb.events.stop.connect(stopped)
gdb.events.before_prompt.connect(prompting)
gdb.events.exited.connect(exited)
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
