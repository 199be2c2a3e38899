#pragma once

#include "common/error.h"

#include <climits>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <poll.h>
#include <random>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

// What nearly every test uses: these headers, which are compiled once for all of them, and the
// small helpers below.

using Lines = std::vector<std::string>;

/// How long a test waits for what must happen. Generous, because a sanitised program on a busy
/// machine is slow and a test that passes never waits so long.
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds span = std::chrono::seconds(60))
        : end(std::chrono::steady_clock::now() + span) {}

    /// Milliseconds left, as poll takes them; 0 when the time is up.
    int left() const {
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        return std::max(0, static_cast<int>(rest.count()));
    }

  private:
    std::chrono::steady_clock::time_point end;
};

inline void sleepFor(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

/// Waits until the condition holds; false when it does not within a deadline.
template <typename Condition>
bool eventually(Condition&& condition) {
    for (const Deadline deadline; !condition(); sleepFor(2)) {
        if (deadline.left() == 0) return false;
    }
    return true;
}

/// How long a run is to be, by a variable of the environment: scripts/soak makes it longer.
inline long soak(const char* variable, long otherwise) {
    const char* const value = std::getenv(variable);
    return value ? std::atol(value) : otherwise;
}

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

/// A test as an ordinary user: VEX refuses root, and nothing is forbidden to root.
class UserTest : public testing::Test {
  protected:
    void SetUp() override {
        if (::getuid() == 0) GTEST_SKIP() << "run the tests as an ordinary user";
    }
    /// The path of a program of the build under test.
    static std::string program(const std::string& name) { return VEX_BIN_DIR "/" + name; }
};
