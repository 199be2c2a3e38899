#include "display/color.h"

const Color colorList[numColors] = {
    {"black", "\x1b[1;30m", 0},     {"red", "\x1b[1;31m", 1},      {"green", "\x1b[1;32m", 2},
    {"yellow", "\x1b[1;33m", 3},    {"darkblue", "\x1b[1;34m", 4}, {"purple", "\x1b[1;35m", 5},
    {"blue", "\x1b[1;36m", 6},      {"white", "\x1b[1;37m", 7},    {"gray", "\x1b[1;38m", 8},
    {"darkgreen", "\x1b[2;32m", 9},
};
const char* const END_COLOR = "\x1b[00m";
