#include "backend/drivers/gdb.h"

#include "backend/drivers/gdbstacks.h"
#include "backend/drivers/gdbstops.h"
#include "backend/drivers/gdbwrapper.h"
#include "backend/drivers/promptmatcher.h"

#include <algorithm>
#include <array>
#include <utility>

namespace {

// What gdb writes to its standard error, errors, warnings and a few notices, goes to a file in
// memory, which never makes gdb wait. While the task runs, and for a moment after each prompt, a
// thread shows it as it comes; when a command is done, all is shown, and the mark behind it if
// there is an error. A breakpoint that waits for a library was made, whatever gdb says of it.
constexpr const char* errorHook = R"(
import gdb, os, signal, threading, time
mark = bytes([MARK])
terminal = os.dup(2)
messages = os.memfd_create("messages")
lock = threading.Lock()
woken = threading.Condition(lock)
until = time.monotonic() + 1
shown = 0
waiting = set()
harmless = ("Quit", "warning: ", "Do you need ", "BFD: ", "[")
def is_error(line):
    # "29<tab>poll.c: No such file or directory.": the place of a stop, without its source.
    return line and not line.startswith(harmless) and not line.split(chr(9))[0].isdigit()
def write(text):
    while text: text = text[os.write(terminal, text):]
def look_until(when):
    global until
    with lock:
        until = when
        woken.notify()
def show():
    global shown
    with lock:
        text = os.pread(messages, os.fstat(messages).st_size - shown, shown)
        shown += len(text)
        write(text)
def show_always():
    while True:
        with lock:
            while time.monotonic() > until: woken.wait()
        time.sleep(0.1)
        show()
def tell():
    global shown, waiting
    now = {each.number for each in gdb.breakpoints() if each.pending and each.number > 0}
    new = now - waiting
    waiting = now
    gdb.flush()
    show()
    with lock:
        text = os.pread(messages, shown, 0).decode("utf-8", "replace")
        os.ftruncate(messages, 0)
        os.lseek(messages, 0, os.SEEK_SET)
        shown = 0
    if any(map(is_error, text.splitlines())) and not new: write(mark)
    look_until(time.monotonic() + 1)
before = signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())
threading.Thread(target=show_always, daemon=True).start()
signal.pthread_sigmask(signal.SIG_SETMASK, before)
gdb.events.before_prompt.connect(tell)
gdb.events.cont.connect(lambda event: look_until(float("inf")))
gdb.flush()
write(mark)
os.dup2(messages, 2)
)";

// Marks in the output when the task begins to run and when it stands still (PromptMatcher). Calls
// of its functions have events of their own, but the prompt behind one that was given up comes
// without.
constexpr const char* runHook = R"(
import gdb, os
ends = (bytes([STANDS]), bytes([RUNS]))
running = False
def tell(now):
    global running
    if now == running: return
    running = now
    gdb.flush()
    text = ends[now]
    while text: text = text[os.write(1, text):]
def look(event = None):
    if running:
        tell(any(each.is_running() for inferior in gdb.inferiors() for each in inferior.threads()))
gdb.events.cont.connect(lambda event: tell(True))
gdb.events.inferior_call.connect(lambda event: tell(isinstance(event, gdb.InferiorCallPreEvent)))
gdb.events.stop.connect(look)
gdb.events.exited.connect(look)
gdb.events.before_prompt.connect(look)
)";

// Where gdb has no Python, its own backtrace.
constexpr const char* plainStacks =
    "alias vex-stacks = thread apply all backtrace -frame-arguments none";

// A task that an interrupt has stopped has its main thread selected, so that all show the same one.
// The stop itself is shown as it was. A thread that has raised the signal itself (SI_TKILL) stays.
constexpr const char* mainThreadHook = R"(
import gdb
interrupted = False
def stopped(event):
    global interrupted
    interrupted = isinstance(event, gdb.SignalEvent) and event.stop_signal == "SIGINT"
    try: interrupted = interrupted and int(gdb.parse_and_eval("$_siginfo.si_code")) != -6
    except gdb.error: pass
def settle():
    global interrupted
    if not interrupted: return
    interrupted = False
    try:
        for each in gdb.selected_inferior().threads():
            if each.ptid[0] == each.ptid[1]: return each.switch()
    except gdb.error: pass
gdb.events.stop.connect(stopped)
gdb.events.before_prompt.connect(settle)
)";

// Commands that end the attached process ask first; all others go without a question.
constexpr const char* askHook = R"(
import gdb
def define(command):
    prefix, _, name = command.rpartition(" ")
    gdb.execute("define %s hook-%s\nset $_vex_asks = 1\nset confirm on\nend" % (prefix, name))
def settle():
    if str(gdb.parse_and_eval("$_vex_asks")) == "1":
        gdb.execute("set $_vex_asks = 0")
        gdb.execute("set confirm off")
for each in ("run", "start", "starti", "kill", "attach", "core-file", "target native",
             "target remote", "target extended-remote", "target core"):
    try: define(each)
    except gdb.error: pass
gdb.events.before_prompt.connect(settle)
)";

// A Python text as a command of gdb's, which takes one line only.
std::string inOneLine(const std::string& python) {
    std::string line;
    for (const char c : python) {
        if (c == '\n')
            line += "\\n";
        else if (c == '\\' || c == '\'')
            line += {'\\', c};
        else
            line += c;
    }
    // In a name space of its own, apart from the user's names.
    return "python exec('" + line + "', {})";
}

std::string withWord(std::string python, std::string_view word, const std::string& text) {
    return python.replace(python.find(word), word.size(), text);
}

// The Python text with the bytes of a mark in the place of a word.
std::string withMark(std::string python, std::string_view word, std::string_view mark) {
    std::string bytes;
    for (const char c : mark)
        bytes += (bytes.empty() ? "" : ",") + std::to_string(static_cast<unsigned char>(c));
    return withWord(std::move(python), word, bytes);
}

std::string runHookFor(const std::string& prompt) {
    const auto mark = [&prompt](char which) {
        return prompt.substr(0, prompt.size() - 1) + which + prompt.back();
    };
    return inOneLine(withMark(withMark(runHook, "STANDS", mark(PromptMatcher::stands)), "RUNS",
                              mark(PromptMatcher::runs)));
}

// The prompt of commands, define, python and the like, indented by its depth.
bool wantsLines(std::string_view tail) {
    const std::size_t at = tail.find_first_not_of(' ');
    return at != std::string_view::npos && tail.substr(at) == ">";
}

std::string_view fileName(std::string_view path) { return path.substr(path.rfind('/') + 1); }

// The length of the code address and of what is around it, "0x00007f3c2a8e71b4 in ", when the text
// begins with one as gdb prints it in front of a function's name.
std::size_t codeAddress(std::string_view text) {
    constexpr std::size_t digits = 16;
    constexpr std::string_view begin = "0x", in = " in ";
    if (!text.starts_with(begin)) return 0;
    const std::size_t end = text.find_first_not_of("0123456789abcdef", begin.size());
    if (end != begin.size() + digits || text.substr(end, in.size()) != in) return 0;
    const std::string_view call = text.substr(end + in.size());
    return call.find(" (") == std::string_view::npos ? 0 : end + in.size();
}

} // namespace

std::vector<std::string> Gdb::argv(const Launch& launch) const {
    std::vector<std::string> settings{
        "pagination off",
        "confirm off",
        "width 0",
        "height 0",
        "style enabled off",
        "editing off",
        "debuginfod enabled off",
        // A name that no loaded file knows is kept for the libraries to come; no question.
        "breakpoint pending on",
        // They name the threads by numbers that differ in every task.
        "print thread-events off",
        "prompt \\001" + launch.nonce + "\\n",
    };
    if (launch.attach.empty()) {
        // The program reads from a terminal of its own, never the debugger's commands; it writes to
        // the debugger's, so that both outputs stay in order, unless its command line says where
        // else.
        const std::string& input = launch.inputTerminal;
        settings.push_back("inferior-tty " + input);
        settings.push_back("exec-wrapper " + GdbWrapper::of(launch));
    }
    std::vector<std::string> words{executable, "-nx", "-q"};
    for (const std::string& setting : settings) {
        words.push_back("-iex");
        words.push_back("set " + setting);
    }
    words.insert(words.end(),
                 {"-iex", plainStacks, "-iex", inOneLine(gdbStacks), "-iex", GdbValues::plain,
                  "-iex", inOneLine(GdbValues::hook), "-iex", inOneLine(mainThreadHook)});
    words.insert(words.end(), {"-iex", GdbStops::plainBriefRuns, "-iex",
                               inOneLine(withWord(GdbStops::briefRuns, "BEGIN",
                                                  launch.attach.empty() ? "False" : "True"))});
    if (launch.stopsOnAbort) words.insert(words.end(), {"-iex", inOneLine(GdbStops::onAbort)});
    words.insert(words.end(), {"-iex", runHookFor(prompt(launch.nonce))});
    if (!launch.errorMark.empty())
        words.insert(words.end(),
                     {"-iex", inOneLine(withMark(errorHook, "MARK", launch.errorMark))});
    if (!launch.attach.empty()) {
        // gdb quits at the end of its input, too. Where there is no process, an error of kill would
        // keep it.
        words.insert(
            words.end(),
            {"-iex", launch.owned
                         ? R"(python gdb.execute("define hook-quit\nif $_thread\nkill\nend\nend"))"
                         : inOneLine(askHook)});
        words.insert(words.end(), {"-p", launch.attach});
        return words;
    }
    if (!launch.core.empty()) words.insert(words.end(), {"-c", launch.core});
    words.push_back("--args");
    words.insert(words.end(), launch.program.begin(), launch.program.end());
    // The wrapper knows the script.
    if (!launch.starter.empty()) words[words.size() - launch.program.size()] = launch.starter;
    return words;
}

std::vector<std::string> Gdb::indexCacheWords() const {
    return {"-iex", "set index-cache enabled on", "-iex", "set index-cache directory "};
}

std::string Gdb::prompt(const std::string& nonce) const { return "\001" + nonce + "\n"; }

std::string Gdb::whole(std::string line) const {
    // gdb reads on after any backslash at the end, the second of two as well, and shows no prompt.
    while (line.ends_with('\\'))
        line.pop_back();
    return line;
}

bool Gdb::asks(std::string_view tail) const {
    // "(y or n) ", "(y or [n]) ", "([y] or n) "
    if (tail.ends_with(" n) ") || tail.ends_with("[n]) ")) return true;
    // With "set pagination on".
    if (tail.ends_with("--Type <RET> for more, q to quit, c to continue without paging--"))
        return true;
    return wantsLines(tail);
}

std::string Gdb::insteadOfLines(std::string_view question) const {
    return wantsLines(question) ? "source FILE" : "";
}

bool Gdb::beginsStop(std::string_view line) const {
    // Between the name of a function and its arguments gdb may read symbols for a while.
    const std::size_t bracket = line.rfind(" (");
    if (bracket != std::string_view::npos && line.find(')', bracket) == std::string_view::npos)
        return true;
    static constexpr std::string_view beginnings[] = {"Breakpoint ", "Temporary breakpoint ",
                                                      "Thread ", "Hardware ", "Program "};
    return std::ranges::any_of(beginnings,
                               [line](std::string_view each) { return line.starts_with(each); });
}

// "0x00007f5b in search (token=20) at ring.cpp:23", "Breakpoint 1, search (token=20) at
// ring.cpp:23"
Driver::StackLine Gdb::parseStop(std::string_view line) const {
    if (line.find(") at ") == std::string_view::npos) return {};
    if (line.starts_with('#')) return line.starts_with("#0 ") ? parseStackLine(line) : StackLine();
    const std::size_t arguments = line.find(" (");
    if (arguments == std::string_view::npos) return {};
    const std::size_t comma = line.find(", ");
    if (comma < arguments && beginsStop(line.substr(0, comma))) line.remove_prefix(comma + 2);
    StackLine stop = parseStackLine("#0  " + std::string(line));
    // A program may print "(nearly) at the end".
    const std::size_t colon = stop.place.rfind(':');
    if (colon == std::string::npos ||
        stop.place.find_first_not_of("0123456789", colon + 1) != std::string::npos)
        return {};
    return stop;
}

bool Gdb::showsInterrupt(std::string_view line) const {
    return line == "Quit" || line.find("received signal SIG") != std::string_view::npos ||
           line.find("stopped.") != std::string_view::npos;
}

// Of a fork and of a vfork, whose child may execute the same program once more.
std::string Gdb::forkMark() const { return "fork from child process "; }

bool Gdb::isGreeting(std::string_view line) const {
    return line.empty() || line.starts_with("Reading symbols from ") ||
           (line.starts_with("(No debugging symbols found in ") && line.ends_with("/vexscript)")) ||
           line.starts_with("Python scripting is not supported in this copy of GDB");
}

bool Gdb::complains(std::string_view line) const {
    // Nearly every core file has memory that was shared, and registers that gdb does not know.
    if (line.ends_with(" during file-backed mapping note processing") ||
        line.starts_with("warning: Section `.reg-xstate/"))
        return false;
    return line.starts_with("warning: ") || line.starts_with("BFD: ") ||
           line.starts_with("ptrace: ") || line.starts_with("Could not attach to process") ||
           line.find("\" is not a core dump: ") != std::string_view::npos;
}

std::string Gdb::shown(std::string line) const {
    if (subject == Subject::PROGRAM) return line;
    constexpr std::string_view finish = "Run till exit from ";
    std::size_t at = line.starts_with(finish) ? finish.size() : 0;
    if (line.compare(at, 1, "#") == 0) {
        at = line.find_first_not_of("0123456789", at + 1);
        at = at == std::string::npos ? at : line.find_first_not_of(' ', at);
        if (at == std::string::npos) return line;
    }
    return line.erase(at, codeAddress(std::string_view(line).substr(at)));
}

std::string Gdb::notice() const {
    return subject != Subject::PROGRAM
               ? "gdb's frame lines are shown without their code addresses, which differ in every "
                 "task; to see one: print $pc"
               : "";
}

std::string Gdb::hintFor(std::string_view line) const {
    return line.starts_with("(No debugging symbols found")
               ? "Compile with -g to see source lines, arguments and variables."
               : "";
}

bool Gdb::keepsBars(std::string_view line) const {
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    return word == "pipe" || word == "shell" || word.starts_with("|") || word.starts_with("!");
}

std::string Gdb::backtraceCommand(int calls) const { return "vex-stacks " + std::to_string(calls); }

Driver::StackLine Gdb::parseStackLine(std::string_view line) const {
    StackLine result;
    for (const char* const kind : {"thread\t", "call\t", "python\t"})
        if (line.starts_with(kind)) return fieldsOf(line);
    if (line.starts_with("Thread ") && line.ends_with("):")) {
        result.kind = StackLine::THREAD;
        result.isMain = line.starts_with("Thread 1 ");
    }
    if (!line.starts_with('#')) return result;
    // "#2  0x00007ffff7 in poll (fds=..., timeout=...) at ../poll.c:29", "#0  main () at a.c:3"
    std::size_t at = line.find_first_not_of("0123456789", 1);
    if (at == 1 || at == std::string_view::npos || line[at] != ' ') return result;
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ', at)));
    if (line.starts_with("0x")) {
        at = line.find(" in ");
        if (at == std::string_view::npos) return result;
        line.remove_prefix(at + 4);
    }
    if (line.empty()) return result;
    result.kind = StackLine::CALL;
    if (line.starts_with('<')) { // "<signal handler called>"
        result.function = line;
        return result;
    }
    result.function = functionName(line);
    constexpr std::string_view source = ") at ", library = ") from ";
    if (at = line.rfind(source); at != std::string_view::npos) {
        result.place = fileName(line.substr(at + source.size()));
    } else if (at = line.rfind(library); at != std::string_view::npos) {
        result.library = line.substr(at + library.size());
        result.place = fileName(result.library);
    }
    return result;
}

std::string Gdb::standingCommand() const { return GdbStops::standingCommand; }
std::string Gdb::mayRun() const { return GdbStops::mayRun; }
std::string Gdb::resumeCommand() const { return GdbStops::resumeCommand; }

// What the command of this driver's own prints.
Driver::StackLine Gdb::fieldsOf(std::string_view line) {
    StackLine result;
    std::array<std::string_view, 5> fields;
    for (std::string_view& field : fields) {
        const std::size_t end = std::min(line.find('\t'), line.size());
        field = line.substr(0, end);
        line.remove_prefix(std::min(line.size(), end + 1));
    }
    if (fields[0] == "thread") {
        result.kind = StackLine::THREAD;
        result.isMain = fields[1] == "1";
        return result;
    }
    result.kind = StackLine::CALL;
    if (fields[0] == "python") {
        result.function = fields[1];
        result.library = fields[2];
        result.isInterpreted = true;
        return result;
    }
    result.isInterpreter = fields[4] == "1";
    result.function = fields[1].starts_with('<') ? std::string(fields[1]) : functionName(fields[1]);
    result.library = fields[3];
    result.place = fileName(fields[2].empty() ? fields[3] : fields[2]);
    return result;
}
