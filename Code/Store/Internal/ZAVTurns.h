#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zav {

/// A lock that is had in the order in which it was asked for.
class ZAVTurns {
public:
    ZAVTurns() = default;
    ~ZAVTurns() = default;
    ZAVTurns(const ZAVTurns&) = delete;
    ZAVTurns& operator=(const ZAVTurns&) = delete;

    /// Waits until all who asked before have unlocked.
    void lock() {
        std::unique_lock lock(mutex_);
        const std::uint64_t turn = next_++;
        ended_.wait(lock, [&] { return turn == present_; });
    }

    void unlock() noexcept {
        {
            const std::lock_guard lock(mutex_);
            ++present_;
        }
        ended_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable ended_;
    std::uint64_t next_ = 0;
    std::uint64_t present_ = 0;
};

}  // namespace zav
