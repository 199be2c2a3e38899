#pragma once

#include <gtest/gtest.h>

#include <string>

/// What the action writes to standard output.
template <typename Action>
std::string printed(Action&& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}
