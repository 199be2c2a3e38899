#include "console/cline.h"
#include "console/readline.h"
#include "console/term.h"
#include "fuzz/fuzz.h"

namespace {

// A line of a terminal that never wraps: characters overwrite, backspaces step back.
struct Screen {
    std::string cells;
    std::size_t column = 0;

    void show(const std::string& echo) {
        for (char c : echo) {
            expect(c != '\b' || column > 0);
            if (c == '\b') {
                --column;
                continue;
            }
            if (column == cells.size()) cells += ' ';
            cells[column++] = c;
        }
    }
};

} // namespace

// Keys; bytes from 0xe0 stand for the keys beyond the characters. Whatever is pressed, the screen
// shows the buffer and the cursor stands where the editor says.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Readline::addContext("print");
    Readline::addContext("printf");
    Readline::Line line(64, 5, Readline::generateVariable);
    line.recall("where");
    line.start();
    Screen screen;
    for (std::size_t i = 0; i < size; ++i) {
        const int key = bytes[i] >= 0xe0 ? Term::BACKSP + (bytes[i] - 0xe0) % 11 : bytes[i];
        const bool ended = line.handleKey(key);
        screen.show(line.takeEcho());
        const std::string text = line.text();
        expect(static_cast<int>(text.size()) == line.getLength() && text.size() < 64);
        expect(static_cast<int>(screen.column) == line.getCursor());
        expect(screen.cells.compare(0, text.size(), text) == 0);
        expect(screen.cells.find_first_not_of(' ', text.size()) == std::string::npos);
        if (!ended) continue;
        line.finish();
        line.start();
        screen = {};
    }
    return 0;
}
