#include "bench/answers.h"

#include <cstdio>
#include <string_view>

namespace {

// A text of a given number of bytes that begins so.
std::string padded(std::string text, std::size_t bytes) {
    constexpr std::string_view filling = " iteration of the solver on its part of the grid";
    while (text.size() < bytes)
        text += filling.substr(0, bytes - text.size());
    return text;
}

std::string lines(long count, std::size_t bytes, const std::string& mark) {
    std::string text;
    for (long i = 0; i < count; ++i)
        text += padded(mark + std::to_string(i), bytes) + "\n";
    return text;
}

constexpr long mebibyte = 1024 * 1024;

} // namespace

// The stacks differ at their inner ends, as those of a job that has come apart do.
std::string Answers::stack(bool ofAllThreads) const {
    const int kind = task % 40;
    std::string text;
    if (ofAllThreads) text = "\nThread 1 (process " + std::to_string(1000 + task) + "):\n";
    const std::string names[] = {"poll",
                                 "wait_" + std::to_string(kind),
                                 "exchange_" + std::to_string(kind / 8),
                                 "step",
                                 "solve",
                                 "main"};
    int depth = 0;
    for (const std::string& name : names) {
        text += "#" + std::to_string(depth) + "  " + name +
                " () at halo.cpp:" + std::to_string(40 + depth) + "\n";
        ++depth;
    }
    return text;
}

std::string Answers::to(const std::string& line) {
    char word[16] = "";
    long number = 0;
    unsigned long bytes = 80;
    std::sscanf(line.c_str(), "%15s %ld %lu", word, &number, &bytes);
    const std::string_view command = word;
    if (command == "lines") return lines(number, bytes, "step ");
    if (command == "own") return lines(number, bytes, "task " + std::to_string(task) + " step ");
    if (command == "flood") return lines(number * (mebibyte / 81), 80, "step ");
    if (command == "line") return padded("", static_cast<std::size_t>(number * mebibyte)) + "\n";
    if (command == "print")
        return "$" + std::to_string(++values) + " = " + std::to_string(task) + "\n";
    if (command == "where" || command == "bt") return stack(false);
    if (command == "vex-stacks") return stack(true);
    runs = command == "run";
    return runs ? "Starting program: halo\n" : "";
}

std::string Answers::interrupted() {
    runs = false;
    return "\nProgram received signal SIGINT, Interrupt.\n0x0000000000401136 in step () at "
           "halo.cpp:43\n43\t    exchange();\n";
}
