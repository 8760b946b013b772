#include "Store/Internal/ZAVWorkThreads.h"

#include <system_error>
#include <utility>

#include "Store/Internal/ZAVStoreThread.h"

namespace zav {

/// The mutex must be held.
void ZAVWorkThreads::ensureThread() {
    if (idleThreads_ > waiting_.size() || threads_.size() == mostThreads_) {
        return;
    }
    threads_.reserve(threads_.size() + 1);
    try {
        threads_.push_back(ZAVStartThread([this] { runWorks(); }));
    } catch (const std::system_error&) {
        if (threads_.empty()) {
            throw;
        }
    }
}

void ZAVWorkThreads::runWorks() noexcept {
    std::unique_lock lock(mutex_);
    for (;;) {
        ++idleThreads_;
        idle_.notify_all();
        added_.wait(lock, [this] { return !waiting_.empty() || isClosing_; });
        --idleThreads_;
        if (waiting_.empty()) {
            return;
        }
        std::shared_ptr<ZAVQueuedWork> work = std::move(waiting_.front());
        waiting_.pop_front();
        const bool isRefused = isRefusing_;
        lock.unlock();
        if (isRefused) {
            work->stop(ZAVWorkControl::Stop::closed);
        }
        work->run();
        work.reset();
        lock.lock();
    }
}

void ZAVWorkThreads::refuseWaiting() noexcept {
    const std::lock_guard lock(mutex_);
    isRefusing_ = true;
}

bool ZAVWorkThreads::awaitIdleness(std::chrono::steady_clock::time_point deadline) noexcept {
    std::unique_lock lock(mutex_);
    return idle_.wait_until(lock, deadline,
                            [this] { return waiting_.empty() && idleThreads_ == threads_.size(); });
}

void ZAVWorkThreads::close() noexcept {
    {
        const std::lock_guard lock(mutex_);
        isClosing_ = true;
    }
    added_.notify_all();
    for (std::thread& thread : threads_) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

}  // namespace zav
