#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/node.h"
#include "backend/os/clock.h"
#include "common/clientset.h"
#include "frontend/switchboard/request.h"
#include "frontend/switchboard/requests.h"

#include <map>
#include <string>

/// What the session itself says about clients, as lines among their output. Does no I/O.
class Remarks {
  public:
    /// All must outlive this.
    Remarks(Requests& inFlight, Requests::Outlet& out, const Driver& kind)
        : requests(inFlight), outlet(out), driver(kind) {}

    /// Says something about clients to one console.
    void say(int console, const std::string& cmd, const ClientSet& about,
             const std::string& text) const;
    /// The same, below what clients have printed for a request, whose console need not be this one.
    void announce(Request& where, int console, const ClientSet& about,
                  const std::string& text) const;
    /// Names the clients that wait for an answer; false when there is nobody to name or to tell.
    bool tellAsking(Request& request) const;
    /// Names the clients that have not answered for a long time, which these nodes have.
    void tellSilent(Request& request, const ClientSet& silent,
                    const std::map<Node*, ClientSet>& nodes) const;

  private:
    Requests& requests;
    Requests::Outlet& outlet;
    const Driver& driver;

    void remark(Request& request, const ClientSet& about, const std::string& text) const;
};
