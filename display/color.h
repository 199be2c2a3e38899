#pragma once

/// One row of the colour table: the user's name for it, the terminal's sequence, its index.
struct Color {
    const char* name;
    const char* detail;
    int id;
};

constexpr int numColors = 10;
extern const Color colorList[numColors];
/// Resets the colour after every line.
extern const char* const END_COLOR;
