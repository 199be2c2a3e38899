#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

/// The order in which peers that have proved nothing leave, when there are too many: the peers of
/// one source address take no room from those of another, and a peer that has said nothing leaves
/// before one that has, the oldest first. Peers of this machine's own socket have a room apart. A
/// list without I/O: the owner drops whom it is told to.
class Strangers {
  public:
    using Number = std::uint64_t;

    /// How many there may be. Enough for the agents of the largest job, which may come all at once.
    struct Room {
        std::size_t local = 4200;
        std::size_t remote = 4200;
        std::size_t silent = 512; // of one address
    };

    explicit Strangers(const Room& most) : room(most) {}

    /// A peer comes, from this address; empty: by the local socket. Its number is above those
    /// before.
    Number come(const std::string& source);
    /// It has introduced itself.
    void spoke(Number stranger);
    /// It has gone, or come through.
    void leave(Number stranger);

    /// Whom to drop, for which leave is to be called: there are too many; nothing while there is
    /// room.
    std::optional<Number> surplus() const;
    /// Whom to drop next in any case; nothing when there is nobody from elsewhere.
    std::optional<Number> next() const;

  private:
    struct Source {
        std::set<Number> silent, others;

        std::size_t size() const { return silent.size() + others.size(); }
        // Who came last could not speak yet.
        std::size_t silentBefore(Number newest) const {
            return silent.size() - silent.count(newest);
        }
        Number first(Number newest) const {
            return *(others.empty() || silentBefore(newest) > 0 ? silent : others).begin();
        }
    };

    const Room room;
    std::map<std::string, Source> sources; // none is empty
    std::map<Number, std::string> sourceOf;
    std::size_t remote = 0;
    Number last = 0;
};
