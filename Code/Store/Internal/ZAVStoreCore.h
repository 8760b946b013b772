#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVEventStore.h>

#include "Store/Internal/ZAVAlarms.h"
#include "Store/Internal/ZAVDatabaseVersion.h"
#include "Store/Internal/ZAVDeliveries.h"
#include "Store/Internal/ZAVFilesWithoutRow.h"
#include "Store/Internal/ZAVReadingHandles.h"
#include "Store/Internal/ZAVStoreGate.h"
#include "Store/Internal/ZAVStoreHandle.h"
#include "Store/Internal/ZAVStoreOwner.h"
#include "Store/Internal/ZAVStoreSubscribers.h"
#include "Store/Internal/ZAVTimelineWindows.h"
#include "Store/Internal/ZAVTurns.h"
#include "Store/Internal/ZAVWorkThreads.h"

namespace zav {

/// What a store consists of, and how works run on it: on whose thread, with which handle, in which order.
class ZAVStoreCore {
public:
    using ReadingWork = ZAVEventStore::ReadingWork;
    using WritingWork = ZAVEventStore::WritingWork;
    using QueuedWorks = ZAVEventStore::QueuedWorks;

    /// @param writing an open handle that writes; a log beside its file lets others read meanwhile.
    ZAVStoreCore(const std::shared_ptr<FMDatabase>& writing, const FMDatabaseOptions& readingOptions,
                 const ZAVEventStoreOptions& options);
    ~ZAVStoreCore();
    ZAVStoreCore(const ZAVStoreCore&) = delete;
    ZAVStoreCore& operator=(const ZAVStoreCore&) = delete;

    // On the calling thread; what the work throws goes on.
    [[nodiscard]] ZAVWorkOutcome read(const ReadingWork& work);
    [[nodiscard]] ZAVWorkOutcome write(const WritingWork& work);

    // On a thread of the store.
    [[nodiscard]] std::optional<ZAVPendingWork> readAsync(ReadingWork work, ZAVWorkCompletion completion,
                                                          const ZAVWorkOptions& options, ZAVError* error);
    [[nodiscard]] std::optional<ZAVPendingWork> writeAsync(WritingWork work, ZAVWorkCompletion completion,
                                                           const ZAVWorkOptions& options, ZAVError* error);

    [[nodiscard]] ZAVStoreSubscription subscribe(ZAVStoreObserver observer, ZAVError* error);
    [[nodiscard]] std::optional<bool> lookForCommitsOfOthers(ZAVError* error);

    /// Has a window be read from now on, and told how it changes.
    /// @return those of this store; null on failure, with the reason in `error`.
    [[nodiscard]] std::shared_ptr<ZAVTimelineWindows> showWindow(
        const std::shared_ptr<ZAVLiveTimeline>& timeline, std::chrono::milliseconds coalescing,
        ZAVError* error);

    bool close(QueuedWorks queued, ZAVError* error);

    /// On a thread of the store, in its turn, after a while; nobody is told how it ends, or that it did not
    /// run, as when the store is closed before.
    void writeLater(std::chrono::milliseconds delay, WritingWork work) noexcept;

    /// Calls a function soon, on a thread of the store that reads. It may call `read`, and must not throw.
    /// @return whether it will be called: false when the store is closed, or gets no thread.
    bool runBeside(std::function<void()> function) noexcept;

    /// Calls a function, which must neither throw nor wait, at a time, unless the store is closed before.
    /// @return whether there is a thread for it.
    bool callAt(ZAVAlarms::Time time, std::function<void()> function) noexcept;

    [[nodiscard]] const std::string& databasePath() const noexcept { return databasePath_; }

    /// Whether a work of this store runs on this thread.
    [[nodiscard]] bool isInWork() const noexcept;

    /// The handle of the work that runs on this thread; there must be one.
    [[nodiscard]] ZAVStoreHandle& handleOfWork() const noexcept;
    [[nodiscard]] const ZAVStoreOwner& owner() const noexcept { return owner_; }

private:
    /// What a write leaves to be done when its turn is over.
    struct LeftOver {
        std::vector<ZAVFileWithoutRow> files{};
        ZAVDatabaseVersion version{};  ///< after its commit
    };

    [[nodiscard]] ZAVWorkOutcome run(const ReadingWork& work, ZAVWorkControl& control);
    [[nodiscard]] ZAVWorkOutcome run(const WritingWork& work, ZAVWorkControl& control, LeftOver& leftOver);
    [[nodiscard]] ZAVWorkOutcome runAndCommit(const WritingWork& work, ZAVWorkControl& control,
                                              bool& isCommitted);
    template <class InItsTurn>
    void removeFiles(LeftOver leftOver, const InItsTurn& inItsTurn) noexcept;
    [[nodiscard]] bool removeUnlessChanged(ZAVFilesWithoutRow& files, ZAVDatabaseVersion& version,
                                           bool asksAgain);
    [[nodiscard]] const ZAVURL* contentDirectory() const noexcept;
    [[nodiscard]] bool hasExecutor(const char* purpose, ZAVError* error) const;
    [[nodiscard]] ZAVWorkOutcome writeWithin(ZAVStoreHandle& handle, const WritingWork& work);

    std::optional<ZAVPendingWork> enqueueWrite(WritingWork work, ZAVWorkCompletion completion,
                                               const ZAVWorkOptions& options, ZAVError* error);

    template <class WhenAdded>
    std::optional<ZAVPendingWork> enqueue(ZAVWorkThreads& threads, ZAVQueuedWork::Run run,
                                          ZAVWorkCompletion completion, const ZAVWorkOptions& options,
                                          const WhenAdded& whenAdded, ZAVError* error);

    /// Runs a work that writes when its turn has come, and has what it committed told of.
    template <class Work>
    [[nodiscard]] auto inTurn(ZAVTurns::Ticket ticket, const Work& work);

    void handOut() noexcept;
    void watchChanges();
    void tellOfUnwatched(int changesBefore) noexcept;
    [[nodiscard]] std::optional<bool> lookInTurn(ZAVError* error);
    void lookAgainLater() noexcept;
    void lookBeside() noexcept;

    const ZAVStoreOwner owner_;
    const std::string databasePath_;
    const std::chrono::milliseconds lookEvery_;
    std::shared_ptr<ZAVDeliveries> deliveries_;
    std::shared_ptr<ZAVTimelineWindows> windows_;
    ZAVStoreSubscribers subscribers_;
    ZAVStoreGate gate_;
    ZAVTurns turns_;

    // Under the turn:
    std::unique_ptr<ZAVStoreHandle> writing_;
    bool isWatching_ = false;
    std::int64_t dataVersion_ = 0;

    ZAVReadingHandles reading_;
    std::atomic<bool> isLooking_{false};
    std::mutex closing_;
    ZAVAlarms alarms_;
    ZAVWorkThreads writers_;
    ZAVWorkThreads readers_;
};

}  // namespace zav
