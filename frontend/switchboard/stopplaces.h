#pragma once

#include "backend/drivers/driver.h"
#include "common/clientset.h"

#include <map>
#include <string>
#include <vector>

/// Where tasks stood still last, as far as their debuggers have said so by themselves: nobody asks
/// them for it. Takes memory for distinct places, not for clients.
class StopPlaces {
  public:
    /// The driver must outlive this.
    explicit StopPlaces(const Driver& dialect) : driver(dialect) {}

    /// The clients' debuggers get a command: their tasks may run.
    void leave(const ClientSet& clients);
    /// Debuggers have printed these lines.
    void said(const ClientSet& clients, const std::vector<std::string>& lines);
    /// "search (ring.cpp:41)"; empty: it is not known.
    std::string of(int client) const;

  private:
    const Driver& driver;
    std::map<std::string, ClientSet> places;
};
