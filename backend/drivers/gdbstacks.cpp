#include "backend/drivers/gdbstacks.h"

// Offsets: of the thread state the native number, what leads to the current frame, and where that
// is in it; of a frame its code, its caller, its last instruction and what marks an entry from C
// (flag or owner); of a code object its file, its name, its lines, its first line, its
// instructions. All as in the headers of the interpreter on machines with pointers of 8 bytes.
const char* const gdbStacks = R"python(
import gdb, os, re, sys, time
evaluation = "_PyEval_EvalFrameDefault"
owned_by_c = 3
tables = {
    9: dict(thread=176, frame=24, code=32, back=24, last=104, file=104, name=112, lines=120,
            first=40, text=48),
    10: dict(thread=176, frame=24, code=32, back=24, last=96, file=104, name=112, lines=120,
             first=40, text=48),
    11: dict(native=160, frame=56, current=8, code=32, back=48, last=56, entry=68, file=112,
             name=120, lines=136, first=72, instructions=184, text=48),
    12: dict(native=144, frame=56, current=0, code=0, back=8, last=56, owner=70, file=112,
             name=120, lines=136, first=68, instructions=192, text=40),
}
class Unknown(Exception): pass
class Late(Unknown): pass
class Work:
    # What may still be spent on Python, in seconds; the calls of C are not counted.
    def __init__(self, left): self.left, self.until = left, 0
    def __enter__(self): self.until = time.monotonic() + self.left
    def __exit__(self, *problem): self.left = self.until - time.monotonic()
    def check(self):
        if time.monotonic() > self.until: raise Late
work = Work(0)
def read(address, size):
    work.check()
    try: return bytes(gdb.selected_inferior().read_memory(address, size))
    except OverflowError: raise gdb.MemoryError
def number(address, size=8, signed=False):
    return int.from_bytes(read(address, size), sys.byteorder, signed=signed)
def string(address, header):
    length, state = number(address + 16), number(address + 32, 4)
    kind, ascii = state >> 2 & 7, state >> 6 & 1
    if not 0 <= length < 4096 or kind not in (1, 2, 4): raise Unknown
    data = read(address + header + (0 if ascii else 24 if header == 48 else 16), length * kind)
    encoding = "latin-1" if kind == 1 else "utf-16" if kind == 2 else "utf-32"
    if kind > 1: encoding += "-le" if sys.byteorder == "little" else "-be"
    return data.decode(encoding, "replace")
def data(address): return read(address + 32, min(number(address + 16), 1 << 20))
def line_of_pairs(table, line, at, minor):
    begin = 0
    for i in range(0, len(table) - 1, 2):
        if i % 1024 == 0: work.check()
        by, delta = table[i], table[i + 1]
        if delta >= 128: delta -= 256
        if minor == 9:
            begin += by
            if begin > at: break
        if minor == 9 or delta != -128: line += delta
        if minor == 10:
            begin += by
            if begin > at: break
    return line
def line_of_locations(table, line, at):
    begin = i = 0
    while i < len(table):
        work.check()
        code, length = table[i] >> 3 & 15, 2 * ((table[i] & 7) + 1)
        i += 1
        if code in (13, 14):
            value = shift = 0
            for byte in table[i:i + 6]:
                value |= (byte & 63) << shift
                shift += 6
                if not byte & 64: break
            line += -(value >> 1) if value & 1 else value >> 1
        elif 10 <= code <= 12: line += code - 10
        begin += length
        if begin > at: break
        while i < len(table) and table[i] < 128: i += 1
    return line
def debug_offsets(runtime):
    # The order of the fields is another in each version.
    if read(runtime, 8) != b"xdebugpy" or number(runtime + 8) >> 16 != 0x30d: return None
    at = [number(runtime + 8 * i) for i in range(50)]
    thread, frame, code = at[19:28], at[28:34], at[34:44]
    return dict(head=at[5], threads=at[9], next=thread[2], native=thread[6], frame=thread[4],
                code=frame[2], back=frame[1], last=frame[3], owner=frame[5], file=code[1],
                name=code[2], lines=code[4], first=code[5], instructions=code[9], text=40)
def threads(runtime, table):
    # Where the first thread of the interpreter may stand.
    if "head" in table:
        yield number(number(runtime + table["head"]) + table["threads"])
        return
    for place in range(16, 128, 8):
        interpreter = number(runtime + place)
        for at in range(8, 256, 8):
            try:
                thread = number(interpreter + at)
                if thread and number(thread + 16) == interpreter: yield thread
            except gdb.MemoryError: continue
class Runtime:
    # One for all threads of a program: the list of their states is walked once, and where a
    # function is in its file is worked out once.
    def __init__(self):
        self.table = self.minor = None
        self.found, self.states, self.texts = {}, iter(()), {}
        try: self.find()
        except Late: raise
        except (gdb.error, Unknown): self.table = None
    def find(self):
        runtime = int(gdb.parse_and_eval("(unsigned long) &_PyRuntime"))
        self.table = debug_offsets(runtime)
        if self.table is None:
            file = gdb.solib_name(runtime) or gdb.current_progspace().filename or ""
            version = re.search("python3[.]([0-9]+)", os.path.realpath(file))
            self.minor = version and int(version.group(1))
            self.table = tables.get(self.minor)
        if self.table is not None: self.states = self.walk(runtime)
    def walk(self, runtime):
        key, after, seen = self.table.get("native"), self.table.get("next", 8), set()
        if key is None: key = self.table["thread"]
        for state in threads(runtime, self.table):
            try:
                while state and state not in seen:
                    seen.add(state)
                    self.found.setdefault(number(state + key), state)
                    yield
                    state = number(state + after)
            except gdb.MemoryError: continue
    def state_of(self, thread):
        wanted = thread.ptid[1] or thread.ptid[0]
        if "native" not in self.table:
            wanted = int(gdb.parse_and_eval("(unsigned long) $fs_base"))
        while wanted not in self.found:
            if next(self.states, self) is self: return 0
        return self.found[wanted]
class Interpreter:
    def __init__(self, thread, runtimes):
        self.thread, self.runtimes = thread, runtimes
        self.frame, self.seen, self.over, self.told = None, set(), False, False
    def find(self):
        self.table = self.minor = None
        self.frame = 0
        inferior = gdb.selected_inferior().num
        if inferior not in self.runtimes: self.runtimes[inferior] = Runtime()
        runtime = self.runtimes[inferior]
        if runtime.table is None: return
        try: state = runtime.state_of(self.thread)
        except gdb.error: return
        self.table, self.minor, self.texts = runtime.table, runtime.minor, runtime.texts
        if state:
            self.frame = number(state + self.table["frame"])
            if "current" in self.table: self.frame = number(self.frame + self.table["current"])
    def function(self, code):
        t = self.table
        if "instructions" in t: at = number(self.frame + t["last"]) - code - t["instructions"]
        else: at = number(self.frame + t["last"], 4, True) * (2 if self.minor == 10 else 1)
        if (code, at) not in self.texts: self.texts[code, at] = self.describe(code, at)
        return self.texts[code, at]
    def describe(self, code, at):
        t = self.table
        lines, first = data(number(code + t["lines"])), number(code + t["first"], 4)
        if "instructions" in t: line = line_of_locations(lines, first, at)
        else: line = line_of_pairs(lines, first, at, self.minor)
        file = string(number(code + t["file"]), t["text"])
        return function_of(string(number(code + t["name"]), t["text"]), file, line)
    def functions(self, frame, most):
        found = []
        if self.over: return found
        try:
            with work:
                if self.frame is None: self.find()
                if self.table is None: return self.supported(frame, most)
                if self.known(found, most): return found
        except (gdb.error, Unknown): self.over = True
        return found + self.once(chr(0x2026))
    def known(self, found, most):
        # Whether the frames end where C has called the first of them.
        while self.frame and len(found) < most:
            if self.frame in self.seen: raise Unknown
            self.seen.add(self.frame)
            t, code = self.table, number(self.frame + self.table["code"])
            last = "owner" not in t and "entry" not in t
            if "entry" in t: last = number(self.frame + t["entry"], 1) != 0
            shim = "owner" in t and number(self.frame + t["owner"], 1) == owned_by_c
            if not shim: found.append(self.function(code))
            self.frame = number(self.frame + t["back"])
            if last or shim: return True
        return False
    def supported(self, frame, most):
        import __main__
        found = []
        try:
            at = __main__.Frame(frame).get_pyop()
            while at is not None and len(found) < most:
                work.check()
                if hasattr(at, "is_shim") and at.is_shim(): break
                found.append(function_of(at.co_name, at.filename(), at.current_line_num()))
                if not hasattr(at, "previous") or hasattr(at, "is_entry") and at.is_entry(): break
                at = at.previous()
        except Late: raise
        except Exception: pass
        return found or self.once("functions of Python (to see them, install its debug symbols)")
    def once(self, text):
        if self.told: return []
        self.told = True
        return [(text,)]
def text(get):
    try: return get() or ""
    except (gdb.error, UnicodeError): return ""
# The interpreter's own files, also those that it has frozen.
own_files = re.compile("<frozen |.*/lib(64)?/python3[.][0-9]+t?/(?!site-packages/|dist-packages/)")
def function_of(name, file, line):
    where = ("%s (%s:%d)" % (name, os.path.basename(file), line),)
    return where + ("python",) if own_files.match(file) else where
def place(frame):
    sal = frame.find_sal()
    return sal.symtab and "%s:%d" % (sal.symtab.filename, sal.line)
def say(line):
    try: print(line)
    except UnicodeError: print(line.encode("ascii", "backslashreplace").decode())
def is_interpreter(call, python, library):
    program = os.path.basename(gdb.current_progspace().filename or "").startswith("python")
    if program and call[3] == "": return True
    return python is not None and call[3] == library and (library != "" or call[2] == "")
def calls(thread, most, runtimes):
    found, python, library, frame = [], None, None, gdb.newest_frame()
    try:
        while frame is not None and len(found) < most:
            name = text(frame.name) or "??"
            if frame.type() == gdb.SIGTRAMP_FRAME: name = "<signal handler called>"
            found.append(("call", name, text(lambda: place(frame)),
                          text(lambda: gdb.solib_name(frame.pc()))))
            if name.startswith(evaluation):
                if python is None: python, library = Interpreter(thread, runtimes), found[-1][3]
                room = most - len(found)
                found += [("python",) + each for each in python.functions(frame, room)[:room]]
            frame = frame.older()
    finally:
        for each in found:
            if each[0] == "call" and is_interpreter(each, python, library): each += ("1",)
            say(chr(9).join(each))
class Stacks(gdb.Command):
    def __init__(self): super().__init__("vex-stacks", gdb.COMMAND_STACK)
    def invoke(self, argument, from_tty):
        inferior, thread, frame = gdb.selected_inferior(), gdb.selected_thread(), None
        try: frame = gdb.selected_frame()
        except gdb.error: pass
        work.left, runtimes = 1, {}
        try:
            for each in gdb.inferiors():
                for one in sorted(each.threads(), key=lambda thread: thread.num):
                    say(chr(9).join(("thread", str(int(one.ptid[1] in (0, one.ptid[0]))))))
                    try:
                        one.switch()
                        calls(one, int(argument), runtimes)
                    except gdb.error as problem: say(str(problem))
        finally:
            if thread is not None: thread.switch()
            elif gdb.selected_inferior().num != inferior.num:
                gdb.execute("inferior %d" % inferior.num, to_string=True)
            if frame is not None and frame.is_valid(): frame.select()
Stacks()
)python";
