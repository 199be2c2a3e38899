#pragma once

#include "report/transcript.h"

#include <cstddef>
#include <string>
#include <vector>

/// What is known of a job, as its report tells it, whatever the form. A value.
struct Report {
    /// How the job stands. LOOKED: it runs on, or was looked at as it was found.
    enum Outcome { ENDED, LOOKED, FAILED, TIMED_OUT } outcome = ENDED;

    /// Tasks that have stopped in the same way at the same calls of their program.
    struct Crash {
        ClientSet clients;
        std::string signal;  // empty: they would have ended the job
        std::string meaning; // of those: empty: by MPI_Abort; else "fatal error in MPI"
        std::string address; // that could not be accessed; empty: none, or several
        std::string place;   // "peak (halo.cpp:168), called by simulate"
        std::vector<std::string> calls;
        std::vector<Transcript::Part> stacks;
    };
    /// Tasks that have ended otherwise than with status 0.
    struct Ended {
        ClientSet clients;
        int status = 0;
        std::string signal; // empty: by the status
    };
    /// A call of the tree of all stacks; those that it has called stand behind it, one deeper.
    struct Call {
        std::size_t depth = 0;
        std::string text;
        ClientSet clients;
    };

    std::string headline;
    /// The first to look at, each with a sentence that begins with what it does.
    std::vector<Row> culprits;
    /// Ranks of the job, in the place of clients, that have no client, and why.
    std::vector<Row> missing;

    std::string command;
    int tasks = 0;
    std::string started, looked, written; // UTC, RFC 3339; looked: empty when nothing was looked at
    std::string vex, debugger, system;    // versions; empty: unknown
    std::string launchedBy;               // the version of the job's launcher; empty: unknown
    std::vector<Row> mpi;                 // which MPI library tasks have

    std::vector<Crash> crashes;
    std::vector<Ended> ended;
    std::vector<Row> places;
    std::vector<Call> tree;
    std::vector<Row> helpers;
    std::vector<Row> waits;
    std::vector<Row> who;
    std::vector<Transcript::Part> output;
    std::vector<std::string> launcher;
    /// The stacks of the tasks that have not crashed.
    std::vector<Transcript::Part> stacks;
    /// What could not be found out.
    std::vector<Row> notes;

    /// The exit status of a look that was not carried out as it should; 0: it was.
    int disturbed = 0;

    int exitStatus() const {
        return outcome == FAILED ? 4 : outcome == TIMED_OUT ? 5 : outcome == LOOKED ? disturbed : 0;
    }
};
