#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ZAVEventRepository/ZAVEventStore.h>

#include "Private/Database/Internal/ZAVKeptOptions.h"
#include "Store/Internal/ZAVAlarms.h"
#include "Store/Internal/ZAVDatabaseVersion.h"
#include "Store/Internal/ZAVDeliveries.h"
#include "Store/Internal/ZAVFilesWithoutRow.h"
#include "Store/Internal/ZAVReadingHandles.h"
#include "Store/Internal/ZAVRunningWorks.h"
#include "Store/Internal/ZAVStoreGate.h"
#include "Store/Internal/ZAVStoreHandle.h"
#include "Store/Internal/ZAVStoreOwner.h"
#include "Store/Internal/ZAVStoreSubscribers.h"
#include "Store/Internal/ZAVTimelineWindows.h"
#include "Store/Internal/ZAVTurns.h"
#include "Store/Internal/ZAVWorkThreads.h"

namespace zav {

/// Whether a work is done. If it failed, the reason is in `error`.
[[nodiscard]] inline bool ZAVIsDone(const ZAVWorkOutcome& outcome, ZAVError* error) {
    if (outcome.error) {
        ZAVStoreError(error, outcome.error);
    }
    return outcome.state == ZAVWorkOutcome::State::done;
}

/// What a store consists of, and how works run on it: on whose thread, with which handle, in which order.
class ZAVStoreCore {
public:
    using ReadingWork = ZAVEventStore::ReadingWork;
    using WritingWork = ZAVEventStore::WritingWork;
    using QueuedWorks = ZAVEventStore::QueuedWorks;
    using SuspendedWorks = ZAVEventStore::SuspendedWorks;

    /// @param writing an open handle that writes; a log beside its file lets others read meanwhile.
    ZAVStoreCore(const std::shared_ptr<FMDatabase>& writing, const ZAVEventStoreOptions& options);
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

    /// @param lastWork runs before the handles are closed, if time allows; may be empty.
    bool suspend(ZAVAlarms::Time deadline, SuspendedWorks waiting, const WritingWork& lastWork,
                 ZAVError* error);
    bool resume(ZAVError* error);
    void releaseMemory();

    /// On a thread of the store, in its turn, after a while; nobody is told how it ends, or that it did not
    /// run, as when the store is closed before.
    void writeLater(std::chrono::milliseconds delay, WritingWork work) noexcept;

    /// Calls a function soon, on a thread of the store that reads. It may call `read`, and must not throw.
    /// @return whether it will be called: false when the store is closed, or gets no thread.
    bool runBeside(std::function<void()> function) noexcept;

    /// Calls a function, which must neither throw nor wait, at a time, unless the store is closed before.
    /// @return whether there is a thread for it.
    template <class Function>
    bool callAt(ZAVAlarms::Time time, Function function) noexcept {
        try {
            alarms_.set(time, std::move(function));
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }

    [[nodiscard]] const std::string& databasePath() const noexcept { return databasePath_; }

    /// Whether a work of this store runs on this thread.
    [[nodiscard]] bool isInWork() const noexcept;

    /// The handle of the work that runs on this thread; there must be one.
    [[nodiscard]] ZAVStoreHandle& handleOfWork() const noexcept;
    [[nodiscard]] const ZAVStoreOwner& owner() const noexcept { return owner_; }

    /// Has the work that runs on this thread, which does what cannot be taken back, not be stopped any more.
    /// @return what it was stopped for before, if it was.
    [[nodiscard]] ZAVError passPointOfNoReturn();

    /// Tells handles apart that write: another one when the store was suspended meanwhile. Within a work that
    /// writes.
    [[nodiscard]] std::uint64_t openings() const noexcept { return openings_; }

private:
    /// What a write leaves to be done when its turn is over.
    struct LeftOver {
        std::vector<ZAVFileWithoutRow> files{};
        ZAVDatabaseVersion version{};  ///< after its commit
        std::uint64_t opening = 0;     ///< of the handle that has seen that version
    };

    /// What became of the removal of files.
    enum class Removal : std::uint8_t {
        over,     ///< they are removed, or left to a repair
        changed,  ///< rows have changed since they were asked
        stopped,  ///< the store is suspended
    };

    using Label = ZAVRunningWorks::Label;

    [[nodiscard]] ZAVWorkOutcome run(const ReadingWork& work, ZAVWorkControl& control, const Label& label,
                                     ZAVWaiting waiting);
    [[nodiscard]] ZAVWorkOutcome run(const WritingWork& work, ZAVWorkControl& control, const Label& label,
                                     LeftOver& leftOver);
    [[nodiscard]] ZAVWorkOutcome runAndCommit(const WritingWork& work, ZAVWorkControl& control,
                                              bool& isCommitted);
    template <class InItsTurn>
    void removeFiles(LeftOver leftOver, ZAVWaiting waiting, const InItsTurn& inItsTurn) noexcept;
    void addStillToRemove(std::vector<ZAVFileWithoutRow>& files) noexcept;
    [[nodiscard]] Removal removeUnlessChanged(ZAVFilesWithoutRow& files, LeftOver& leftOver, bool asksAgain);
    [[nodiscard]] const ZAVURL* contentDirectory() const noexcept;
    [[nodiscard]] bool hasExecutor(const char* purpose, ZAVError* error) const;
    [[nodiscard]] ZAVWorkOutcome writeWithin(ZAVStoreHandle& handle, const WritingWork& work);

    std::optional<ZAVPendingWork> enqueueWrite(WritingWork work, ZAVWorkCompletion completion,
                                               const ZAVWorkOptions& options, ZAVError* error);

    template <class WhenAdded>
    std::optional<ZAVPendingWork> enqueue(ZAVWorkThreads& threads, ZAVQueuedWork::Run run,
                                          ZAVWorkCompletion completion, const ZAVWorkOptions& options,
                                          const WhenAdded& whenAdded, ZAVError* error);

    /// Runs a work that writes when its turn has come, and has what it committed told of. None when one who
    /// waits so is sent away.
    template <class Work>
    [[nodiscard]] auto inTurn(ZAVTurns::Ticket& ticket, ZAVWaiting waiting, const Work& work) {
        std::optional<decltype(work())> answer;
        {
            const ZAVTurns::Turn turn(turns_, ticket, waiting);
            if (turn.isHad()) {
                answer = work();
                giveMemoryBackIfWanted();
            }
        }
        handOut();
        return answer;
    }
    void giveMemoryBackIfWanted() noexcept;

    void adopt(const std::shared_ptr<FMDatabase>& writing);
    [[nodiscard]] bool ensureWriting(ZAVError* error);
    void closeWriting(bool takesLogAway) noexcept;
    void fallAsleep(ZAVAlarms::Time deadline, const WritingWork& lastWork) noexcept;

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

    const ZAVKeptOptions writingOptions_;

    // Under the turn:
    std::unique_ptr<ZAVStoreHandle> writing_;  ///< null while the store is suspended
    std::uint64_t openings_ = 0;
    bool isWatching_ = false;
    std::int64_t dataVersion_ = 0;

    std::mutex stopping_;
    std::vector<ZAVFileWithoutRow> stillToRemove_;  ///< what a suspension kept from being removed

    ZAVReadingHandles reading_;
    ZAVRunningWorks running_;
    std::atomic<bool> isHurried_{false};
    std::atomic<bool> isMemoryWanted_{false};
    std::atomic<bool> isLooking_{false};
    std::mutex closing_;
    ZAVAlarms alarms_;
    ZAVWorkThreads writers_;
    ZAVWorkThreads readers_;
};

}  // namespace zav
