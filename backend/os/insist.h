#pragma once

#include <exception>
#include <unistd.h>

/// Does what must not be left undone: again when it has failed, for want of memory, say, but not
/// for ever. What is done twice must not do harm.
template <typename Action>
void insist(Action&& action) {
    constexpr int most = 20;
    for (int tries = 0; tries < most; ++tries) {
        try {
            return action();
        } catch (const std::exception&) {
            ::usleep(5000);
        }
    }
}
