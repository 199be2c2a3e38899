#pragma once

#include "common/data.h"
#include "tests/support/testing.h"

/// One line of output: its number, the clients that printed it, and the text.
struct Output {
    int number;
    ClientSet clients;
    std::string text;
    Line::State state = Line::EQUAL;

    Line line() const {
        Line line(number, state);
        line.addBEs(clients);
        line.setContent(text);
        line.generateKey();
        return line;
    }
    /// A record of these lines, whose bounds and client count follow from them.
    static Data record(const std::vector<Output>& lines) {
        Data data;
        ClientSet all;
        for (const Output& output : lines) {
            const Line line = output.line();
            data.addLine(&line);
            all.insert(output.clients);
        }
        if (!all.empty()) data.setBounds(all.front(), all.back(), static_cast<int>(all.size()));
        return data;
    }
};
