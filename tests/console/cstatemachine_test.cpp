#include "console/cstatemachine.h"

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <poll.h>
#include <thread>
#include <vector>

namespace {

using SM = StateMachine;

constexpr SM::STATE states[] = {SM::NORMAL, SM::RUNNING, SM::INTERRUPTED, SM::TOQUIT,
                                SM::TEMP,   SM::INTTEMP, SM::INIT};

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
    for (const SM::STATE from : states) {
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
            EXPECT_EQ(machine.getState(), saves ? from : SM::INTERRUPTED)
                << from << " by " << event;
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
    struct sigaction action {
    }, before{};
    action.sa_handler = [](int) {
        if (machine.setState(SM::INTERRUPTED, {SM::RUNNING})) ++interrupts;
    };
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGUSR1, &action, &before);
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
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i)
        threads.emplace_back(race);
    for (std::thread& thread : threads)
        thread.join();
    ::sigaction(SIGUSR1, &before, nullptr);
    const int open = machine.isNormal() ? 0 : 1;
    EXPECT_GT(commands, 0);
    EXPECT_EQ(commands, finished + left + open);
    EXPECT_EQ(interrupts, left + (machine.isInterrupted() ? 1 : 0));
}

} // namespace
