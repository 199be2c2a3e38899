#pragma once

#include "common/descriptor.h"

#include <string>
#include <utility>

/// A pseudo-terminal that passes bytes as they are: no echo, no line editing, no signals from
/// control bytes, no output processing. Owns both ends.
class Pty {
  public:
    /// Throws std::system_error.
    Pty();

    /// The front end's end, non-blocking.
    int master() const { return front.get(); }
    /// The end that becomes a program's terminal.
    int terminal() const { return back.get(); }
    /// Its name, "/dev/pts/7".
    const std::string& name() const { return path; }
    /// Gives up the terminal's end once a program holds it: its end is then seen at the master.
    void closeTerminal() { back.reset(); }
    /// Hangs up: the program finds the end of its input.
    void closeMaster() { front.reset(); }
    /// Hands over the front end's end; closing that hangs up.
    Descriptor takeMaster() { return std::move(front); }

  private:
    Descriptor front;
    Descriptor back;
    std::string path;
};
