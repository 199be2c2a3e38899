#pragma once

#include "common/error.h"

#include <string>
#include <utility>

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
