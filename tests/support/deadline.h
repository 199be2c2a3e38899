#pragma once

#include <chrono>

/// How long a scenario waits for what must happen. Generous, because a sanitised program on a busy
/// machine is slow and a test that passes never waits so long.
class Deadline {
  public:
    explicit Deadline(std::chrono::milliseconds span = std::chrono::seconds(60))
        : end(std::chrono::steady_clock::now() + span) {}

    /// Milliseconds left, as poll takes them; 0 when the time is up.
    int left() const {
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        return rest.count() > 0 ? static_cast<int>(rest.count()) : 0;
    }

  private:
    std::chrono::steady_clock::time_point end;
};
