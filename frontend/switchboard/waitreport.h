#pragma once

#include "backend/folding/stacktree.h"
#include "common/clientset.h"
#include "frontend/switchboard/waitgraph.h"

#include <map>
#include <string>
#include <vector>

/// Tells the user who waits for whom: deadlocks and culprits first, then who is missing in
/// collective calls, and who is behind. The rows are few, however many tasks there are. Tasks are
/// named by their ranks in MPI_COMM_WORLD. Does no I/O.
class WaitReport {
  public:
    /// The graph is solved, and must outlive this.
    explicit WaitReport(const WaitGraph& solved) : graph(solved) {}

    /// What matters most stands first. Once.
    std::vector<StackTree::Row> rows();

  private:
    // Those that are at one place, and who waits for them.
    struct Culprits {
        ClientSet clients, waiters;
        WaitGraph::Index longest = WaitGraph::none; // the waiter with the longest chain
    };
    // Those that make one collective call.
    struct Callers {
        ClientSet clients, ranks;
    };

    const WaitGraph& graph;
    bool someWait = false;
    ClientSet told;                        // for whom others wait
    std::map<std::string, ClientSet> idle; // for whom nobody waits, by why they wait for nobody
    std::vector<StackTree::Row> answer;

    std::string chain(WaitGraph::Index from) const;
    void tellDeadlocks();
    void tellCulprits();
    void tellCollectives();
    void tellOthers();
};
