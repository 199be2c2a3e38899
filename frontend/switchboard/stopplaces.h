#pragma once

#include "backend/drivers/driver.h"
#include "backend/folding/stacktree.h"
#include "common/clientset.h"

#include <map>
#include <string>
#include <vector>

/// In which function of the program tasks stood still last, as far as their debuggers have said so,
/// by themselves or when a user asked for stacks: nobody asks them for it. Takes memory for
/// distinct places, not for clients.
class StopPlaces {
  public:
    /// The driver must outlive this.
    explicit StopPlaces(const Driver& dialect) : driver(dialect) {}

    /// The clients' debuggers get this line.
    void typed(const ClientSet& clients, const std::string& line);
    /// Debuggers have printed these lines.
    void said(const ClientSet& clients, const std::vector<std::string>& lines);
    /// The stacks of clients have become known.
    void stacks(const StackTree& tree);
    /// "search (ring.cpp:41)", or "search" where a stack does not tell the line; empty: it is not
    /// known.
    std::string of(int client) const;
    /// Whether the client's debugger keeps it from ending its job.
    bool isKept(int client) const { return kept.contains(client); }

  private:
    const Driver& driver;
    std::map<std::string, ClientSet> places;
    ClientSet kept;
    ClientSet inLibrary; // the innermost call is not of the program, the lines behind it may tell

    void leave(const ClientSet& clients);
    void put(const std::string& place, const ClientSet& clients);
};
