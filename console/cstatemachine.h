#pragma once

#include "console/wakeup.h"

#include <atomic>
#include <cstdint>
#include <initializer_list>
#include <mutex>

/// What the console is doing: one process-wide instance, read and changed by both threads and by
/// the signal handlers.
///
/// The current and the saved state change together in one atomic step, so every member but lock and
/// unlock is async-signal-safe. The mutex is the turn of the two threads: whoever does several
/// things that the other must see as one (a reply's message and the prompt that follows it, READY
/// and the request that it causes) holds it meanwhile. Signal handlers never take it. While it is
/// held, NORMAL and INTERRUPTED can only become TOQUIT.
///
/// TOQUIT is final: only reset leaves it, so that a late reply cannot revive a session that ends.
/// No program calls reset, isRunning, isTemp and isIntTemp.
class StateMachine {
  public:
    enum STATE {
        NORMAL = 900,      ///< idle, waiting for the user's command
        RUNNING = 901,     ///< a client command is in flight; no prompt
        INTERRUPTED = 902, ///< the clients were interrupted; the prompt shows ":int"
        TOQUIT = 903,      ///< the session is ending; both loops stop
        TEMP = 904,        ///< a short request is in flight, issued from NORMAL
        INTTEMP = 905,     ///< the same, issued from INTERRUPTED
        INIT = 906         ///< connecting to the front end
    };
    enum EVENT {
        COMMON_CMD_EVENT = 0,
        SPECIAL_CMD_EVENT = 1,
        INTSTATUS_CMD_EVENT = 2,
        EXEC_OVER_EVENT = 3,
        GROUP_REPLY_EVENT = 4,
        ACTIVE_QUIT_EVENT = 5,
        PASSIVE_QUIT_EVENT = 6
    };

    /// The instance; it is never destroyed.
    static StateMachine* getInstance();

    StateMachine() = default;

    /// Moves on by an event; the new state does not depend on the current one.
    void parseConsole(EVENT event);
    /// The same, but only from the given state, tested and changed in one step; false when the
    /// state was another one.
    bool parseConsole(EVENT event, STATE from);
    /// What GROUP_REPLY_EVENT will restore, for an answer that comes while others are awaited.
    void setSaved(STATE state);
    /// EXEC_OVER_EVENT and SPECIAL_CMD_EVENT in one step: NORMAL is saved, never seen.
    void finishAndRequest();
    void reset();
    STATE getState() const { return now().state; }
    void setState(STATE state);
    /// Sets the state only from one of the given ones, in one step; false otherwise.
    bool setState(STATE state, std::initializer_list<STATE> from);

    bool isNormal() const { return getState() == NORMAL; }
    bool isRunning() const { return getState() == RUNNING; }
    bool isInterrupted() const { return getState() == INTERRUPTED; }
    bool isToQuit() const { return getState() == TOQUIT; }
    bool isTemp() const { return getState() == TEMP; }
    bool isIntTemp() const { return getState() == INTTEMP; }
    bool isInit() const { return getState() == INIT; }
    /// A command or request is in flight: no prompt, nothing may be sent.
    bool isBusy() const;

    void lock() { mtx.lock(); }
    void unlock() { mtx.unlock(); }

    /// Sleeps until the state may have changed, at most ms (-1 without limit). For one thread only
    /// (the input thread).
    void waitForChange(int ms) const { changed.wait(ms); }
    /// Wakes the sleeper for a change of something else that it waits for.
    void announce() const { changed.ring(); }
    /// Readable as soon as the state is TOQUIT.
    int quitFd() const { return quitting.getFd(); }

  private:
    struct Pair {
        STATE state;
        STATE old_state;
    };

    std::atomic<std::uint32_t> states{pack({NORMAL, NORMAL})};
    static_assert(std::atomic<std::uint32_t>::is_always_lock_free);
    std::mutex mtx;
    Wakeup changed;
    Wakeup quitting;

    static constexpr std::uint32_t pack(Pair p) {
        return static_cast<std::uint32_t>(p.state) << 16 | static_cast<std::uint32_t>(p.old_state);
    }
    static Pair unpack(std::uint32_t word) {
        return {static_cast<STATE>(word >> 16), static_cast<STATE>(word & 0xffff)};
    }
    Pair now() const { return unpack(states.load()); }
    static bool next(Pair& pair, EVENT event);
    template <class Step>
    bool change(Step step);
};
