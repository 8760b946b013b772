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
