#include "Private/Database/Internal/ZAVLockWait.h"

#include <sqlite3.h>

#include <algorithm>
#include <thread>

namespace zav {

ZAVLockWait::ZAVLockWait(sqlite3* connection, std::chrono::milliseconds longest) noexcept
    : longest_(longest) {
    if (connection != nullptr && longest > std::chrono::milliseconds::zero()) {
        sqlite3_busy_handler(connection, wait, this);
    }
}

/// @param count how often the lock was asked for in vain since the wait began.
int ZAVLockWait::wait(void* lockWait, int count) noexcept {
    constexpr std::chrono::microseconds shortestPause(100);
    constexpr int longestPauses = 10;
    auto& self = *static_cast<ZAVLockWait*>(lockWait);
    const auto now = std::chrono::steady_clock::now();
    if (count == 0) {
        self.end_ = now + self.longest_;
    }
    if (now >= self.end_ || (self.isOver_ && self.isOver_())) {
        return 0;
    }
    std::this_thread::sleep_for(shortestPause * std::min(count + 1, longestPauses));
    return 1;
}

}  // namespace zav
