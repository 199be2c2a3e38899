#pragma once

#include "tests/support/testing.h"

/// What needs two users besides this one: root, that is, and skips for others. Not beside other
/// tests.
class StrangersTest : public testing::Test {
  protected:
    static constexpr uid_t one = 54321, other = 54322;

    void SetUp() override {
        if (::getuid() != 0) GTEST_SKIP() << "two users are needed: run it as root";
    }
    void TearDown() override {
        if (!IsSkipped()) become(0);
    }

    /// All that is done from here on is this user's.
    static void become(uid_t user) {
        ASSERT_EQ(::seteuid(0), 0);
        ASSERT_EQ(::setresuid(user, user, 0), 0);
    }
};
