#pragma once

#include <string>

/// The signal by which a task has stopped, as the system has told its debugger (sigaction(2)).
struct SignalFacts {
    static constexpr const char* unknown = "unknown"; // address
    int number = 0;
    int code = 0;
    std::string address;

    /// Read off the line that the command below has printed; number 0: it tells none.
    static SignalFacts of(const std::string& line);
    /// Prints the line, and no error in a task without a signal.
    static const char* command();
    /// The number of a signal by its name, "SIGSEGV"; 0: there is none.
    static int numberOf(const std::string& name);
    /// What it says, as the system words it; the other text when it does not know the signal.
    static std::string meaningOf(const std::string& name, const std::string& other);
    /// Whether such a signal, sent by whomever, says that a program went wrong.
    bool isFault() const;
};
