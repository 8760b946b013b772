#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

struct sqlite3;

namespace zav {

/// Interrupts a connection once some time has gone by, unless it is destroyed before: for the step of the
/// engine that calls no progress handler, which counts the rows of a table. Where there can be no thread for
/// it, nothing is interrupted.
class ZAVInterruptionTimer {
public:
    ZAVInterruptionTimer(sqlite3* connection, std::chrono::nanoseconds patience) noexcept;
    ~ZAVInterruptionTimer() { stop(); }
    ZAVInterruptionTimer(const ZAVInterruptionTimer&) = delete;
    ZAVInterruptionTimer& operator=(const ZAVInterruptionTimer&) = delete;

    /// Ends the wait. Returns whether the connection was interrupted.
    bool stop() noexcept;

private:
    void waitAndInterrupt(sqlite3* connection, std::chrono::nanoseconds patience) noexcept;

    std::mutex mutex_;
    std::condition_variable stopped_;
    bool isStopped_ = false;
    bool hasInterrupted_ = false;
    std::thread thread_;
};

}  // namespace zav
