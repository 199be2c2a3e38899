#pragma once

#include "console/cline.h"

#include <string>

/// The line of a terminal before an editor, one that never wraps: characters overwrite, backspaces
/// step back.
class EditorScreen {
  public:
    /// Shows what the editor echoes. Whether the line shows the editor's buffer then, and nothing
    /// behind it, with its cursor where the editor's is.
    bool follows(Readline::Line& line) {
        for (const char c : line.takeEcho()) {
            const auto byte = static_cast<unsigned char>(c);
            if (c == '\b' ? column == 0 : byte < ' ' || byte == 127) return false;
            if (c == '\b') {
                --column;
                continue;
            }
            if (column == cells.size()) cells += ' ';
            cells[column++] = c;
        }
        std::string text = line.text();
        const bool placed = static_cast<int>(text.size()) == line.getLength() &&
                            static_cast<int>(column) == line.getCursor();
        if (text.size() < cells.size()) text.resize(cells.size(), ' ');
        return placed && cells == text;
    }

  private:
    std::string cells;
    std::size_t column = 0;
};
