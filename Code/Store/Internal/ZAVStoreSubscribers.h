#pragma once

#include <memory>
#include <mutex>
#include <span>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVStoreSubscription.h>

#include "Store/Internal/ZAVDeliveries.h"
#include "Store/Internal/ZAVObserverCalls.h"
#include "Store/Internal/ZAVTimelineWindows.h"

namespace zav {

/// Somebody who is told of commits until it is ended.
class ZAVStoreSubscriber : public ZAVObserverCalls<ZAVStoreCommit> {
public:
    using ZAVObserverCalls::ZAVObserverCalls;
};

/// Who is told of the commits of a store: its subscribers, and its windows.
class ZAVStoreSubscribers {
public:
    ZAVStoreSubscribers(std::shared_ptr<ZAVDeliveries> deliveries,
                        std::shared_ptr<ZAVTimelineWindows> windows) noexcept
        : deliveries_(std::move(deliveries)), windows_(std::move(windows)) {}
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
    std::shared_ptr<ZAVTimelineWindows> windows_;
    std::mutex mutex_;
    std::vector<std::shared_ptr<ZAVStoreSubscriber>> subscribers_;
    bool hasMissedOne_ = false;
};

}  // namespace zav
