#include "Store/Internal/ZAVTimelineReader.h"

#include <algorithm>
#include <iterator>
#include <limits>
#include <utility>

#include <ZAVEventRepository/ZAVEventMapperColumns.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Private/Model/Repositories/Internal/ZAVBareEvents.h"
#include "Store/Internal/ZAVSequenceGaps.h"
#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {
namespace {

constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t greatest = std::numeric_limits<std::int64_t>::max();
constexpr ZAVTimelinePlace beginning{false, least, 0};
constexpr ZAVTimelinePlace end = ZAVTimelinePlace::end();
constexpr std::int64_t everyType = -1;

// ?1 is the stream, ?2 the types. A sequence that is not a whole number, as only a file that others wrote has
// one, names no place that one could go on from.
constexpr ZAVStatementText ofTypes(
    " AND (?2 = -1 OR (?2 < 0 AND events.type < 0) OR (events.type >= 0 AND (?2 >> events.type) & 1))");
constexpr auto asked = ZAVStatementText(" AND typeof(events.seq) = 'integer'") + ofTypes;

constexpr ZAVStatementText sequenced(" WHERE events.stream_database_identifier = ?1");
constexpr ZAVStatementText unsequenced(
    " WHERE events.stream_database_identifier = ?1 AND events.seq IS NULL");
constexpr ZAVStatementText placeOfWaiting(
    "(CAST(IFNULL(events.client_seq, 0) AS INTEGER), events.database_identifier)");
constexpr ZAVStatementText waitingOrder(
    " ORDER BY CAST(IFNULL(events.client_seq, 0) AS INTEGER), events.database_identifier");
constexpr ZAVStatementText waitingOrderBackwards(
    " ORDER BY CAST(IFNULL(events.client_seq, 0) AS INTEGER) DESC, events.database_identifier DESC");

constexpr auto selectedEvents = projections::eventOfOneStream;
constexpr auto earlierSequenced =
    selectedEvents + sequenced + " AND events.seq < ?3" + asked + " ORDER BY events.seq DESC LIMIT ?4";
constexpr auto laterSequenced =
    selectedEvents + sequenced + " AND events.seq > ?3" + asked + " ORDER BY events.seq LIMIT ?4";
constexpr auto earlierWaiting = selectedEvents + unsequenced + ofTypes + " AND " + placeOfWaiting +
                                " < (?3, ?4)" + waitingOrderBackwards + " LIMIT ?5";
constexpr auto laterWaiting = selectedEvents + unsequenced + ofTypes + " AND " + placeOfWaiting +
                              " > (?3, ?4)" + waitingOrder + " LIMIT ?5";

constexpr auto sequencedBetween =
    selectedEvents + sequenced + " AND events.seq BETWEEN ?3 AND ?4" + asked + " ORDER BY events.seq";
constexpr auto waitingBetween = selectedEvents + unsequenced + ofTypes + " AND " + placeOfWaiting +
                                " >= (?3, ?4) AND " + placeOfWaiting + " <= (?5, ?6)" + waitingOrder;

// What belongs to the events of a page is asked for by the two places where they begin and end. What belongs
// to others there is left.
constexpr auto sequencedOfPage = sequenced + " AND events.seq BETWEEN ?3 AND ?4" + ofTypes;
constexpr auto waitingOfPage =
    unsequenced + ofTypes + " AND " + placeOfWaiting + " >= (?3, ?4) AND " + placeOfWaiting + " <= (?5, ?6)";
constexpr auto contentOfSequenced = projections::selectContentOfEvents(sequencedOfPage);
constexpr auto metadataOfSequenced = projections::selectMetadataOfEvents(sequencedOfPage);
constexpr auto contentOfWaiting = projections::selectContentOfEvents(waitingOfPage);
constexpr auto metadataOfWaiting = projections::selectMetadataOfEvents(waitingOfPage);

// From where to where a page tells of gaps whose sequenced events are at ?3 to ?4: from the event before it,
// and to the end of the stream, as far as that has come, when no event follows.
constexpr auto rangeOfGaps =
    ZAVStatementText("SELECT IFNULL((SELECT events.seq FROM events") + sequenced + " AND events.seq < ?3" +
    asked + " ORDER BY events.seq DESC LIMIT 1), ?3), EXISTS (SELECT 1 FROM events" + sequenced +
    " AND events.seq > ?4" + asked + "), (SELECT seq FROM streams WHERE database_identifier = ?1)";
constexpr ZAVStatementText storedSequences(
    "SELECT events.seq FROM events WHERE events.stream_database_identifier = ?1"
    " AND events.seq BETWEEN ?2 AND ?3 ORDER BY events.seq");

/// How many rows to ask for, so that one more than wanted tells whether there are further ones.
std::int64_t oneMoreThan(std::size_t count) noexcept {
    return static_cast<std::int64_t>(std::min<std::size_t>(count, std::numeric_limits<std::int32_t>::max())) +
           1;
}

}  // namespace

std::optional<ZAVTimelinePage> ZAVTimelineReader::latest(std::size_t count, ZAVError* error) const {
    auto found = earlier(end, count, error);
    if (!found) {
        return std::nullopt;
    }
    const bool hasEarlier = cut(*found, count);
    std::reverse(found->begin(), found->end());
    return pageOf(*found, hasEarlier, false, error);
}

std::optional<ZAVTimelinePage> ZAVTimelineReader::before(const ZAVTimelineCursor& cursor, std::size_t count,
                                                         ZAVError* error) const {
    const auto place = placeOf(cursor, error);
    auto found = place ? earlier(*place, count, error) : std::nullopt;
    if (!found) {
        return std::nullopt;
    }
    const bool hasEarlier = cut(*found, count);
    std::reverse(found->begin(), found->end());
    return pageOf(*found, hasEarlier, std::nullopt, error);
}

std::optional<ZAVTimelinePage> ZAVTimelineReader::after(const ZAVTimelineCursor& cursor, std::size_t count,
                                                        ZAVError* error) const {
    const auto place = placeOf(cursor, error);
    auto found = place ? later(*place, count, error) : std::nullopt;
    if (!found) {
        return std::nullopt;
    }
    const bool hasLater = cut(*found, count);
    return pageOf(*found, std::nullopt, hasLater, error);
}

std::optional<ZAVTimelinePage> ZAVTimelineReader::around(std::int64_t seq, std::size_t count,
                                                         ZAVError* error) const {
    return around(Place{false, seq, 0}, count, error);
}

std::optional<ZAVTimelinePage> ZAVTimelineReader::around(const Place& place, std::size_t count,
                                                         ZAVError* error) const {
    Place justBefore = place;
    std::int64_t& last = place.isWaiting ? justBefore.event : justBefore.number;
    last -= last == least ? 0 : 1;
    auto ahead = earlier(place, count, error);
    auto behind = ahead ? later(justBefore, count, error) : std::nullopt;
    if (!behind) {
        return std::nullopt;
    }
    const std::size_t wantedAhead = std::max(count / 2, count - std::min(count, behind->size()));
    const bool hasEarlier = cut(*ahead, wantedAhead);
    const bool hasLater = cut(*behind, count - ahead->size());
    Row found(std::make_move_iterator(ahead->rbegin()), std::make_move_iterator(ahead->rend()));
    std::move(behind->begin(), behind->end(), std::back_inserter(found));
    return pageOf(found, hasEarlier, hasLater, error);
}

std::optional<ZAVTimelinePage> ZAVTimelineReader::between(const std::optional<ZAVTimelineCursor>& first,
                                                          const std::optional<ZAVTimelineCursor>& last,
                                                          ZAVError* error) const {
    const auto firstPlace = first ? placeOf(*first, error) : beginning;
    const auto lastPlace = !firstPlace ? std::nullopt : last ? placeOf(*last, error) : end;
    return lastPlace ? between(*firstPlace, *lastPlace, error) : std::nullopt;
}

std::optional<ZAVTimelinePage> ZAVTimelineReader::between(const Place& first, const Place& last,
                                                          ZAVError* error) const {
    Row found;
    if (!first.isWaiting && !append(found, error, sequencedBetween, stream_, types_, first.number,
                                    last.isWaiting ? greatest : last.number)) {
        return std::nullopt;
    }
    const Place firstWaiting = first.isWaiting ? first : Place{true, least, least};
    if (last.isWaiting && !append(found, error, waitingBetween, stream_, types_, firstWaiting.number,
                                  firstWaiting.event, last.number, last.event)) {
        return std::nullopt;
    }
    return pageOf(found, std::nullopt, std::nullopt, error);
}

std::optional<ZAVTimelinePlace> ZAVTimelineReader::placeBefore(const Place& place, std::size_t count,
                                                               ZAVError* error) const {
    auto found = earlier(place, count, error);
    if (!found) {
        return std::nullopt;
    }
    cut(*found, count);
    return found->empty() ? place : found->back().place;
}

std::optional<ZAVTimelinePlace> ZAVTimelineReader::placeBehind(const Place& place, std::size_t count,
                                                               ZAVError* error) const {
    auto found = later(place, count, error);
    if (!found) {
        return std::nullopt;
    }
    cut(*found, count);
    return found->empty() ? place : found->back().place;
}

/// An event that waited when the cursor was made may have got its sequence.
std::optional<ZAVTimelinePlace> ZAVTimelineReader::placeOf(const ZAVTimelineCursor& cursor,
                                                           ZAVError* error) const {
    if (cursor.stream() != stream_) {
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorBadCursor,
                                             "the cursor " + cursor.text() + " is of another stream"));
        return std::nullopt;
    }
    if (!cursor.waitingEvent()) {
        return Place{false, *cursor.seq(), 0};
    }
    ZAVError failure;
    auto row = runQuery(repositories_.events.database(), &failure,
                        "SELECT seq, client_seq FROM events"
                        " WHERE database_identifier = ? AND stream_database_identifier = ?",
                        *cursor.waitingEvent(), stream_);
    const bool isThere = row && row->nextWithError(&failure);
    if (failure) {
        ZAVStoreError(error, failure);
        return std::nullopt;
    }
    if (isThere && !row->columnIndexIsNull(0)) {
        return Place{false, row->longLongIntForColumnIndex(0), 0};
    }
    return Place{true, isThere ? row->longLongIntForColumnIndex(1) : cursor.clientSeq(),
                 *cursor.waitingEvent()};
}

/// The events before a place, the nearest first, and one more than wanted if there is one.
std::optional<ZAVTimelineReader::Row> ZAVTimelineReader::earlier(const Place& place, std::size_t count,
                                                                 ZAVError* error) const {
    Row found;
    const std::int64_t limit = oneMoreThan(count);
    if (place.isWaiting &&
        !append(found, error, earlierWaiting, stream_, types_, place.number, place.event, limit)) {
        return std::nullopt;
    }
    const auto rest = limit - static_cast<std::int64_t>(found.size());
    if (rest > 0 && !append(found, error, earlierSequenced, stream_, types_,
                            place.isWaiting ? greatest : place.number, rest)) {
        return std::nullopt;
    }
    return found;
}

/// The events behind a place, the nearest first, and one more than wanted if there is one.
std::optional<ZAVTimelineReader::Row> ZAVTimelineReader::later(const Place& place, std::size_t count,
                                                               ZAVError* error) const {
    Row found;
    const std::int64_t limit = oneMoreThan(count);
    if (!place.isWaiting && !append(found, error, laterSequenced, stream_, types_, place.number, limit)) {
        return std::nullopt;
    }
    const auto rest = limit - static_cast<std::int64_t>(found.size());
    const Place from = place.isWaiting ? place : Place{true, least, least};
    if (rest > 0 && !append(found, error, laterWaiting, stream_, types_, from.number, from.event, rest)) {
        return std::nullopt;
    }
    return found;
}

template <class... Values>
bool ZAVTimelineReader::append(Row& found, ZAVError* error, ZAVSQL statement, const Values&... values) const {
    const auto add = [&](const FMResultSet& row) {
        auto event = ZAVBareEventFromRow(row);
        const Place place =
            row.columnIndexIsNull(ZAVEventMapperColumnEventSeq)
                ? Place{true, row.longLongIntForColumnIndex(ZAVEventMapperColumnClientSeq),
                        event->databaseIdentifier()}
                : Place{false, row.longLongIntForColumnIndex(ZAVEventMapperColumnEventSeq), 0};
        found.push_back({std::move(event), place});
    };
    return visitRows(repositories_.events.database(), error, statement, add, values...);
}

/// Cuts what is more than wanted, and answers whether there was more.
bool ZAVTimelineReader::cut(Row& found, std::size_t count) {
    const bool isMore = found.size() > count;
    found.resize(std::min(found.size(), count));
    return isMore;
}

std::optional<ZAVTimelinePage> ZAVTimelineReader::pageOf(const Row& found, std::optional<bool> hasEarlier,
                                                         std::optional<bool> hasLater,
                                                         ZAVError* error) const {
    // Around an empty page there is nothing but on the side that was not looked at.
    const auto isThere = [](const std::optional<Row>& row) {
        return row ? std::optional(!row->empty()) : std::nullopt;
    };
    if (!hasEarlier) {
        hasEarlier = isThere(earlier(found.empty() ? end : found.front().place, 0, error));
    }
    if (hasEarlier && !hasLater) {
        hasLater = isThere(later(found.empty() ? beginning : found.back().place, 0, error));
    }
    if (!hasEarlier || !hasLater) {
        return std::nullopt;
    }
    ZAVTimelinePage page;
    page.hasEarlier = *hasEarlier;
    page.hasLater = *hasLater;
    for (const auto& [event, place] : found) {
        page.events.push_back(event);
        page.cursors.push_back(place.isWaiting
                                   ? ZAVTimelineCursor::atWaiting(stream_, place.number, place.event)
                                   : ZAVTimelineCursor::atSequence(stream_, place.number));
    }
    if (!readContent(found, error) || !readGaps(found, page.missing, error)) {
        return std::nullopt;
    }
    return page;
}

bool ZAVTimelineReader::readContent(const Row& found, ZAVError* error) const {
    FMDatabase& database = repositories_.events.database();
    const auto firstWaiting =
        std::find_if(found.begin(), found.end(), [](const Found& one) { return one.place.isWaiting; });
    const auto bare = [](auto from, auto behind) {
        ZAVBareEvents events(static_cast<std::size_t>(behind - from));
        std::for_each(from, behind, [&](const Found& one) { events.add(*one.event, !one.place.isWaiting); });
        return events;
    };
    if (firstWaiting != found.begin() &&
        !bare(found.begin(), firstWaiting)
             .readContent(database, contentOfSequenced, metadataOfSequenced, error, stream_, types_,
                          found.front().place.number, std::prev(firstWaiting)->place.number)) {
        return false;
    }
    if (firstWaiting == found.end()) {
        return true;
    }
    const Place& first = firstWaiting->place;
    const Place& last = found.back().place;
    return bare(firstWaiting, found.end())
        .readContent(database, contentOfWaiting, metadataOfWaiting, error, stream_, types_, first.number,
                     first.event, last.number, last.event);
}

bool ZAVTimelineReader::readGaps(const Row& found, std::vector<ZAVSequenceGap>& gaps, ZAVError* error) const {
    const auto lastSequenced =
        std::find_if(found.rbegin(), found.rend(), [](const Found& one) { return !one.place.isWaiting; });
    if (lastSequenced == found.rend()) {
        return true;
    }
    FMDatabase& database = repositories_.events.database();
    std::int64_t first = 0;
    std::int64_t last = lastSequenced->place.number;
    std::optional<std::int64_t> lastOfStream;
    const auto takeRange = [&](const FMResultSet& range) {
        first = range.longLongIntForColumnIndex(0);
        if (!range.boolForColumnIndex(1)) {
            last = greatest;
            lastOfStream = range.longLongIntForColumnIndex(2);
        }
    };
    if (!visitRows(database, error, rangeOfGaps, takeRange, stream_, types_, found.front().place.number,
                   last)) {
        return false;
    }
    std::optional<std::int64_t> below;
    const auto add = [&](std::int64_t seq) {
        ZAVAddGapBetween(below.value_or(seq), seq, gaps);
        below = seq;
    };
    if (types_ == everyType) {
        add(first);
        std::for_each(found.begin(), lastSequenced.base(), [&](const Found& one) { add(one.place.number); });
    } else if (!visitRows(
                   database, error, storedSequences,
                   [&](const FMResultSet& row) { add(row.longLongIntForColumnIndex(0)); }, stream_, first,
                   last)) {
        return false;
    }
    if (below && lastOfStream) {
        ZAVAddGapBetween(*below, *lastOfStream + 1, gaps);
    }
    return true;
}

}  // namespace zav
