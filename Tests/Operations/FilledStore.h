#pragma once

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVSet.h>

#include <memory>
#include <string>
#include <vector>

#include "Support/TestStore.h"

namespace zav::test {

/// Fills an empty event store with what each operation of the catalogue finds or changes: 24 events, of which
/// 20 are sequenced in a stream that the service knows. Throws when it cannot.
void fillStore(const std::shared_ptr<FMDatabase>& database);

/// A store so filled, of its own.
class FilledStore : public TestStore {
public:
    FilledStore() { fillStore(sharedDatabase()); }
};

/// The rows of the stream that the service knows, and of the other one.
inline constexpr ZAVDatabaseIdentifier publishedStream = 1;
inline constexpr ZAVDatabaseIdentifier unpublishedStream = 2;

/// The UUID of the stream that the service knows.
[[nodiscard]] ZAVUUID publishedStreamUUID();

/// Records for storing: with parts and metadata, and all columns; and one without a sequence, in a row of its
/// own so that storing it twice is storing it once.
[[nodiscard]] std::shared_ptr<ZAVEvent> fullEvent(int number, ZAVSequence seq);
[[nodiscard]] std::shared_ptr<ZAVEvent> draft(ZAVDatabaseIdentifier row);

/// Three events of the filled store, by their rows.
[[nodiscard]] ZAVSet<ZAVEvent> storedEvents();

/// All rows of the tables of the event store, each as "table: column|column...", sorted as text.
/// Reads past the handle's own statements; throws when a table cannot be read.
[[nodiscard]] std::vector<std::string> rowsOfAllTables(FMDatabase& database);

}  // namespace zav::test
