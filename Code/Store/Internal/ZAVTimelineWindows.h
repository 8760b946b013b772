#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <vector>

#include <ZAVEventRepository/ZAVTimelineWindow.h>

#include "Store/Internal/ZAVDeliveries.h"
#include "Store/Internal/ZAVLiveTimeline.h"
#include "Store/Internal/ZAVTimelineChanges.h"

namespace zav {

class ZAVStoreCore;

/// The windows of a store. One work at a time, on a thread of the store, looks which of them commits concern
/// and reads those; who commits only notes what changed, whatever windows there are.
class ZAVTimelineWindows : public std::enable_shared_from_this<ZAVTimelineWindows> {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// @param core the store's, until `disconnect`.
    ZAVTimelineWindows(ZAVStoreCore& core, std::shared_ptr<ZAVDeliveries> deliveries) noexcept
        : deliveries_(std::move(deliveries)), core_(&core) {}
    ~ZAVTimelineWindows() = default;
    ZAVTimelineWindows(const ZAVTimelineWindows&) = delete;
    ZAVTimelineWindows& operator=(const ZAVTimelineWindows&) = delete;

    void add(std::shared_ptr<ZAVLiveTimeline> timeline, std::chrono::milliseconds coalescing);
    void remove(const ZAVLiveTimeline& timeline) noexcept;
    void ask(const ZAVLiveTimeline& timeline, ZAVTimelineRequest request);

    [[nodiscard]] bool areThere() const noexcept { return count_.load(std::memory_order_relaxed) > 0; }

    /// Notes what a commit changed; nothing when that is not known.
    void note(std::span<const FMRowChange> changes) noexcept;

    /// Has what was noted looked at, soon. With no lock held.
    void lookAtNoted() noexcept;

    /// From now on nothing is read; the store is closed.
    void disconnect() noexcept;

private:
    struct Window {
        std::shared_ptr<ZAVLiveTimeline> timeline;
        std::chrono::milliseconds coalescing;
        std::vector<ZAVTimelineRequest> requests{};
        bool isWanted = true;  ///< to be read
        bool isDelivering = false;
        std::optional<ZAVTimelineCursor> toldEnd{};  ///< the last event, if it was told as the newest one
        std::optional<Time> lastRead{};
    };
    using Windows = std::vector<std::shared_ptr<Window>>;

    /// A window that is being read, with what it takes to deliver the outcome.
    struct Reading {
        std::shared_ptr<Window> window;
        std::vector<ZAVTimelineRequest> requests;
        std::shared_ptr<ZAVTimelineDelivery> delivery;
        ZAVDeliveries::Calls call;
        bool isRead = false;
        bool isToTell = false;
        ZAVError error{};
    };
    using Readings = std::list<Reading>;

    [[nodiscard]] Windows::iterator find(const ZAVLiveTimeline& timeline) noexcept;
    [[nodiscard]] static Time dueTimeOf(const Window& window) noexcept;
    void run() noexcept;
    [[nodiscard]] bool readAnew();
    void markConcerned(const ZAVTimelineChanges& changes, const Windows& windows,
                       const ZAVRepositories& repositories);
    [[nodiscard]] Readings takeDue(const Windows& windows);
    static void read(Reading& reading, const ZAVRepositories& repositories);
    [[nodiscard]] bool settle(Reading& reading, const ZAVError& error);
    void delivered(Window& window, const ZAVTimelinePage& page) noexcept;
    void startWhenWanted() noexcept;
    void startAt(Time time) noexcept;

    std::atomic<std::size_t> count_{0};
    std::shared_ptr<ZAVDeliveries> deliveries_;

    std::mutex mutex_;
    ZAVStoreCore* core_;
    Windows windows_;
    ZAVTimelineChanges changes_;
    bool areBehind_ = false;  ///< whether the next commit is a reason to read, whatever it changed
    bool isRunning_ = false;
    Time nextLook_{};
    std::optional<Time> alarm_;
};

}  // namespace zav
