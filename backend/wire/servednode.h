#pragma once

#include "backend/drivers/driver.h"
#include "backend/drivers/errorwatch.h"
#include "backend/folding/localnode.h"
#include "backend/wire/nodereport.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

/// A node as its agent serves it: carries out the session's records at debuggers of this process,
/// and tells in records what becomes of it. Does no I/O: it is told what happened and at what time,
/// and acts through its Outlet, which must not call back.
class ServedNode : private Node {
  public:
    class Outlet : public LocalNode::Outlet, public NodeReport::Outlet {};

    /// The error mark is that of the debuggers (Driver::Launch); empty: errors are not watched for.
    /// The driver and the outlet must outlive this.
    ServedNode(const Driver& driver, const std::string& errorMark, Outlet& out);

    /// A debugger is being started. Its errors count from now on, or from its first prompt.
    void add(int client, bool errorsCount);
    const ClientSet& clients() const { return known; }
    /// Carries out a record; false: it is none of those that concern debuggers at work.
    bool take(const AgentRecord& record, Clock::time_point now);

    /// What a client's debugger printed, without its prompts.
    void output(int client, std::string_view text, Clock::time_point now);
    /// The first time, `holds` says whether it holds the process that it was to attach to.
    void prompted(int client, bool holds, Clock::time_point now);
    /// The debugger tells that its task runs from now on, or stands still.
    void runs(int client, bool nowRuns) { node.runs(client, nowRuns); }
    /// The client's debugger has ended, all its output was handed over; or there will be none.
    void ended(int client, Clock::time_point now);
    /// Whether the client's debugger has not prompted yet.
    bool starting(int client) const { return starts.contains(client); }

    std::optional<Clock::time_point> deadline() const;
    void tick(Clock::time_point now);
    /// Sends at once what was gathered.
    void flush(Clock::time_point now) { report.flush(now); }

  private:
    struct Starting {
        std::string text;
        bool errorsCount = true;
    };

    NodeReport report;
    LocalNode node;
    const std::unique_ptr<ErrorWatch> errors; // null: not watched for
    ClientSet known;
    std::map<int, Starting> starts;

    void endStart(int client, bool over, bool holds, Clock::time_point now);
    void reportErrors();

    // Node
    void begin(const ClientSet& clients, const Work& work, Clock::time_point now) override;
    void type(const ClientSet& clients, const std::string& line) override;
    void interrupt(const ClientSet& clients, Clock::time_point now) override;
    ClientSet reply(const ClientSet& clients, const std::string& text,
                    Clock::time_point now) override;
    const std::string& host() const override { return node.host(); }
};
