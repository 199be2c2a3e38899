#pragma once

#include "common/clientset.h"
#include "common/command.h"
#include "common/groupnames.h"
#include "common/reply.h"

#include <map>
#include <optional>
#include <string>
#include <vector>

/// The groups of a session: "all", one per client number, the named ones, and two that every
/// console has for itself: "FILTERED" and "PENDING", the clients that it waits for. A group that
/// loses its last member ceases to exist.
class Groups {
  public:
    /// Clients 0 to clients - 1.
    explicit Groups(int clients);

    /// The living clients.
    const ClientSet& all() const { return everyone; }
    /// The members of a group as this console sees it; nothing when there is no such group.
    std::optional<ClientSet> members(const std::string& name, int console) const;
    /// Carries out a console's group command and gives back the reply; `current` is the group in
    /// which the console stands.
    Reply apply(const GroupCommand& command, int console, const std::string& current);

    void setPending(int console, ClientSet ids) { pending[console] = std::move(ids); }

    /// The rows of a console's report, the places of its stat, say, become its groups "PLACE1" and
    /// so on, or of another name; it loses those that it had of that name. The group in which it
    /// stands keeps its members until the console is told to have left it.
    void setPlaces(int console, const std::vector<ClientSet>& clients, const std::string& current,
                   const std::string& name = GroupNames::place);
    void leftGroup(int console);

    /// Adds a client to "all".
    void addClient(int id) { everyone.insert(id); }
    void removeClient(int id);
    void removeConsole(int console) {
        filtered.erase(console);
        pending.erase(console);
        places.erase(console);
    }

  private:
    ClientSet everyone;
    std::map<std::string, ClientSet> named;
    std::map<int, ClientSet> filtered;
    std::map<int, ClientSet> pending;
    struct Places {
        std::map<std::string, ClientSet> groups;
        std::string keptName; // of the group in which the console stands; empty: none
        ClientSet kept;
    };
    std::map<int, Places> places;

    const ClientSet* placeOf(const std::string& name, int console) const;
    Reply query(const std::string& name, int console) const;
    Reply assignFiltered(const GroupCommand& command, int console, const std::string& current);
    static std::string describe(const std::string& name, const ClientSet& ids);
};
