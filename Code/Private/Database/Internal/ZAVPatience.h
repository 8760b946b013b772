#pragma once

#include <algorithm>
#include <chrono>
#include <thread>

namespace zav {

/// A pause between attempts, longer each time, until a moment comes.
class ZAVPatience {
public:
    /// @param longest how long the attempts go on.
    /// @param longestPause how long one pause becomes at most.
    explicit ZAVPatience(std::chrono::milliseconds longest,
                         std::chrono::milliseconds longestPause = std::chrono::milliseconds(50)) noexcept
        : end_(std::chrono::steady_clock::now() + longest), longestPause_(longestPause) {}

    /// Answers false when the moment has come.
    [[nodiscard]] bool pause() noexcept {
        if (std::chrono::steady_clock::now() >= end_) {
            return false;
        }
        std::this_thread::sleep_for(pause_);
        pause_ = std::min(2 * pause_, longestPause_);
        return true;
    }

private:
    std::chrono::steady_clock::time_point end_;
    std::chrono::milliseconds longestPause_;
    std::chrono::milliseconds pause_{1};
};

}  // namespace zav
