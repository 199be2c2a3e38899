#pragma once

#include "backend/folding/folder.h"
#include "backend/folding/node.h"
#include "backend/os/clock.h"
#include "backend/wire/noderecords.h"

#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

/// What a node's clients say and do, on its way to the session: gathered for a moment and sent as
/// records about sets of clients. Nothing waits for longer than Wait::window; what all clients that
/// work on something have answered leaves at once. Does no I/O.
class NodeReport : public Node::Listener {
  public:
    class Outlet {
      public:
        virtual ~Outlet() = default;
        virtual void send(const AgentRecord& record) = 0;
    };

    /// The outlet must outlive this.
    explicit NodeReport(Outlet& out) : outlet(out) {}

    /// The clients begin with a work; a line was typed at them.
    void begun(const ClientSet& clients, const Work& work, Clock::time_point now);
    void typed(const ClientSet& clients);
    /// The start of a client's debugger is over; there `remain` others whose start is not.
    void started(int client, const NodeRecords::Started& how, std::size_t remain,
                 Clock::time_point now);
    void errors(const NodeRecords::Errors& more);
    void ended(int client, Clock::time_point now);

    // Node::Listener
    void said(int work, const ClientSet& clients, std::vector<std::string> lines,
              Clock::time_point now) override;
    void saidPart(int work, const ClientSet& clients, const LineCutter::Piece& part,
                  Clock::time_point now) override;
    void captured(int work, int client, const std::string& text) override;
    void stacks(int work, const StackTree& tree) override;
    void answered(int work, const ClientSet& clients, Clock::time_point now) override;
    void asks(int work, const ClientSet& clients, const std::string& question,
              Clock::time_point now) override;

    std::optional<Clock::time_point> deadline() const;
    void tick(Clock::time_point now);
    /// Sends all that was gathered.
    void flush(Clock::time_point now);

  private:
    /// A work of clients here, and what they have made of it since the last records.
    struct Sheet {
        bool instant = false;
        ClientSet clients;
        ClientSet awaited; // those that have not answered
        Folder lines{Wait::window};
        std::optional<Clock::time_point> since; // the first line that was not sent
        std::optional<StackTree> stacks;
        std::map<std::string, ClientSet> whole;
        ClientSet answered;
    };
    using StartedAs = std::tuple<bool, bool, bool, std::string>;

    Outlet& outlet;
    std::map<int, Sheet> sheets; // by the number of the work
    std::map<int, int> workOf;   // of each client
    std::map<StartedAs, ClientSet> starts;
    NodeRecords::Errors faults;
    ClientSet ends;
    std::optional<Clock::time_point> since; // the first of what is gathered
    std::optional<Clock::time_point> due;

    void add(int work, const ClientSet& clients, const LineCutter::Piece& piece,
             Clock::time_point now);
    void sendLines(int work, Sheet& sheet, Folder::Lines lines, Clock::time_point now);
    void hold(Clock::time_point now, Clock::duration time);
    void leave(int client, Clock::time_point now);
    void send(int work, Sheet& sheet, Clock::time_point now);
};
