#include "Store/Internal/ZAVTimelineWindows.h"

#include <algorithm>
#include <exception>
#include <new>
#include <utility>

#include "Store/Internal/ZAVStoreCore.h"
#include "Store/Internal/ZAVStoreErrors.h"
#include "Store/Internal/ZAVTimelineConcern.h"

namespace zav {
namespace {

ZAVTimelineWindows::Time now() noexcept {
    return std::chrono::steady_clock::now();
}

/// Whether reading failed only because the store does not read at all, which it tells by itself.
bool isOfNoInterest(const ZAVError& error) {
    return error.domain() == ZAVErrorDomainEventStore &&
           (error.code() == ZAVEventStoreErrorClosed || error.code() == ZAVEventStoreErrorSuspended);
}

}  // namespace

void ZAVTimelineWindows::add(std::shared_ptr<ZAVLiveTimeline> timeline,
                             std::chrono::milliseconds coalescing) {
    auto window = std::make_shared<Window>();
    window->timeline = std::move(timeline);
    window->coalescing = coalescing;
    const std::lock_guard lock(mutex_);
    windows_.push_back(std::move(window));
    count_ = windows_.size();
    startAt(now());
}

void ZAVTimelineWindows::remove(const ZAVLiveTimeline& timeline) noexcept {
    std::shared_ptr<Window> removed;  // goes when the lock has gone
    const std::lock_guard lock(mutex_);
    const auto window = find(timeline);
    if (window != windows_.end()) {
        removed.swap(*window);
        windows_.erase(window);
        count_ = windows_.size();
    }
}

void ZAVTimelineWindows::ask(const ZAVLiveTimeline& timeline, ZAVTimelineRequest request) {
    const std::lock_guard lock(mutex_);
    Window& window = **find(timeline);
    if (request.kept && window.toldEnd && request.kept->last == window.toldEnd) {
        request.kept->last.reset();  // nothing that was told is to go there
    }
    window.requests.push_back(request);
    window.isWanted = true;
    startWhenWanted();
}

/// With the lock.
ZAVTimelineWindows::Windows::iterator ZAVTimelineWindows::find(const ZAVLiveTimeline& timeline) noexcept {
    return std::find_if(windows_.begin(), windows_.end(),
                        [&](const auto& window) { return window->timeline.get() == &timeline; });
}

// Commits

void ZAVTimelineWindows::note(std::span<const FMRowChange> changes) noexcept {
    if (areThere()) {
        const std::lock_guard lock(mutex_);
        changes_.add(areBehind_ ? std::span<const FMRowChange>() : changes);
    }
}

void ZAVTimelineWindows::lookAtNoted() noexcept {
    if (areThere()) {
        const std::lock_guard lock(mutex_);
        if (changes_.areThere()) {
            startAt(nextLook_);
        }
    }
}

void ZAVTimelineWindows::disconnect() noexcept {
    const std::lock_guard lock(mutex_);
    core_ = nullptr;
}

// When to read; with the lock

ZAVTimelineWindows::Time ZAVTimelineWindows::dueTimeOf(const Window& window) noexcept {
    return window.lastRead && window.requests.empty() ? *window.lastRead + window.coalescing : Time::min();
}

void ZAVTimelineWindows::startWhenWanted() noexcept {
    std::optional<Time> first;
    const auto consider = [&](Time time) { first = std::min(first.value_or(time), time); };
    if (changes_.areThere()) {
        consider(nextLook_);
    }
    for (const auto& window : windows_) {
        if (window->isWanted && !window->isDelivering) {
            consider(dueTimeOf(*window));
        }
    }
    if (first) {
        startAt(*first);
    }
}

void ZAVTimelineWindows::startAt(Time time) noexcept {
    if (core_ == nullptr || isRunning_) {
        return;
    }
    try {
        if (time <= now()) {
            isRunning_ = core_->runBeside([self = shared_from_this()] { self->run(); });
        } else if (!alarm_ || time < *alarm_) {
            const auto ring = [self = shared_from_this(), time] {
                const std::lock_guard lock(self->mutex_);
                if (self->alarm_ == time) {
                    self->alarm_.reset();
                }
                self->startWhenWanted();
            };
            alarm_ = core_->callAt(time, ring) ? std::optional(time) : alarm_;
        }
    } catch (const std::exception&) {
        return;  // for want of memory: the next commit starts it
    }
}

// Reading; on a thread of the store, one at a time

void ZAVTimelineWindows::run() noexcept {
    const Time begin = now();
    bool isComplete = false;
    try {
        isComplete = readAnew();
    } catch (const std::exception&) {
        isComplete = false;  // for want of memory: the next commit has all of it made up for
    }
    deliveries_->handOut();
    const std::lock_guard lock(mutex_);
    isRunning_ = false;
    areBehind_ = !isComplete;
    std::chrono::milliseconds pause = std::chrono::milliseconds::max();
    for (const auto& window : windows_) {
        pause = std::min(pause, window->coalescing);
    }
    nextLook_ = windows_.empty() ? begin : begin + pause;
    startWhenWanted();
}

/// @return whether each window that was to be read has been.
bool ZAVTimelineWindows::readAnew() {
    Windows windows;
    ZAVTimelineChanges changes;
    ZAVStoreCore* core = nullptr;
    {
        const std::lock_guard lock(mutex_);
        windows = windows_;
        changes = std::exchange(changes_, {});
        core = core_;  // which waits for this thread before it goes
    }
    if (core == nullptr) {
        return true;
    }
    // What was noted before is in what is read: a snapshot is taken now.
    Readings readings;
    const ZAVWorkOutcome outcome = core->read([&](const ZAVRepositories& repositories) {
        markConcerned(changes, windows, repositories);
        readings = takeDue(windows);
        for (Reading& reading : readings) {
            read(reading, repositories);
        }
    });
    if (outcome.error && readings.empty()) {
        readings = takeDue(windows);
    }
    bool isComplete = !outcome.error;
    for (Reading& reading : readings) {
        isComplete = settle(reading, outcome.error) && isComplete;
    }
    return isComplete;
}

void ZAVTimelineWindows::markConcerned(const ZAVTimelineChanges& changes, const Windows& windows,
                                       const ZAVRepositories& repositories) {
    if (!changes.areThere()) {
        return;
    }
    std::vector<const ZAVLiveTimeline*> timelines;
    for (const auto& window : windows) {
        timelines.push_back(window->timeline.get());
    }
    const ZAVTimelineConcern concern(changes, timelines, repositories);
    for (const auto& window : windows) {
        if (concern.concerns(*window->timeline)) {
            const std::lock_guard lock(mutex_);
            window->isWanted = true;
        }
    }
}

ZAVTimelineWindows::Readings ZAVTimelineWindows::takeDue(const Windows& windows) {
    const Time present = now();
    Readings readings;
    const std::lock_guard lock(mutex_);
    for (const auto& window : windows) {
        if (!window->isWanted || window->isDelivering || dueTimeOf(*window) > present) {
            continue;
        }
        Reading& reading = readings.emplace_back();
        reading.window = window;
        reading.requests = window->requests;
        reading.delivery = std::make_shared<ZAVTimelineDelivery>();
        reading.call.emplace_back([self = shared_from_this(), window, delivery = reading.delivery] {
            self->delivered(*window, delivery->page);
            window->timeline->observer().tell(*delivery);
        });
        window->isWanted = false;
        window->lastRead = present;
    }
    return readings;
}

void ZAVTimelineWindows::read(Reading& reading, const ZAVRepositories& repositories) {
    try {
        auto delivery = reading.window->timeline->read(repositories, reading.requests, &reading.error);
        reading.isRead = !reading.error;
        if (delivery) {
            *reading.delivery = *std::move(delivery);
            reading.isToTell = true;
        }
    } catch (const std::bad_alloc&) {
        reading.isRead = false;  // those that were read are to be told all the same
    }
}

/// @param error why no window could be read, if none could.
bool ZAVTimelineWindows::settle(Reading& reading, const ZAVError& error) {
    Window& window = *reading.window;
    const ZAVError& reason = error ? error : reading.error;
    if (!reading.isRead && reason && !isOfNoInterest(reason)) {
        if (auto delivery = window.timeline->fail(reason)) {
            *reading.delivery = *std::move(delivery);
            reading.isToTell = true;
        }
    }
    const std::lock_guard lock(mutex_);
    if (reading.isRead) {
        const auto done = static_cast<std::ptrdiff_t>(reading.requests.size());
        window.requests.erase(window.requests.begin(), window.requests.begin() + done);
    }
    if (reading.isToTell) {
        window.isDelivering = true;
        deliveries_->add(reading.call);
    }
    return reading.isRead;
}

/// Before the observer is called, so that what comes meanwhile is read.
void ZAVTimelineWindows::delivered(Window& window, const ZAVTimelinePage& page) noexcept {
    const std::lock_guard lock(mutex_);
    window.toldEnd =
        page.hasLater || page.cursors.empty() ? std::nullopt : std::optional(page.cursors.back());
    window.isDelivering = false;
    startWhenWanted();
}

}  // namespace zav
