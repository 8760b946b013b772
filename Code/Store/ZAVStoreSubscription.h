#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <ZAVEventRepository/FMObservation.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

class ZAVStoreSubscriber;

/// What was committed to the file of a store.
struct ZAVStoreCommit {
    /// The rows that one transaction of the store changed, in their order, as `FMDatabase::setChangeObserver`
    /// tells them. Empty when they are not known: anything may have changed.
    std::vector<FMRowChange> changes{};

    /// Whether somebody else committed: another process, or a handle that is none of this store's. The
    /// changes are not known then, nor whether it was one transaction or several. After
    /// `ZAVEventStore::resume` somebody may have.
    bool isByOthers = false;
};

/// Called with each commit, on the store's executor.
using ZAVStoreObserver = std::function<void(const ZAVStoreCommit& commit)>;

/// Has an observer told of commits for as long as this lives. It may outlive the store.
class ZAV_EXPORT ZAVStoreSubscription {
public:
    /// One of nothing.
    ZAVStoreSubscription() noexcept = default;

    /// For the library's own use.
    explicit ZAVStoreSubscription(std::shared_ptr<ZAVStoreSubscriber> subscriber) noexcept;

    /// Takes over what `other` subscribes to, which is of nothing then.
    ZAVStoreSubscription(ZAVStoreSubscription&& other) noexcept = default;

    /// Ends this one, and takes over what `other` subscribes to.
    ZAVStoreSubscription& operator=(ZAVStoreSubscription&& other) noexcept;
    ZAVStoreSubscription(const ZAVStoreSubscription&) = delete;
    ZAVStoreSubscription& operator=(const ZAVStoreSubscription&) = delete;

    /// As `end`.
    ~ZAVStoreSubscription();

    /// Ends it: no call begins after this has returned. A call that runs on another thread is waited for; one
    /// that this is called from goes on to its end.
    void end() noexcept;

    /// Whether it has not been ended.
    [[nodiscard]] explicit operator bool() const noexcept { return subscriber_ != nullptr; }

private:
    std::shared_ptr<ZAVStoreSubscriber> subscriber_;
};

}  // namespace zav
