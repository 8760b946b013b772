#pragma once

#include <set>
#include <span>

#include <ZAVEventRepository/ZAVRepositories.h>

#include "Store/Internal/ZAVTimelineChanges.h"

namespace zav {

class ZAVLiveTimeline;

/// Which windows changes can concern: those of a stream of which any event came, went or changed, which may
/// change gaps and what lies beyond a window, too; and those that hold an event whose parts or metadata
/// changed. Of rows that are gone, what only those know who hold them.
class ZAVTimelineConcern {
public:
    /// Looks the rows up, as they are now.
    ZAVTimelineConcern(const ZAVTimelineChanges& changes, std::span<const ZAVLiveTimeline* const> all,
                       const ZAVRepositories& repositories);

    [[nodiscard]] bool concerns(const ZAVLiveTimeline& timeline) const;

private:
    using Rows = std::set<ZAVDatabaseIdentifier>;

    void addRemoved(ZAVDatabaseIdentifier event, std::span<const ZAVLiveTimeline* const> all);

    bool isEverybody_ = false;
    bool areStreamsChanged_ = false;
    Rows streams_;
    Rows events_;
};

}  // namespace zav
