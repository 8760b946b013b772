#pragma once

#include <optional>
#include <unordered_set>
#include <vector>

#include <ZAVEventRepository/ZAVTimelineWindow.h>

#include "Store/Internal/ZAVObserverCalls.h"
#include "Store/Internal/ZAVTimelineDifferences.h"
#include "Store/Internal/ZAVTimelineQuestion.h"
#include "Store/Internal/ZAVTimelineSpan.h"

namespace zav {

/// What a window holds, and who is told how it changes. Used by one thread at a time, but for the calls of
/// the observer.
class ZAVLiveTimeline {
public:
    ZAVLiveTimeline(ZAVTimelineQuestion question, const ZAVTimelineWindowOptions& options,
                    ZAVTimelineObserver observer)
        : question_(question), span_(options), observer_(std::move(observer)) {}

    /// Reads it anew, after doing what is asked.
    /// @return what is to be told, if anything is; nothing on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVTimelineDelivery> read(const ZAVRepositories& repositories,
                                                          const std::vector<ZAVTimelineRequest>& requests,
                                                          ZAVError* error);

    /// Notes that it could not be read.
    /// @return what is to be told; nothing when it could not be for the same reason before.
    [[nodiscard]] std::optional<ZAVTimelineDelivery> fail(const ZAVError& error);

    /// The row of the stream when it was read last.
    [[nodiscard]] ZAVDatabaseIdentifier stream() const noexcept { return stream_; }

    /// Whether an event is in what was read last.
    [[nodiscard]] bool holds(ZAVDatabaseIdentifier event) const { return rows_.contains(event); }

    [[nodiscard]] ZAVObserverCalls<ZAVTimelineDelivery>& observer() noexcept { return observer_; }

private:
    [[nodiscard]] std::optional<ZAVTimelineDelivery> show(ZAVTimelinePage page);

    const ZAVTimelineQuestion question_;
    ZAVTimelineSpan span_;
    ZAVObserverCalls<ZAVTimelineDelivery> observer_;
    ZAVDatabaseIdentifier stream_ = ZAVDatabaseIdentifierNotSet;
    bool hasBegun_ = false;
    ZAVTimelinePage page_;
    std::vector<ZAVTimelineEntry> entries_;  ///< what the events of the page were when they were read
    std::unordered_set<ZAVDatabaseIdentifier> rows_;
    ZAVError failure_;
};

}  // namespace zav
