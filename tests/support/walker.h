#pragma once

#include "backend/os/childprocess.h"
#include "backend/os/pipe.h"
#include "backend/os/processtree.h"
#include "tests/support/testing.h"

// A process that is there before the session and after it; counts on its standard output.
class Walker {
  public:
    explicit Walker(Lines arguments = {}) {
        arguments.insert(arguments.begin(), VEX_BIN_DIR "/steadily");
        ChildProcess::Start start;
        start.argv = arguments;
        start.input = STDIN_FILENO;
        start.output = output.writer.get();
        child.start(start);
        output.writer.reset();
    }

    pid_t pid() const { return child.pid(); }
    std::string number() const { return std::to_string(child.pid()); }
    // Whether it counts: what it has said so far is thrown away, then it must say more, for so long
    // that all its threads have come by every place where a breakpoint can be left.
    bool walks() const {
        char text[65536];
        for (int lines = 0; lines < 20; ++lines) {
            pollfd ready{output.reader.get(), POLLIN, 0};
            if (::poll(&ready, 1, 5000) != 1 || ::read(output.reader.get(), text, sizeof text) <= 0)
                return false;
        }
        return ProcessTree::parentOf(child.pid()) != 0;
    }

  private:
    Pipe output;
    ChildProcess child;
};
