#include "console/cline.h"
#include "console/readline.h"
#include "console/term.h"
#include "fuzz/fuzz.h"
#include "tests/support/editorscreen.h"

// Keys; bytes from 0xe0 stand for the keys beyond the characters. Whatever is pressed, the screen
// shows the buffer and the cursor stands where the editor says.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
    Readline::addContext("print");
    Readline::addContext("printf");
    Readline::Line line(64, 5, Readline::generateVariable);
    line.recall("where");
    line.start();
    EditorScreen screen;
    for (std::size_t i = 0; i < size; ++i) {
        const int key = bytes[i] >= 0xe0 ? Term::BACKSP + (bytes[i] - 0xe0) % 11 : bytes[i];
        const bool ended = line.handleKey(key);
        expect(screen.follows(line) && line.getLength() < 64);
        if (!ended) continue;
        line.finish();
        line.start();
        screen = {};
    }
    return 0;
}
