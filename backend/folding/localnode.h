#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/exchange.h"
#include "backend/folding/linecutter.h"
#include "backend/folding/node.h"
#include "backend/folding/taskstate.h"
#include "backend/os/clock.h"
#include "common/clientset.h"

#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The node of the debuggers that this process runs: makes of what they print lines, answers and
/// questions. Does no I/O: it is told what happened and at what time, and acts through its Outlet,
/// which must not call back.
class LocalNode : public Node {
  public:
    class Outlet {
      public:
        virtual ~Outlet() = default;
        /// Types a line, given without its newline, at the client's debugger.
        virtual void toClient(int client, const std::string& line) = 0;
        /// Sends the client's debugger SIGINT.
        virtual void interrupt(int client) = 0;
    };

    /// The driver, the outlet and the listener must outlive this.
    LocalNode(const Driver& kind, Outlet& out, Listener& told)
        : driver(kind), outlet(out), listener(told) {}

    void begin(const ClientSet& clients, const Work& work, Clock::time_point now) override;
    void type(const ClientSet& clients, const std::string& line) override;
    void interrupt(const ClientSet& clients, Clock::time_point now) override;
    ClientSet reply(const ClientSet& clients, const std::string& text,
                    Clock::time_point now) override;
    const std::string& host() const override { return here; }

    /// What a client's debugger printed, without its prompts.
    void output(int client, std::string_view text, Clock::time_point now);
    void prompted(int client, Clock::time_point now);
    /// The client's debugger tells that its task runs from now on, or stands still.
    void runs(int client, bool nowRuns) { workers[client].task.told(nowRuns); }
    /// The client's debugger has ended: its last words are said, and it answers no more.
    void gone(int client, Clock::time_point now);

    /// When to call tick; nothing: not before something else has happened.
    std::optional<Clock::time_point> deadline() const;
    void tick(Clock::time_point now);

  private:
    /// A client at its debugger.
    struct Worker {
        Work work;
        Exchange exchange;
        LineCutter cutter;
        std::string captured; // its answer, which is not told line by line
        TaskState task;
        bool silent = false; // half a line was told, and nothing has come since
        bool asked = false;  // its question was told

        bool captures() const { return work.output != Work::LINES && exchange.open(); }
        void capture(const LineCutter::Piece& piece);
        bool asks(const Driver& kind) const {
            return exchange.open() && (silent || kind.asks(cutter.tail()));
        }
    };

    const Driver& driver;
    Outlet& outlet;
    Listener& listener;
    const std::string here;
    std::map<int, Worker> workers; // those that were ever told of
    /// Clients that may be settling, and until when; the times ascend. A client that has answered
    /// meanwhile still stands here.
    std::deque<std::pair<Clock::time_point, int>> settling;
    /// Clients that may have an unfinished line, or a question that was not told.
    ClientSet unfinished;
    /// When the first of them may be due.
    std::optional<Clock::time_point> halfDue;

    void hear(int client, Worker& worker, LineCutter::Piece&& piece,
              std::vector<std::string>& lines, Clock::time_point now);
    void takeRest(int client, Worker& worker, Clock::time_point now);
    void awaitHalf(const Worker& worker);
    Clock::time_point halfUntil(const Worker& worker) const;
    void lookAtHalves(Clock::time_point now);
    void answer(int client, Worker& worker, Clock::time_point now);
};
