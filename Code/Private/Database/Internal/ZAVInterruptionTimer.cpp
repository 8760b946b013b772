#include "Private/Database/Internal/ZAVInterruptionTimer.h"

#include <sqlite3.h>

#include <exception>

namespace zav {

ZAVInterruptionTimer::ZAVInterruptionTimer(sqlite3* connection, std::chrono::nanoseconds patience) noexcept {
    try {
        thread_ = std::thread([this, connection, patience] { waitAndInterrupt(connection, patience); });
    } catch (const std::exception&) {
        // The statement runs all the same.
    }
}

bool ZAVInterruptionTimer::stop() noexcept {
    if (thread_.joinable()) {
        {
            const std::lock_guard lock(mutex_);
            isStopped_ = true;
        }
        stopped_.notify_one();
        thread_.join();
    }
    return hasInterrupted_;
}

void ZAVInterruptionTimer::waitAndInterrupt(sqlite3* connection, std::chrono::nanoseconds patience) noexcept {
    std::unique_lock lock(mutex_);
    if (!stopped_.wait_for(lock, patience, [this] { return isStopped_; })) {
        hasInterrupted_ = true;
        sqlite3_interrupt(connection);
    }
}

}  // namespace zav
