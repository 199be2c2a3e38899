#pragma once

#include "backend/folding/linecutter.h"
#include "backend/folding/stacktree.h"
#include "backend/os/clock.h"
#include "common/clientset.h"

#include <string>
#include <vector>

/// What clients work on, as their node is told.
struct Work {
    enum Output {
        /// Line by line.
        LINES,
        /// All that a client answers, as one text.
        WHOLE,
        /// Stacks, as trees.
        STACKS,
    };

    /// Of the session's request; 0: none.
    int number = 0;
    Output output = LINES;
    /// STACKS: tells calls apart by source line, too.
    bool withPlaces = false;
    /// STACKS: all calls of all threads (StackText).
    bool allCalls = false;
    /// Lines are not held to be folded.
    bool instant = false;
};

/// The debuggers of one node, in this process or on another machine: types lines at them, and tells
/// its Listener what sets of clients make of it. What a client says belongs to the work that it has
/// begun last, also when that is over. Its lines are safe to show (SafeText), captured text is as
/// it came. Each node has clients of its own.
class Node {
  public:
    /// Hears of the clients of nodes. Must not call back but for work that is begun by what it has
    /// heard: an answer may lead to the next line.
    class Listener {
      public:
        virtual ~Listener() = default;
        /// The next lines of each of the clients.
        virtual void said(int work, const ClientSet& clients, std::vector<std::string> lines,
                          Clock::time_point now) = 0;
        /// The same of a part of a line: its beginning, which is shown as it stands, or what goes
        /// on with the part before.
        virtual void saidPart(int work, const ClientSet& clients, const LineCutter::Piece& part,
                              Clock::time_point now) = 0;
        /// All that a client has answered to work whose output is WHOLE; before `answered`.
        virtual void captured(int work, int client, const std::string& text) = 0;
        /// What clients have answered to work whose output is STACKS; before `answered`.
        virtual void stacks(int work, const StackTree& tree) = 0;
        /// The clients have answered the line that was typed last.
        virtual void answered(int work, const ClientSet& clients, Clock::time_point now) = 0;
        /// The clients wait for an answer of the user; once until they have it. The question is
        /// that of the first of them.
        virtual void asks(int work, const ClientSet& clients, const std::string& question,
                          Clock::time_point now) = 0;
    };

    Node() = default;
    virtual ~Node() = default;
    Node(const Node&) = delete;
    Node& operator=(const Node&) = delete;

    /// The clients, which have answered what was typed before, begin with a work.
    virtual void begin(const ClientSet& clients, const Work& work, Clock::time_point now) = 0;
    /// Types a line, given without its newline, at debuggers that have answered the one before.
    virtual void type(const ClientSet& clients, const std::string& line) = 0;
    /// Interrupts those that have not answered.
    virtual void interrupt(const ClientSet& clients, Clock::time_point now) = 0;
    /// Types an answer at those that wait for one; gives them, as far as is known here.
    virtual ClientSet reply(const ClientSet& clients, const std::string& text,
                            Clock::time_point now) = 0;
    /// Where it is, for the user; empty: in this process.
    virtual const std::string& host() const = 0;
};
