#include "console/cstatemachine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <poll.h>
#include <thread>

namespace {

using SM = StateMachine;

bool rung(int fd) {
    pollfd entry{fd, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
}

TEST(StateMachine, EventsLeadToTheSameStateFromEverywhere) {
    const struct {
        SM::EVENT event;
        SM::STATE next;
        bool saves;
    } table[] = {
        {SM::COMMON_CMD_EVENT, SM::RUNNING, false},
        {SM::SPECIAL_CMD_EVENT, SM::TEMP, true},
        {SM::INTSTATUS_CMD_EVENT, SM::INTTEMP, true},
        {SM::EXEC_OVER_EVENT, SM::NORMAL, false},
        {SM::GROUP_REPLY_EVENT, SM::INTERRUPTED, false}, // the state saved below
        {SM::ACTIVE_QUIT_EVENT, SM::TOQUIT, false},
        {SM::PASSIVE_QUIT_EVENT, SM::TOQUIT, false},
    };
    for (int number = SM::NORMAL; number <= SM::INIT; ++number) {
        const auto from = static_cast<SM::STATE>(number);
        for (const auto& [event, next, saves] : table) {
            SM machine;
            machine.setState(SM::INTERRUPTED);
            machine.parseConsole(SM::SPECIAL_CMD_EVENT);
            machine.setState(from);
            machine.parseConsole(event);
            const SM::STATE expected = from == SM::TOQUIT ? SM::TOQUIT : next;
            EXPECT_EQ(machine.getState(), expected) << from << " by " << event;
            EXPECT_EQ(rung(machine.quitFd()), expected == SM::TOQUIT);
            if (expected == SM::TOQUIT) continue;
            machine.parseConsole(SM::GROUP_REPLY_EVENT);
            EXPECT_EQ(machine.getState(), saves ? from : SM::INTERRUPTED) << from << event;
        }
    }
}

TEST(StateMachine, TheEndIsFinalUntilReset) {
    SM machine;
    machine.parseConsole(SM::PASSIVE_QUIT_EVENT);
    machine.setState(SM::NORMAL);
    machine.finishAndRequest();
    EXPECT_FALSE(machine.setState(SM::NORMAL, {SM::TOQUIT}));
    EXPECT_FALSE(machine.parseConsole(SM::COMMON_CMD_EVENT, SM::NORMAL));
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
        if (machine.setState(SM::INTERRUPTED, {SM::RUNNING})) ++interrupts;
    });
    constexpr int rounds = 5000;
    std::atomic<int> commands{0}, finished{0}, left{0};
    const auto race = [&] {
        for (int i = 0; i < rounds; ++i) {
            if (machine.parseConsole(SM::COMMON_CMD_EVENT, SM::NORMAL)) ++commands;
            if (i % 7 == 0) ::raise(SIGUSR1);
            if (machine.parseConsole(SM::EXEC_OVER_EVENT, SM::RUNNING)) ++finished;
            if (machine.parseConsole(SM::EXEC_OVER_EVENT, SM::INTERRUPTED)) ++left;
            const std::lock_guard turn(machine);
            const std::lock_guard again(machine);
        }
    };
    { const std::jthread one(race), two(race), three(race); }
    std::signal(SIGUSR1, before);
    EXPECT_GT(commands, 0);
    EXPECT_EQ(commands, finished + left + (machine.isNormal() ? 0 : 1));
    EXPECT_EQ(interrupts, left + (machine.isInterrupted() ? 1 : 0));
}

} // namespace
