#pragma once

#include "common/data.h"

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>

/// How far the clients agree on each line.
enum Agreement {
    ALL_EQUAL,
    ONE_PERCENT_ODD, ///< every hundredth client has a text of its own
    ALL_DIFFERENT
};

/// The output of clients from, from + 1, ... to - 1: that number of lines, as the front end would
/// combine them.
inline Data outputOf(int from, int to, int lines, Agreement agreement) {
    Data data;
    data.setConsoleID(1);
    for (int number = 0; number < lines; ++number) {
        const std::string common = "#" + std::to_string(number) +
                                   "  0x00005555 in relax (grid=0x7ffe40, rows=512) at ring.c:";
        ClientSet equal;
        const auto add = [&](const ClientSet& clients, const std::string& text) {
            auto line = std::make_unique<Line>(number, Line::EQUAL);
            line->addBEs(clients);
            line->setContent(text);
            line->generateKey();
            data.addLine(std::move(line));
        };
        for (int id = from; id < to; ++id) {
            if (agreement == ALL_EQUAL || (agreement == ONE_PERCENT_ODD && id % 100 != 7))
                equal.insert(id);
        }
        if (!equal.empty()) add(equal, common + "17");
        for (int id = from; id < to; ++id) {
            if (!equal.contains(id)) add({id}, common + std::to_string(1000 + id));
        }
    }
    data.setBounds(from, to - 1, to - from);
    return data;
}

/// Sends standard output to nowhere for as long as it lives.
class Silence {
  public:
    Silence() : saved(::dup(STDOUT_FILENO)) {
        std::fflush(stdout);
        const int nowhere = ::open("/dev/null", O_WRONLY);
        ::dup2(nowhere, STDOUT_FILENO);
        ::close(nowhere);
    }
    ~Silence() {
        std::fflush(stdout);
        ::dup2(saved, STDOUT_FILENO);
        ::close(saved);
    }
    Silence(const Silence&) = delete;
    Silence& operator=(const Silence&) = delete;

  private:
    int saved;
};
