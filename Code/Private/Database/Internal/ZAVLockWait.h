#pragma once

#include <chrono>
#include <functional>
#include <utility>

#include "Private/Database/Internal/ZAVNextWriter.h"

struct sqlite3;

namespace zav {

/// Has a connection wait for locks that others hold, for a while.
///
/// It asks for them every few hundred microseconds. One who writes without a pause leaves its lock free for
/// moments only, and the engine's own way of waiting, which comes to ask ten times a second, may miss them
/// all. Those who wait to write ask one at a time, and whoever begins a transaction meanwhile waits for that
/// one: see `ZAVNextWriter`.
class ZAVLockWait {
public:
    /// @param connection an open connection, whose busy handler this is.
    /// @param longest how long a statement waits; 0 for not at all.
    ZAVLockWait(sqlite3* connection, std::chrono::milliseconds longest) noexcept;
    ~ZAVLockWait() = default;
    ZAVLockWait(const ZAVLockWait&) = delete;
    ZAVLockWait& operator=(const ZAVLockWait&) = delete;

    /// Asks between attempts whether a wait is to end before its time.
    /// @param isOver must not throw.
    void setEarlyEnd(std::function<bool()> isOver) { isOver_ = std::move(isOver); }

    /// Before the write lock is asked for: lets one who waits for it have it first.
    void letAnotherGoFirst() noexcept;

private:
    using Clock = std::chrono::steady_clock;

    static int wait(void* lockWait, int count) noexcept;
    void pauseInLine(int count) noexcept;
    [[nodiscard]] bool isOver(Clock::time_point end) const noexcept {
        return Clock::now() >= end || (isOver_ && isOver_());
    }

    ZAVNextWriter nextWriter_;
    std::chrono::milliseconds longest_;
    Clock::time_point end_;
    Clock::time_point endOfPatience_;
    std::function<bool()> isOver_;
};

}  // namespace zav
