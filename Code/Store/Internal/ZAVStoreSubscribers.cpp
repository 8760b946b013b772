#include "Store/Internal/ZAVStoreSubscribers.h"

#include <new>
#include <utility>

namespace zav {

std::shared_ptr<ZAVStoreSubscriber> ZAVStoreSubscribers::add(ZAVStoreObserver observer) {
    auto subscriber = std::make_shared<ZAVStoreSubscriber>(std::move(observer));
    const std::lock_guard lock(mutex_);
    subscribers_.push_back(subscriber);
    return subscriber;
}

bool ZAVStoreSubscribers::areThere() noexcept {
    const std::lock_guard lock(mutex_);
    dropThoseWhoAreOver();
    return !subscribers_.empty() || windows_->areThere();
}

/// The mutex must be held.
void ZAVStoreSubscribers::dropThoseWhoAreOver() noexcept {
    std::erase_if(subscribers_, [](const auto& subscriber) { return subscriber->isOver(); });
}

void ZAVStoreSubscribers::tell(std::span<const FMRowChange> changes, bool isByOthers) noexcept {
    windows_->note(changes);
    const std::lock_guard lock(mutex_);
    dropThoseWhoAreOver();
    if (subscribers_.empty()) {
        hasMissedOne_ = false;
        return;
    }
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
