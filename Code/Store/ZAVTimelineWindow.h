#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <variant>
#include <vector>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVTimeline.h>
#include <ZAVEventRepository/ZAVTimelineCursor.h>

namespace zav {

class ZAVLiveTimeline;
class ZAVTimelineWindows;

/// A step from one list of events to another.
struct ZAVTimelineDifference {
    /// What happens to one event.
    enum class Kind : std::uint8_t {
        removed,   ///< it is not in the list any more
        moved,     ///< it stands elsewhere, as one that waited does when it gets its sequence
        inserted,  ///< it is new in the list
        changed,   ///< it, its parts or its metadata are not what they were
    };

    Kind kind = Kind::changed;  ///< what happens

    /// Where the event stands in the list after this step; where one that is removed stood before it.
    std::size_t position = 0;

    /// Where an event that is moved stood before this step: it is taken from there first, and then put to
    /// `position`. Of all others the same as `position`.
    std::size_t from = 0;

    /// Equal when all are.
    friend bool operator==(const ZAVTimelineDifference&, const ZAVTimelineDifference&) = default;
};

/// What a window tells: how it comes from the list that it told last, empty at first, to the present one.
struct ZAVTimelineDelivery {
    /// The steps, to be applied in this order, one by one: each position is one in the list as the steps
    /// before have left it. First come removals, from the back to the front, then moves, then insertions,
    /// from the front to the back, and at last changes, whose positions are those in the present list. An
    /// event may be moved and changed. Empty when only something beside the events has changed.
    std::vector<ZAVTimelineDifference> differences{};

    /// The whole of the present list. An event that has not changed is the same record as before.
    ZAVTimelinePage page{};

    /// Why it could not be read anew. It stays as it was then, and reading is tried again with the next
    /// commit; while it fails for the same reason, that is told once.
    ZAVError error{};
};

/// Called with each delivery, on the store's executor.
using ZAVTimelineObserver = std::function<void(const ZAVTimelineDelivery& delivery)>;

/// How a window begins and how often it tells.
struct ZAVTimelineWindowOptions {
    /// How many events it has at first; at least 1.
    std::size_t count = 50;

    /// Which events those are: the newest ones; or those around a sequence, or around the place of a cursor,
    /// as with `ZAVTimeline::around`.
    std::variant<std::monostate, ZAVSequence, ZAVTimelineCursor> around{};

    /// The least time from one reading to the next one that commits are the reason for: what comes sooner is
    /// told together. 0 for none.
    std::chrono::milliseconds coalescing{50};
};

/// A piece of a timeline on the screen: it tells how it changes.
///
/// It goes from the first of its events, wherever that event comes to stand, to the last one. One that
/// reaches the newest end (`hasLater` of its page is false) follows what comes behind; what comes before its
/// first event only has `hasEarlier` be true. When nothing is left of what it had it begins anew with the
/// newest events.
///
/// It is read on a thread of the store: when it begins, when it is extended or trimmed, and after commits
/// that can concern it. Commits of other processes are noticed when the store looks for them:
/// `ZAVEventStoreOptions::lookForCommitsOfOthersEvery`. What `FMDatabase::setChangeObserver` is not told of,
/// a window notices with the next reading. While the executor has not run the last delivery, no other comes.
/// While the store is suspended it is not read; afterwards it is, once, and is extended as it was asked to
/// be.
///
/// Every member may be called from any thread. A window may outlive its store, and tells nothing new then.
class ZAV_EXPORT ZAVTimelineWindow {
public:
    /// Opens a window, whose first delivery, from an empty list to its first events, comes in any case.
    /// @param timeline what it is a window of; needed during the call.
    /// @return null when the options are invalid, the store is closed or suspended, or has no executor
    /// (`ZAVEventStoreErrorNoExecutor`), with the reason in `error`. What fails later is delivered.
    [[nodiscard]] static std::unique_ptr<ZAVTimelineWindow> open(const ZAVTimeline& timeline,
                                                                 ZAVTimelineObserver observer,
                                                                 const ZAVTimelineWindowOptions& options = {},
                                                                 ZAVError* error = nullptr);

    ZAVTimelineWindow(const ZAVTimelineWindow&) = delete;
    ZAVTimelineWindow& operator=(const ZAVTimelineWindow&) = delete;

    /// Ends it: no delivery begins after this has returned. One that runs on another thread is waited for;
    /// one that this is called from goes on to its end.
    ~ZAVTimelineWindow();

    /// Takes in the events that come next before its first one, as they are when it is read. As with the
    /// others, that is soon, and without regard to `coalescing`. When nothing changes, nothing is told.
    /// @param count how many at most.
    void extendEarlier(std::size_t count);

    /// Takes in the events that come next behind its last one.
    /// @param count how many at most.
    void extendLater(std::size_t count);

    /// Lets go of what stands before one place and behind another. A window that so has lost the newest
    /// events does not follow any more; one whose last event, as it was told last, is to stay goes on to
    /// follow, also when others have come since. Nothing happens when one of them is of another stream.
    void trim(const ZAVTimelineCursor& first, const ZAVTimelineCursor& last);

private:
    explicit ZAVTimelineWindow(std::shared_ptr<ZAVLiveTimeline> live) noexcept;

    std::shared_ptr<ZAVLiveTimeline> live_;
    std::shared_ptr<ZAVTimelineWindows> all_;
};

}  // namespace zav
