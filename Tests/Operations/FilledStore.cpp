#include "Operations/FilledStore.h"

#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>

#include <algorithm>
#include <stdexcept>

#include "Support/TestStore.h"

namespace zav::test {
namespace {

constexpr int eventCount = 24;

void require(bool succeeded, const FMDatabase& database, const ZAVError& error) {
    if (!succeeded) {
        throw std::runtime_error("cannot fill the store: " +
                                 (error ? error : database.lastError()).description());
    }
}

}  // namespace

ZAVUUID publishedStreamUUID() {
    return uuidNumber(0xAA);
}

std::shared_ptr<ZAVEvent> fullEvent(int number, ZAVSequence seq) {
    auto event = makeEvent(EventType_MESSAGE, publishedStreamUUID(), number);
    event->set_seq(seq);
    event->set_creator_id("member-" + std::to_string(number % 3));
    event->set_creator_name("Member " + std::to_string(number % 3));
    event->set_server_timestamp(1700000000000 + number);
    event->set_preceding_seq(seq - 1);
    event->set_client_seq(number);
    event->set_transient_metadata(
        ZAVDictionary{{"locale", std::string("de")}, {"note", std::string(300, 'n')}});
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{
        makeTextPart("message " + std::to_string(number)), makeTextPart(std::string(2000, 'b'))});
    return event;
}

std::shared_ptr<ZAVEvent> draft(ZAVDatabaseIdentifier row) {
    auto event = makeEvent(EventType_MESSAGE, publishedStreamUUID(), static_cast<int>(row));
    event->setDatabaseIdentifier(row);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("draft")});
    return event;
}

ZAVSet<ZAVEvent> storedEvents() {
    ZAVSet<ZAVEvent> events;
    for (const ZAVDatabaseIdentifier row : {2, 4, 6}) {
        events.insert(std::make_shared<ZAVEvent>(row, publishedStream));
    }
    return events;
}

void fillStore(const std::shared_ptr<FMDatabase>& database) {
    ZAVError error;
    auto transaction = ZAVTransaction::begin(*database, &error);
    require(transaction.has_value(), *database, error);
    const ZAVStreamRepository streams(database);
    require(streams.findOrCreateStreamWithUUID(publishedStreamUUID(), &error) == publishedStream &&
                streams.createStreamWithoutUUID(&error) == unpublishedStream,
            *database, error);

    ZAVSet<ZAVTEvent> events;
    for (int number = 1; number <= eventCount; ++number) {
        auto event = fullEvent(number, number);
        if (number > 20) {
            event->unset_seq();
        }
        if (number > 22) {
            event->set_stream_id(std::nullopt);
            event->setStreamDatabaseIdentifier(unpublishedStream);
        }
        events.insert(event);
    }
    require(ZAVEventRepository(database).persistEvents(events, &error), *database, error);
    const ZAVSyncedChangeRepository changes(database);
    for (int row = 1; row <= 8; ++row) {
        require(changes.recordChange(ZAVSyncedChangeTableNameEvents, row, ZAVSyncedChangeTypeInsert, &error),
                *database, error);
    }
    require(
        database->executeStatements(
            "UPDATE event_content_parts SET file_path = 'files/' || event_database_identifier || '/' || "
            "event_content_part_id, size = 100, last_accessed = 1000 + database_identifier "
            "WHERE event_database_identifier BETWEEN 9 AND 20;"
            "UPDATE event_content_parts SET transfer_status = 0 WHERE event_database_identifier IN (9, 10);"
            "UPDATE event_content_parts SET transfer_status = 1, url = 'https://content.example.com/up%2Fload/' "
            "|| event_database_identifier WHERE event_content_part_id = 1 AND event_database_identifier "
            "BETWEEN 11 AND 14;"
            "UPDATE event_content_parts SET transfer_status = 2, type = 'image/png' WHERE "
            "event_database_identifier = 15;"
            "UPDATE event_content_parts SET transfer_status = 3, access_expiration = 4102444800.0, "
            "url = 'https://content.example.com/download/' || database_identifier WHERE "
            "event_database_identifier IN (16, 17);"
            "UPDATE streams SET seq = 20 WHERE database_identifier = 1;"
            "INSERT INTO conversations (stream_id) SELECT stream_id FROM streams WHERE stream_id NOT NULL;"
            "INSERT INTO conversation_participants (conversation_database_identifier, member_id, seq) "
            "VALUES (1, 'member-0', 1), (1, 'member-1', 2);"
            "INSERT INTO messages (event_database_identifier, seq) SELECT database_identifier, seq FROM "
            "events WHERE database_identifier <= 20;"
            "INSERT INTO stream_recency (stream_database_identifier, timestamp) SELECT database_identifier, "
            "1700000000000 FROM streams"),
        *database, {});
    require(transaction->commit(&error), *database, error);
}

std::vector<std::string> rowsOfAllTables(FMDatabase& database) {
    std::vector<std::string> rows;
    for (const std::string table : {"streams", "events", "event_content_parts", "synced_changes",
                                    "conversations", "conversation_participants", "messages",
                                    "keyed_values_local", "keyed_values_remote", "stream_recency"}) {
        for (const std::string& row : rowsOf(database, "SELECT * FROM " + table)) {
            rows.push_back(table + ": " + row);
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

}  // namespace zav::test
