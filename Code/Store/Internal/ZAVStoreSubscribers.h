#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVStoreSubscription.h>

#include "Store/Internal/ZAVDeliveries.h"

namespace zav {

/// Somebody who is told of commits until it is ended.
class ZAVStoreSubscriber {
public:
    explicit ZAVStoreSubscriber(ZAVStoreObserver observer) : observer_(std::move(observer)) {}
    ~ZAVStoreSubscriber() = default;
    ZAVStoreSubscriber(const ZAVStoreSubscriber&) = delete;
    ZAVStoreSubscriber& operator=(const ZAVStoreSubscriber&) = delete;

    /// Calls the observer, unless it is over.
    void tell(const ZAVStoreCommit& commit);

    /// No call begins any more. Waits for one that runs on another thread.
    void end() noexcept;

    [[nodiscard]] bool isOver() const noexcept { return isOver_.load(std::memory_order_relaxed); }

private:
    // Held during a call, which may end the subscription itself.
    std::recursive_mutex mutex_;
    ZAVStoreObserver observer_;
    std::atomic<bool> isOver_{false};
    int calls_ = 0;
};

/// Who is told of the commits of a store.
class ZAVStoreSubscribers {
public:
    explicit ZAVStoreSubscribers(std::shared_ptr<ZAVDeliveries> deliveries) noexcept
        : deliveries_(std::move(deliveries)) {}
    ~ZAVStoreSubscribers() = default;
    ZAVStoreSubscribers(const ZAVStoreSubscribers&) = delete;
    ZAVStoreSubscribers& operator=(const ZAVStoreSubscribers&) = delete;

    [[nodiscard]] std::shared_ptr<ZAVStoreSubscriber> add(ZAVStoreObserver observer);

    /// Whether there is anybody.
    [[nodiscard]] bool areThere() noexcept;

    /// Has everybody told of a commit with the next deliveries. For want of memory that is made up for with
    /// the next commit, whose changes are not known then.
    void tell(std::span<const FMRowChange> changes, bool isByOthers) noexcept;

private:
    void dropThoseWhoAreOver() noexcept;

    std::shared_ptr<ZAVDeliveries> deliveries_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<ZAVStoreSubscriber>> subscribers_;
    bool hasMissedOne_ = false;
};

}  // namespace zav
