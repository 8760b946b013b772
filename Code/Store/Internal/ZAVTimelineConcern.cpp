#include "Store/Internal/ZAVTimelineConcern.h"

#include <algorithm>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVLiveTimeline.h"

namespace zav {

ZAVTimelineConcern::ZAVTimelineConcern(const ZAVTimelineChanges& changes,
                                       std::span<const ZAVLiveTimeline* const> all,
                                       const ZAVRepositories& repositories)
    : isEverybody_(changes.isAnything() || changes.arePartsRemoved()) {
    using Kind = ZAVTimelineChanges::Kind;
    ZAVError failure;
    const auto addAnswer = [&](Rows& found, ZAVSQL statement, ZAVDatabaseIdentifier row) {
        if (const auto number = readNumber(repositories.events.database(), &failure, statement, row)) {
            found.insert(*number);
        }
    };
    for (const auto& [row, kind] : changes.rows()) {
        if (isEverybody_) {
            return;
        }
        switch (kind) {
            case Kind::event:
                events_.insert(row);
                addAnswer(streams_,
                          "SELECT stream_database_identifier FROM events WHERE database_identifier = ?", row);
                break;
            case Kind::removedEvent:
                addRemoved(row, all);
                break;
            case Kind::part:
                addAnswer(
                    events_,
                    "SELECT event_database_identifier FROM event_content_parts WHERE database_identifier = ?",
                    row);
                break;
            case Kind::metadata:
                events_.insert(row);
                break;
            case Kind::stream:
                streams_.insert(row);
                areStreamsChanged_ = true;
                break;
        }
        isEverybody_ = isEverybody_ || failure;
    }
}

void ZAVTimelineConcern::addRemoved(ZAVDatabaseIdentifier event,
                                    std::span<const ZAVLiveTimeline* const> all) {
    const auto holder = std::find_if(all.begin(), all.end(),
                                     [&](const ZAVLiveTimeline* timeline) { return timeline->holds(event); });
    if (holder == all.end()) {
        isEverybody_ = true;
    } else {
        streams_.insert((*holder)->stream());
    }
}

bool ZAVTimelineConcern::concerns(const ZAVLiveTimeline& timeline) const {
    const bool isRegistered = timeline.stream() != ZAVDatabaseIdentifierNotSet;
    return isEverybody_ || (isRegistered ? streams_.contains(timeline.stream()) : areStreamsChanged_) ||
           std::any_of(events_.begin(), events_.end(),
                       [&](ZAVDatabaseIdentifier event) { return timeline.holds(event); });
}

}  // namespace zav
