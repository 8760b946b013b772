#pragma once

#include <array>
#include <cstddef>
#include <set>
#include <string>

namespace zav::bench {

/// The statements that the operations of the event store consist of.
enum class Sql : std::size_t {
    streamInRow,
    streamWithUUID,
    insertEvent,
    eventAtSeq,
    updateEvent,
    keysOfEvent,
    insertKey,
    removeKey,
    insertPart,
    updatePart,
    forgetEvents,
    forgetOtherNumberOfEvents,
    deleteEvent,
    valuesOfEvent,
    partsOfEvent,
    allEvents,
    publishableEvents,
    unprocessedEvents,
    revivedStream,
    eventInRow,
    eventWithSeq,
    partInRow,
    partOfEvent,
    partOfMessage,
    partForObjectIdentifier,
    partForExternalURL,
    partsWithoutURL,
    incompleteUploads,
    expiredDownloads,
    incompleteDownloads,
    diskUtilization,
    leastRecentlyAccessed,
    count
};

inline constexpr std::size_t sqlCount = static_cast<std::size_t>(Sql::count);

/// How many events are forgotten with one statement.
inline constexpr std::size_t forgottenAtOnce = 500;

struct SqlText {
    std::string text;

    /// The type of each column: i for an integer, d for a real number, s for text, b for bytes.
    std::string columns;
};

/// The texts of one contender's statements. Those that are not fixed start empty.
using SqlTexts = std::array<SqlText, sqlCount>;

SqlTexts makeSqlTexts();
std::string forgetEventsText(std::size_t events);
std::string expiredDownloadsText(const std::set<std::string>& types);

}  // namespace zav::bench
