#include "Store/Internal/ZAVStoreSubscribers.h"

#include <new>
#include <utility>

namespace zav {

void ZAVStoreSubscriber::tell(const ZAVStoreCommit& commit) {
    /// Counts a call, which the observer must outlive.
    class Call {
    public:
        explicit Call(ZAVStoreSubscriber& subscriber) noexcept : subscriber_(subscriber) {
            ++subscriber.calls_;
        }
        ~Call() {
            if (--subscriber_.calls_ == 0 && subscriber_.isOver_) {
                subscriber_.observer_ = nullptr;
            }
        }
        Call(const Call&) = delete;
        Call& operator=(const Call&) = delete;

    private:
        ZAVStoreSubscriber& subscriber_;
    };

    const std::lock_guard lock(mutex_);
    if (!isOver_) {
        const Call call(*this);
        observer_(commit);
    }
}

void ZAVStoreSubscriber::end() noexcept {
    const std::lock_guard lock(mutex_);
    isOver_ = true;
    if (calls_ == 0) {
        observer_ = nullptr;
    }
}

std::shared_ptr<ZAVStoreSubscriber> ZAVStoreSubscribers::add(ZAVStoreObserver observer) {
    auto subscriber = std::make_shared<ZAVStoreSubscriber>(std::move(observer));
    const std::lock_guard lock(mutex_);
    subscribers_.push_back(subscriber);
    return subscriber;
}

bool ZAVStoreSubscribers::areThere() noexcept {
    const std::lock_guard lock(mutex_);
    dropThoseWhoAreOver();
    return !subscribers_.empty();
}

/// The mutex must be held.
void ZAVStoreSubscribers::dropThoseWhoAreOver() noexcept {
    std::erase_if(subscribers_, [](const auto& subscriber) { return subscriber->isOver(); });
}

void ZAVStoreSubscribers::tell(std::span<const FMRowChange> changes, bool isByOthers) noexcept {
    const std::lock_guard lock(mutex_);
    dropThoseWhoAreOver();
    try {
        auto commit = std::make_shared<ZAVStoreCommit>();
        if (!hasMissedOne_) {
            commit->changes.assign(changes.begin(), changes.end());
        }
        commit->isByOthers = isByOthers;
        ZAVDeliveries::Calls calls;
        for (const auto& subscriber : subscribers_) {
            calls.emplace_back([subscriber, commit] { subscriber->tell(*commit); });
        }
        deliveries_->add(calls);
        hasMissedOne_ = false;
    } catch (const std::bad_alloc&) {
        hasMissedOne_ = true;
    }
}

}  // namespace zav
