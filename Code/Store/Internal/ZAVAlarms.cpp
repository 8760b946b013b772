#include "Store/Internal/ZAVAlarms.h"

#include "Store/Internal/ZAVStoreThread.h"

namespace zav {

ZAVAlarms::Alarm ZAVAlarms::set(Time time, std::function<void()> ring) {
    const std::lock_guard lock(mutex_);
    if (!thread_.joinable() && !isClosing_) {
        thread_ = ZAVStartThread([this] { ringAll(); });
    }
    const Alarm alarm(time, ++lastNumber_);
    alarms_.emplace(alarm, std::move(ring));
    if (alarms_.begin()->first == alarm) {
        changed_.notify_one();
    }
    return alarm;
}

void ZAVAlarms::takeAway(const Alarm& alarm) noexcept {
    const std::lock_guard lock(mutex_);
    alarms_.erase(alarm);
}

void ZAVAlarms::close() noexcept {
    std::thread thread;
    {
        const std::lock_guard lock(mutex_);
        isClosing_ = true;
        thread = std::move(thread_);
    }
    changed_.notify_one();
    if (thread.joinable()) {
        thread.join();
    }
}

void ZAVAlarms::ringAll() noexcept {
    std::unique_lock lock(mutex_);
    while (!isClosing_) {
        if (alarms_.empty()) {
            changed_.wait(lock);
            continue;
        }
        const Time next = alarms_.begin()->first.first;
        if (std::chrono::steady_clock::now() < next) {
            changed_.wait_until(lock, next);
            continue;
        }
        const std::function<void()> ring = std::move(alarms_.begin()->second);
        alarms_.erase(alarms_.begin());
        lock.unlock();
        ring();
        lock.lock();
    }
}

}  // namespace zav
