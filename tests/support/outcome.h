#pragma once

#include "common/error.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

/// What the action writes to standard output.
template <typename Action>
std::string printed(Action&& action) {
    testing::internal::CaptureStdout();
    action();
    return testing::internal::GetCapturedStdout();
}

/// The number and the text of the Error that the action raises; {-1, ""} when it raises none.
template <typename Action>
std::pair<int, std::string> raised(Action&& action) {
    try {
        action();
    } catch (const Error& error) {
        return {error.getErrNo(), error.getErrMsg()};
    }
    return {-1, ""};
}
