#include "backend/drivers/gdbvalues.h"

#include <algorithm>
#include <array>

const char* const GdbValues::plain = "alias vex-values = output";

// One line: "value", the number if it is one, whether the frame was the selected one (2: there is
// none), its function, and what gdb shows, with tabs between.
const char* const GdbValues::hook = R"(
import gdb
def own():
    frame = gdb.newest_frame()
    while frame is not None:
        if frame.function() is not None and gdb.solib_name(frame.pc()) is None: return frame
        frame = frame.older()
def evaluate(expression):
    value = gdb.parse_and_eval(expression)
    if value.type.strip_typedefs().code in (gdb.TYPE_CODE_REF, gdb.TYPE_CODE_RVALUE_REF):
        value = value.referenced_value()
    if not value.is_optimized_out: value.fetch_lazy()
    return value
def number(value):
    kind = value.type.strip_typedefs().unqualified()
    if value.is_optimized_out or kind.name == "char": return ""
    if kind.code in (gdb.TYPE_CODE_INT, gdb.TYPE_CODE_RANGE): return str(int(value))
    if kind.code == gdb.TYPE_CODE_FLT: return repr(float(value))
    if kind.code == gdb.TYPE_CODE_DECFLOAT: return repr(float(str(value)))
    return ""
def line(value, frame, selected):
    function = frame.name() if frame is not None else ""
    text = " ".join(str(value).split())
    where = 2 if frame is None else int(selected)
    return chr(9).join(("value", number(value), str(where), function or "??", text))
def inOwn(expression, selected):
    frame = own()
    if frame is None or frame == selected: return None
    frame.select()
    try: return line(evaluate(expression), frame, False)
    finally:
        if selected.is_valid(): selected.select()
def answer(expression):
    frame = None
    try: frame = gdb.selected_frame()
    except gdb.error: pass
    try: return line(evaluate(expression), frame, True)
    except gdb.MemoryError: raise
    except gdb.error:
        found = inOwn(expression, frame) if frame is not None else None
        if found is None: raise
        return found
class Values(gdb.Command):
    def __init__(self): super().__init__("vex-values", gdb.COMMAND_DATA)
    def invoke(self, argument, from_tty):
        try: text = answer(argument)
        except gdb.error as problem: raise gdb.GdbError(str(problem))
        try: print(text)
        except UnicodeError: print(text.encode("ascii", "backslashreplace").decode())
Values()
)";

Driver::Value GdbValues::parse(std::string_view answer) {
    // The program, or a function that was called, may have printed something before.
    const std::size_t begin = answer.rfind("value\t");
    Driver::Value value;
    if (begin == std::string_view::npos || (begin > 0 && answer[begin - 1] != '\n')) {
        value.text = Driver::firstLine(answer);
        value.number = Driver::numberIn(value.text);
        return value;
    }
    answer = answer.substr(begin, answer.find('\n', begin) - begin);
    std::array<std::string_view, 4> fields;
    for (std::string_view& field : fields) {
        const std::size_t end = std::min(answer.find('\t'), answer.size());
        field = answer.substr(0, end);
        answer.remove_prefix(std::min(answer.size(), end + 1));
    }
    value.text = answer;
    value.number = Driver::numberIn(fields[1]);
    value.isSelected = fields[2] == "1";
    value.isStatic = fields[2] == "2";
    if (!value.isStatic) value.function = fields[3];
    return value;
}
