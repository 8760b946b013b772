#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEventContent.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zavevents {

// The tool's own statements over the tables of the store: what only the tool asks. Those that belong to a
// mechanism stand with it: see `ContentRows`, `EventRecognition`, `ExactExpirations`, `ReadBackCheck` and
// `UnnamedStreams`. All of them throw `ToolError` when the database fails.

/// The greatest row of an event; 0 when there is none.
[[nodiscard]] zav::ZAVDatabaseIdentifier newestEventRow(zav::FMDatabase& database);

/// What the service assigns to an event, as it is stored.
struct StoredAssignment {
    std::optional<std::string> creator;
    std::optional<zav::ZAVSequence> seq;
    std::int64_t timestamp;
};
[[nodiscard]] StoredAssignment assignmentOfEvent(zav::FMDatabase& database, zav::ZAVDatabaseIdentifier event);

/// What is inside a content part, as it is stored.
struct StoredContent {
    std::uint64_t index;
    std::optional<std::string> type;
    std::optional<zav::ZAVData> value;
    std::optional<std::string> url;
};

/// Calls `take` with each content part of an event, by index.
void forEachContentOfEvent(zav::FMDatabase& database, zav::ZAVDatabaseIdentifier event,
                           const std::function<void(const StoredContent&)>& take);

/// How many rows there are for each value of a column, in its order: the beginning of the value's text,
/// "null" for NULL, and the number.
using CountsByValue = std::vector<std::pair<std::string, std::int64_t>>;
[[nodiscard]] CountsByValue countEventsByType(zav::FMDatabase& database);
[[nodiscard]] CountsByValue countPartsByTransferStatus(zav::FMDatabase& database);

[[nodiscard]] std::int64_t countPostedEvents(zav::FMDatabase& database);

/// Counts in a way that every engine ends in a file whose pages lead in circles.
[[nodiscard]] std::int64_t countStreams(zav::FMDatabase& database);

[[nodiscard]] std::int64_t countPartsWithoutEvent(zav::FMDatabase& database);
[[nodiscard]] std::int64_t countEventsWithoutStream(zav::FMDatabase& database);

/// The row of a content part; none when there is no such part.
[[nodiscard]] std::optional<zav::ZAVDatabaseIdentifier> rowOfPart(zav::FMDatabase& database,
                                                                  zav::ZAVDatabaseIdentifier event,
                                                                  std::int64_t index);

/// Whether writing a part back as it was read would leave each column of its row as it is. What is stored may
/// be more than a record can say: an expiration with a fraction, a purge mark that is NULL, an invalid URL.
[[nodiscard]] bool isAllOfItsRow(zav::FMDatabase& database, const zav::ZAVEventContent& part,
                                 zav::ZAVDatabaseIdentifier row);

/// Changes columns of one content part, and no others.
/// @param assignments such as "size = ?, purged = ?", with their values.
void updatePart(zav::FMDatabase& database, zav::ZAVDatabaseIdentifier row, const std::string& assignments,
                std::vector<zav::ZAVValue> values);

}  // namespace zavevents
