#pragma once

#include "backend/jobs/launcher.h"
#include "backend/os/eventloop.h"

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/// Logins on other hosts, each by a launcher of its own (ssh, say). At most eight are under way at
/// a time, since a host turns more away; a login is under way until it is done: it has brought what
/// it is for, or never will. Also the one launcher of a whole job. One thread.
class Logins {
  public:
    /// What a login runs.
    struct Command {
        std::vector<std::string> argv;
        std::string input; // of its standard input
    };
    /// Hears of logins by their numbers, from 0; from the event loop or from collect.
    class Owner {
      public:
        virtual ~Owner() = default;
        /// How the login is to be started; from within startNext.
        virtual Command commandOf(std::size_t login) = 0;
        /// The launcher printed a line.
        virtual void onLine(std::size_t login, const std::string& line) = 0;
        /// The launcher has ended, and all that it printed was handed over; how it ended goes
        /// behind its name in a sentence.
        virtual void onEnded(std::size_t login, const std::string& how) = 0;
    };

    /// Starts none yet. With a time limit, a login that is not done in time is stopped. The owner
    /// must outlive this.
    Logins(EventLoop& loop, std::size_t count, std::optional<Clock::duration> maxTime,
           Owner& owner);

    /// Starts as many as may be under way. Throws std::system_error.
    void startNext();
    /// The login has brought what it is for, or never will. Starts no other one by itself.
    void finish(std::size_t login);
    bool finished(std::size_t login) const { return logins[login].phase == DONE; }
    /// Whether all are done.
    bool allFinished() const { return done == logins.size(); }
    /// Whether the login was started and is not done.
    bool underWay(std::size_t login) const { return login < started && !finished(login); }
    /// How many there are.
    std::size_t count() const { return logins.size(); }

    /// Looks which launchers have ended; call it on SIGCHLD.
    void collect();
    /// Makes all launchers end: those of the logins that are under way at once, the others once
    /// their tasks have had time to end.
    void stop();
    /// The command that takes back what a launcher has left behind (Launcher::remedy).
    std::optional<std::string> remedy(std::size_t login) const {
        return logins[login].launcher->remedy();
    }
    /// Whether the launcher has failed, though nobody has stopped it (Launcher::failed).
    bool failed(std::size_t login) const { return logins[login].launcher->failed(); }
    /// Whether a launcher still runs.
    bool running() const;

  private:
    enum Phase { AHEAD, LATE, DONE };
    struct Login {
        Phase phase = AHEAD;
        std::unique_ptr<Launcher> launcher; // null: not started
        std::optional<Timer> patience;
    };

    EventLoop& loop;
    const std::optional<Clock::duration> maxTime;
    Owner& owner;
    std::vector<Login> logins;
    std::size_t started = 0;
    std::size_t done = 0;

    void start(std::size_t login);
    void onTimeOut(std::size_t login);
    void onEnded(std::size_t login, const std::string& how);
};
