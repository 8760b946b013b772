#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <utility>

namespace zav {

/// Calls of an observer, until they are ended.
template <class Told>
class ZAVObserverCalls {
public:
    explicit ZAVObserverCalls(std::function<void(const Told&)> observer) : observer_(std::move(observer)) {}
    ~ZAVObserverCalls() = default;
    ZAVObserverCalls(const ZAVObserverCalls&) = delete;
    ZAVObserverCalls& operator=(const ZAVObserverCalls&) = delete;

    /// Calls the observer, unless it is over.
    void tell(const Told& told) {
        const std::lock_guard lock(mutex_);
        if (!isOver_) {
            const Call call(*this);
            observer_(told);
        }
    }

    /// No call begins any more. Waits for one that runs on another thread.
    void end() noexcept {
        const std::lock_guard lock(mutex_);
        isOver_ = true;
        if (calls_ == 0) {
            observer_ = nullptr;
        }
    }

    [[nodiscard]] bool isOver() const noexcept { return isOver_.load(std::memory_order_relaxed); }

private:
    /// Counts a call, which the observer must outlive.
    class Call {
    public:
        explicit Call(ZAVObserverCalls& all) noexcept : all_(all) { ++all.calls_; }
        ~Call() {
            if (--all_.calls_ == 0 && all_.isOver_) {
                all_.observer_ = nullptr;
            }
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        ZAVObserverCalls& all_;
    };

    // Held during a call, which may end them itself.
    std::recursive_mutex mutex_;
    std::function<void(const Told&)> observer_;
    std::atomic<bool> isOver_{false};
    int calls_ = 0;
};

}  // namespace zav
