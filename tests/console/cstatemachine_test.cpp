#include "console/cstatemachine.h"
#include "tests/support/testing.h"

namespace {

using SM = StateMachine;
using enum SM::STATE;
using enum SM::EVENT;

bool rung(int fd) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
}

TEST(StateMachine, EventsLeadToTheSameStateFromEverywhere) {
    const struct {
        SM::EVENT event;
        SM::STATE next;
        bool saves = false;
    } table[] = {{COMMON_CMD_EVENT, RUNNING},          {SPECIAL_CMD_EVENT, TEMP, true},
                 {INTSTATUS_CMD_EVENT, INTTEMP, true}, {EXEC_OVER_EVENT, NORMAL},
                 {GROUP_REPLY_EVENT, INTERRUPTED}, // the state saved below
                 {ACTIVE_QUIT_EVENT, TOQUIT},          {PASSIVE_QUIT_EVENT, TOQUIT}};
    for (int number = NORMAL; number <= INIT; ++number) {
        const auto from = static_cast<SM::STATE>(number);
        for (const auto& [event, next, saves] : table) {
            SM machine;
            machine.setState(INTERRUPTED);
            machine.parseConsole(SPECIAL_CMD_EVENT);
            machine.setState(from);
            machine.parseConsole(event);
            const SM::STATE expected = from == TOQUIT ? TOQUIT : next;
            EXPECT_EQ(machine.getState(), expected) << from << " by " << event;
            EXPECT_EQ(rung(machine.quitFd()), expected == TOQUIT);
            if (expected == TOQUIT) continue;
            machine.parseConsole(GROUP_REPLY_EVENT);
            EXPECT_EQ(machine.getState(), saves ? from : INTERRUPTED) << from << event;
        }
    }
    // The end is final until it is reset.
    SM machine;
    machine.parseConsole(PASSIVE_QUIT_EVENT);
    machine.setState(NORMAL);
    machine.finishAndRequest();
    EXPECT_FALSE(machine.setState(NORMAL, {TOQUIT}));
    EXPECT_FALSE(machine.parseConsole(COMMON_CMD_EVENT, NORMAL));
    EXPECT_TRUE(machine.isToQuit());
    machine.reset();
    EXPECT_TRUE(machine.isNormal());
    EXPECT_FALSE(rung(machine.quitFd()));
}

// Two threads and a signal handler race for every change: each state is left exactly once.
TEST(StateMachine, OneOfManyWinsEachStep) {
    static SM machine;
    static std::atomic<int> interrupts{0};
    const auto before = std::signal(SIGUSR1, [](int) {
        if (machine.setState(INTERRUPTED, {RUNNING})) ++interrupts;
    });
    std::atomic<int> commands{0}, finished{0}, left{0};
    const auto race = [&] {
        for (int i = 0; i < 5000; ++i) {
            if (machine.parseConsole(COMMON_CMD_EVENT, NORMAL)) ++commands;
            if (i % 7 == 0) ::raise(SIGUSR1);
            if (machine.parseConsole(EXEC_OVER_EVENT, RUNNING)) ++finished;
            if (machine.parseConsole(EXEC_OVER_EVENT, INTERRUPTED)) ++left;
            const std::lock_guard turn(machine);
        }
    };
    { const std::jthread one(race), two(race), three(race); }
    std::signal(SIGUSR1, before);
    EXPECT_GT(commands, 0);
    EXPECT_EQ(commands, finished + left + (machine.isNormal() ? 0 : 1));
    EXPECT_EQ(interrupts, left + (machine.isInterrupted() ? 1 : 0));
}

} // namespace
