#pragma once

#include "report/excerpt.h"
#include "report/mpimessages.h"
#include "report/report.h"
#include "report/signalfacts.h"
#include "report/tasklog.h"
#include "report/transcript.h"

#include <map>
#include <string>
#include <vector>

/// What consoles have been told about a job, and the report that it comes to. Does no I/O.
struct Findings {
    explicit Findings(int tasks) : log(tasks) {}

    /// Whether the tasks were run, and not found running or standing.
    bool ran = true;
    /// Whether they were to be run.
    bool toRun = false;
    bool timedOut = false;
    /// The session ended before its tasks did.
    bool cut = false;
    /// A signal came before all debuggers had started.
    bool startCut = false;
    /// The signal at which all was found out at once; 0: none came.
    int signal = 0;
    int timeout = 0; // seconds
    TaskLog log;
    /// The clients that have crashed, or were passed on a signal at these stacks; what `bt full`
    /// has said of each.
    ClientSet crashed, passed;
    Transcript fullStacks;
    std::map<int, SignalFacts> signals; // by client
    /// The clients of the session when it began, those of them that it has lost, those of the
    /// processes that tasks have forked since, and the answers of all.
    ClientSet clients, lost, forked;
    /// Those whose tasks have forked processes that have no debugger.
    ClientSet forkers;
    /// Those whose debuggers do not answer, or could not read their core file.
    ClientSet silent, unread;
    std::vector<Row> stat, waits, who;
    /// Ranks, in the place of clients, that have no debugger from the start on, and why.
    std::vector<Row> missing;
    /// Those of them whose debuggers are at fault.
    ClientSet undebugged;
    Transcript stacks;
    /// The first line of what a debugger says of its version; which MPI libraries tasks have.
    std::string debugger;
    std::vector<Row> mpi;
    /// What has stopped these, as the command of SignalFacts and `bt full` have said. Where that
    /// comes of a handler to which the signal was passed on, what was known before remains.
    void noteCrash(const ClientSet& clients, const std::vector<Row>& told,
                   const std::vector<Row>& stackLines);
    /// A line that the launcher has said.
    void addLauncherLine(const std::string& line);
    /// What could not be found out; the same about several clients is one note.
    void addNote(const ClientSet& clients, const std::string& text);

    /// Fills in what follows from all this; the rest of the report is the caller's.
    void conclude(Report& report) const;

  private:
    Excerpt<std::string> launcher;
    Excerpt<Row> notes;
    // Of the launcher's lines.
    MpiMessages messages;

    void addCrashes(Report& report) const;
    void addEnds(Report& report) const;
    void addStat(Report& report) const;
    void addOutcome(Report& report) const;
    void addRefusal(Report& report) const;
    MpiMessages aborters() const;
};
