#include <ZAVEventRepository/ZAVTimelineWindow.h>

#include <string>
#include <utility>

#include "Store/Internal/ZAVLiveTimeline.h"
#include "Store/Internal/ZAVStoreCore.h"
#include "Store/Internal/ZAVStoreErrors.h"
#include "Store/Internal/ZAVTimelineWindows.h"

namespace zav {
namespace {

/// Why a window cannot be opened so, if there is a reason.
ZAVError objectionTo(const ZAVTimelineWindowOptions& options) {
    if (options.count < 1) {
        return ZAVErrorOfStore(ZAVEventStoreErrorBadOption, "the option count is 0, but must be at least 1");
    }
    if (options.coalescing.count() < 0) {
        return ZAVErrorOfStore(ZAVEventStoreErrorBadOption, "the option coalescing is " +
                                                                std::to_string(options.coalescing.count()) +
                                                                " ms, but may not be negative");
    }
    return {};
}

}  // namespace

std::unique_ptr<ZAVTimelineWindow> ZAVTimelineWindow::open(const ZAVTimeline& timeline,
                                                           ZAVTimelineObserver observer,
                                                           const ZAVTimelineWindowOptions& options,
                                                           ZAVError* error) {
    if (const ZAVError objection = objectionTo(options)) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    auto question = ZAVTimelineQuestion::of(timeline.uuid_, timeline.row_, timeline.options_, error);
    if (!question) {
        return nullptr;
    }
    auto live = std::make_shared<ZAVLiveTimeline>(*question, options, std::move(observer));
    std::unique_ptr<ZAVTimelineWindow> window(new ZAVTimelineWindow(live));
    window->all_ = timeline.store_.core_->showWindow(live, options.coalescing, error);
    return window->all_ != nullptr ? std::move(window) : nullptr;
}

ZAVTimelineWindow::ZAVTimelineWindow(std::shared_ptr<ZAVLiveTimeline> live) noexcept
    : live_(std::move(live)) {}

ZAVTimelineWindow::~ZAVTimelineWindow() {
    if (all_ != nullptr) {
        all_->remove(*live_);
    }
    live_->observer().end();
}

void ZAVTimelineWindow::extendEarlier(std::size_t count) {
    all_->ask(*live_, {count, 0, {}});
}

void ZAVTimelineWindow::extendLater(std::size_t count) {
    all_->ask(*live_, {0, count, {}});
}

void ZAVTimelineWindow::trim(const ZAVTimelineCursor& first, const ZAVTimelineCursor& last) {
    all_->ask(*live_, {0, 0, ZAVTimelineRequest::Kept{first, last}});
}

}  // namespace zav
