#include "backend/drivers/gdb.h"

#include <algorithm>

namespace {

// What gdb writes to its standard error, errors, warnings and a few notices, goes to a file in
// memory. A thread shows it as it comes; when a command is done, all is shown, and the mark behind
// it if there is an error. A breakpoint that waits for a library was made, whatever gdb says of it.
constexpr const char* errorHook = R"(
import gdb, os, signal, threading, time
mark = bytes([MARK])
terminal = os.dup(2)
messages = os.memfd_create("messages")
lock = threading.Lock()
shown = 0
waiting = set()
harmless = ("Quit", "warning: ", "Do you need ", "BFD: ", "[")
def is_error(line):
    # "29<tab>poll.c: No such file or directory.": the place of a stop, without its source.
    return line and not line.startswith(harmless) and not line.split(chr(9))[0].isdigit()
def write(text):
    while text: text = text[os.write(terminal, text):]
def show():
    global shown
    with lock:
        text = os.pread(messages, os.fstat(messages).st_size - shown, shown)
        shown += len(text)
        write(text)
def show_always():
    while True:
        time.sleep(0.1)
        show()
def tell():
    global shown, waiting
    now = {each.number for each in gdb.breakpoints() if each.pending}
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
before = signal.pthread_sigmask(signal.SIG_BLOCK, signal.valid_signals())
threading.Thread(target=show_always, daemon=True).start()
signal.pthread_sigmask(signal.SIG_SETMASK, before)
gdb.events.before_prompt.connect(tell)
gdb.flush()
write(mark)
os.dup2(messages, 2)
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
        else if (c == '\\')
            line += "\\\\";
        else
            line += c;
    }
    // In a name space of its own, apart from the user's names.
    return "python exec('" + line + "', {})";
}

std::string errorHookFor(const std::string& mark) {
    std::string bytes;
    for (const char c : mark)
        bytes += (bytes.empty() ? "" : ",") + std::to_string(static_cast<unsigned char>(c));
    std::string text = errorHook;
    return inOneLine(text.replace(text.find("MARK"), 4, bytes));
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
        "prompt \\001" + launch.nonce + "\\n",
    };
    if (launch.attach.empty()) {
        // The program reads from a terminal of its own, never the debugger's commands; it writes to
        // the debugger's, so that both outputs stay in order, unless its command line says where
        // else.
        const std::string& input = launch.inputTerminal;
        settings.push_back("inferior-tty " + input);
        settings.push_back("exec-wrapper /bin/sh -c '[ /proc/$$/fd/1 -ef " + input +
                           " ] && exec >" + launch.terminal + "; [ /proc/$$/fd/2 -ef " + input +
                           " ] && exec 2>" + launch.terminal + R"(; exec "$0" "$@"')");
    }
    std::vector<std::string> words{executable, "-nx", "-q"};
    for (const std::string& setting : settings) {
        words.push_back("-iex");
        words.push_back("set " + setting);
    }
    if (!launch.errorMark.empty()) {
        words.push_back("-iex");
        words.push_back(errorHookFor(launch.errorMark));
    }
    if (!launch.attach.empty()) {
        // gdb quits at the end of its input, too.
        words.insert(words.end(),
                     {"-iex", launch.owned ? R"(python gdb.execute("define hook-quit\nkill\nend"))"
                                           : inOneLine(askHook)});
        words.insert(words.end(), {"-p", launch.attach});
        return words;
    }
    words.push_back("--args");
    words.insert(words.end(), launch.program.begin(), launch.program.end());
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
    // The prompt of commands, define, python and the like, indented by its depth.
    const std::size_t at = tail.find_first_not_of(' ');
    return at != std::string_view::npos && tail.substr(at) == ">";
}

bool Gdb::showsInterrupt(std::string_view line) const {
    return line == "Quit" || line.find("received signal SIG") != std::string_view::npos ||
           line.find("stopped.") != std::string_view::npos;
}

// A vfork has another line: its child executes another program at once.
std::string Gdb::forkMark() const { return "[Detaching after fork from child process "; }

bool Gdb::isGreeting(std::string_view line) const {
    return line.empty() || line.starts_with("Reading symbols from ");
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

std::string Gdb::backtraceCommand(int calls) const {
    return "thread apply all backtrace -frame-arguments none " + std::to_string(calls);
}

Driver::StackLine Gdb::parseStackLine(std::string_view line) const {
    StackLine result;
    if (line.starts_with("Thread ") && line.ends_with("):")) result.kind = StackLine::THREAD;
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
    for (const std::string_view key : {") at ", ") from "}) {
        at = line.rfind(key);
        if (at == std::string_view::npos) continue;
        const std::string_view path = line.substr(at + key.size());
        const std::size_t slash = path.rfind('/');
        result.place = slash == std::string_view::npos ? path : path.substr(slash + 1);
        break;
    }
    return result;
}
