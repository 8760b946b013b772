#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "Store/Internal/ZAVQueuedWork.h"

namespace zav {

/// Threads that run works in the order in which they were added. A thread is started when a work has none to
/// run on; they sleep while there is no work.
class ZAVWorkThreads {
public:
    explicit ZAVWorkThreads(std::size_t mostThreads) noexcept : mostThreads_(mostThreads) {}
    ~ZAVWorkThreads() { close(); }
    ZAVWorkThreads(const ZAVWorkThreads&) = delete;
    ZAVWorkThreads& operator=(const ZAVWorkThreads&) = delete;

    /// Adds a work, and calls `whenAdded`, which must not throw, before another is added.
    /// @throws std::system_error when there is no thread and none can be started; nothing is added then.
    template <class WhenAdded>
    void add(std::shared_ptr<ZAVQueuedWork> work, const WhenAdded& whenAdded) {
        {
            const std::lock_guard lock(mutex_);
            ensureThread();
            waiting_.push_back(std::move(work));
            whenAdded();
        }
        added_.notify_one();
    }

    /// From now on works that wait are stopped before they run.
    void refuseWaiting() noexcept;

    /// Waits until no work waits or runs. False when the deadline comes before.
    [[nodiscard]] bool awaitIdleness(std::chrono::steady_clock::time_point deadline) noexcept;

    /// Waits until all works that were added have run, and ends the threads. Nothing may be added any more.
    void close() noexcept;

private:
    void ensureThread();
    void runWorks() noexcept;

    const std::size_t mostThreads_;
    std::mutex mutex_;
    std::condition_variable added_;
    std::condition_variable idle_;
    std::deque<std::shared_ptr<ZAVQueuedWork>> waiting_;
    std::vector<std::thread> threads_;
    std::size_t idleThreads_ = 0;
    bool isRefusing_ = false;
    bool isClosing_ = false;
};

}  // namespace zav
