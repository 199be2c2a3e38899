#pragma once

#include <string>

/// The command line of the agent: either it serves a front end, or it lists tasks of its host.
struct AgentOptions {
    /// The file that says how to reach the front end; "-": standard input; empty: not asked for.
    std::string rendezvous;
    /// The job whose tasks are listed, as RunningJob::Manager names it; empty: not asked for.
    std::string manager;

    /// What a wrong usage ends with.
    static constexpr int notOneTask = 106, unexpectedWord = 109, wrongValue = 114;

    /// What to do with a command line: go on, or print a text and end.
    struct Outcome {
        bool proceed;
        int status;
        std::string text;
    };

    /// Fills in the options; one of them is set when the outcome is to go on. The text of an
    /// outcome is an answer to --help or --version (status 0), which win over mistakes, or says
    /// what is wrong.
    Outcome parse(int argc, char** argv);
};
