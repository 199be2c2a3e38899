#include "frontend/session/startlosses.h"
#include "tests/support/testing.h"

namespace {

TEST(StartLosses, WhatComesAfterAllIsNotMissing) {
    struct Owner : StartLosses::Owner {
        void onStandstill(int, bool) override {}
    } owner;
    EventLoop loop;
    const Options options;
    StartLosses losses(loop, options, owner);
    const StartLosses::Row unreachable{"no route", {1}};
    losses.add(unreachable);
    losses.giveUp({2, 3}, 3);
    losses.giveUp({4}, 3);
    EXPECT_EQ(losses.arrived({0, 1, 3, 4}), (ClientSet{3, 4}));
    EXPECT_EQ(losses.rows(), (std::vector<StartLosses::Row>{
                                 unreachable,
                                 {"no debugger has come to its prompt in 3 seconds", {2}, true},
                             }));
    EXPECT_TRUE(losses.gaveUp());
    EXPECT_EQ(losses.arrived({2}), ClientSet{2});
    EXPECT_EQ(losses.rows(), std::vector<StartLosses::Row>{unreachable});
    EXPECT_FALSE(losses.gaveUp());
}

} // namespace
