#include "Support/EveryOperation.h"

#include <ZAVEventRepository/ZAVConversationRepository.h>
#include <ZAVEventRepository/ZAVEventRowRepository.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVMessagePartObjectIdentifier.h>
#include <ZAVEventRepository/ZAVMessageRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <sqlite3.h>

#include <algorithm>
#include <ostream>
#include <stdexcept>
#include <utility>
#include <variant>

#include "Support/TestStore.h"

namespace zav::test {
namespace {

constexpr int eventCount = 24;
constexpr ZAVDatabaseIdentifier publishedStream = 1;
constexpr ZAVDatabaseIdentifier unpublishedStream = 2;

ZAVUUID stream() {
    return uuidNumber(0xAA);
}

template <class Value>
std::string text(const std::optional<Value>& value) {
    if (!value) {
        return "none";
    }
    if constexpr (std::is_same_v<Value, ZAVUUID>) {
        return value->UUIDString();
    } else if constexpr (std::is_same_v<Value, ZAVData>) {
        return std::string(value->asText());
    } else if constexpr (std::is_same_v<Value, ZAVDate>) {
        return std::to_string(value->time_since_epoch().count());
    } else {
        return *value;
    }
}

Answer answer(bool succeeded) {
    return {succeeded ? "true" : "false"};
}

Answer answer(ZAVSize number) {
    return {std::to_string(number)};
}

Answer answer(const std::optional<ZAVSet<ZAVEvent>>& events) {
    return events ? Answer{"set", {events->begin(), events->end()}} : Answer{"none"};
}

Answer answer(const std::optional<ZAVSet<ZAVEventContent>>& contents) {
    return contents ? Answer{"set", {}, {contents->begin(), contents->end()}} : Answer{"none"};
}

Answer answer(const std::shared_ptr<ZAVEvent>& event) {
    return event ? Answer{"event", {event}} : Answer{"null"};
}

Answer answer(const std::shared_ptr<ZAVEventContent>& content) {
    return content ? Answer{"part", {}, {content}} : Answer{"null"};
}

/// An event's records for storing: with parts and metadata, and all of its columns.
std::shared_ptr<ZAVEvent> fullEvent(int number, ZAVSequence seq) {
    auto event = makeEvent(EventType_MESSAGE, stream(), number);
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

/// An event that the service has not sequenced, in a row of its own so that storing it twice is storing it
/// once.
std::shared_ptr<ZAVEvent> draft(ZAVDatabaseIdentifier row) {
    auto event = makeEvent(EventType_MESSAGE, stream(), static_cast<int>(row));
    event->setDatabaseIdentifier(row);
    event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("draft")});
    return event;
}

ZAVSet<ZAVTEvent> eventsToStore() {
    return {fullEvent(3, 3), fullEvent(90, 90), draft(91)};
}

ZAVSet<ZAVEvent> storedEvents() {
    ZAVSet<ZAVEvent> events;
    for (const ZAVDatabaseIdentifier row : {2, 4, 6}) {
        events.insert(std::make_shared<ZAVEvent>(row, publishedStream));
    }
    return events;
}

std::shared_ptr<ZAVEventContent> partToUpdate() {
    auto part = std::make_shared<ZAVEventContent>(ZAVDatabaseIdentifier{5}, uuidNumber(5), 0, "image/png",
                                                  std::nullopt, 4096, ZAVURL::URLWithString("files/5/0"),
                                                  ZAVURL::URLWithString("https://content.example.com/5/0"),
                                                  ZAVDateFromSecondsSince1970(4000000000));
    part->setTransferStatus(ZAVContentTransferComplete);
    part->setLastAccessed(ZAVDateFromSecondsSince1970(1700000123));
    return part;
}

ZAVKeyedValuesContext metadataOf(ZAVDatabaseIdentifier event) {
    return ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableRemote, "event", event,
                                                   ZAVKeyedValuesKeyTypeTransient);
}

template <class Repository>
Repository on(const ZAVEventRepository& repository) {
    // The neighbours share the handle; the catalogue holds no owner of it, so this one owns nothing.
    return Repository(std::shared_ptr<FMDatabase>(std::shared_ptr<void>(), &repository.database()));
}

/// A missing sequence is not a failure: only the error says whether there was one.
template <class Read>
Answer answerOfSeq(ZAVError* error, const Read& read) {
    ZAVError own;
    const std::optional<ZAVSequence> seq = read(&own);
    if (own) {
        ZAVStoreError(error, own);
        return {"none"};
    }
    return {seq ? std::to_string(*seq) : "no sequence"};
}

std::vector<Operation> makeOperations() {
    using R = ZAVEventRepository;
    constexpr auto line = FailureReport::errorLine;
    std::vector<Operation> operations{
        {"allEvents", line, "none", [](const R& r, ZAVError* e) { return answer(r.allEvents(e)); }},
        {"countOfEvents", line, "0",
         [](const R& r, ZAVError* e) { return answer(ZAVSize{r.countOfEvents(e)}); }},
        {"publishableEvents", line, "none",
         [](const R& r, ZAVError* e) { return answer(r.publishableEvents(e)); }},
        {"unpublishableEvents", line, "none",
         [](const R& r, ZAVError* e) { return answer(r.unpublishableEvents(e)); }},
        {"unprocessedEvents", line, "none",
         [](const R& r, ZAVError* e) { return answer(r.unprocessedEvents(e)); }},
        {"eventsFromRevivedStream", line, "none",
         [](const R& r, ZAVError* e) {
             return answer(r.eventsFromRevivedStreamWithStreamDatabaseIdentifier(publishedStream, e));
         }},
        {"postedAndProcessedEvents", line, "none",
         [](const R& r, ZAVError* e) { return answer(r.postedAndProcessedEvents(e)); }},
        {"eventWithSeq", line, "null",
         [](const R& r, ZAVError* e) { return answer(r.eventWithSeq(3, stream(), e)); }},
        {"eventForDatabaseIdentifier", line, "null",
         [](const R& r, ZAVError* e) { return answer(r.eventForDatabaseIdentifier(3, e)); }},
        {"persistEvents", line, "false",
         [](const R& r, ZAVError* e) { return answer(r.persistEvents(eventsToStore(), e)); }},
        {"updateObject", FailureReport::nothing, "false",
         [](const R& r, ZAVError* e) {
             auto event = draft(23);
             event->set_seq(23);
             event->set_creator_id("member-9");
             return answer(r.updateObject(*event, e));
         }},
        {"deleteUnprocessedEvents", line, "false",
         [](const R& r, ZAVError* e) { return answer(r.deleteUnprocessedEvents(storedEvents(), e)); }},
        {"deleteEvents", line, "false",
         [](const R& r, ZAVError* e) { return answer(r.deleteEvents(storedEvents(), e)); }},
        {"persistTombstoneEvent", line, "false",
         [](const R& r, ZAVError* e) {
             return answer(r.persistTombstoneEventWithTargetSeq(7, publishedStream, e));
         }},
        {"persistConversationsParticipantsSeq", FailureReport::verboseLine, "false",
         [](const R& r, ZAVError* e) {
             return answer(r.persistConversationsParticipantsSeq(11, "member-1", stream(), e));
         }},
        {"persistMessageSeq", line, "false",
         [](const R& r, ZAVError* e) { return answer(r.persistMessageSeq(12, 5, e)); }},
        {"eventContentDatabaseIdentifier", line, "null",
         [](const R& r, ZAVError* e) { return answer(r.eventContentDatabaseIdentifier(9, e)); }},
        {"eventContentForEventDatabaseIdentifier", line, "null",
         [](const R& r, ZAVError* e) { return answer(r.eventContentForEventDatabaseIdentifier(5, 1, e)); }},
        {"eventContentForMessagePart", line, "null",
         [](const R& r, ZAVError* e) {
             return answer(
                 r.eventContentForMessagePart(ZAVMessagePart(std::make_shared<ZAVMessage>(5), 0), e));
         }},
        {"eventContentForMessagePartObjectIdentifier", line, "null",
         [](const R& r, ZAVError* e) {
             return answer(r.eventContentForMessagePartObjectIdentifier(
                 ZAVMakeMessagePartObjectIdentifier(uuidNumber(5), 1), e));
         }},
        {"eventContentForExternalContentURL", line, "null",
         [](const R& r, ZAVError* e) {
             return answer(r.eventContentForExternalContentURL(
                 *ZAVURL::URLWithString("https://content.example.com/upload/14"), e));
         }},
        {"eventContentsHavingUnassignedURLs", line, "none",
         [](const R& r, ZAVError* e) { return answer(r.eventContentsHavingUnassignedURLsWithError(e)); }},
        {"eventContentsHavingIncompleteUploads", line, "none",
         [](const R& r, ZAVError* e) {
             return answer(r.eventContentsHavingIncompleteUploadsWithLimit(10, e));
         }},
        {"eventContentsHavingExpiredDownloadURLs", line, "none",
         [](const R& r, ZAVError* e) {
             return answer(r.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
                 std::set<std::string>{"image/png"}, 100, 10, e));
         }},
        {"eventContentsHavingIncompleteDownloads", line, "none",
         [](const R& r, ZAVError* e) {
             return answer(r.eventContentsHavingIncompleteDownloadsWithLimit(10, e));
         }},
        {"persistEventContentUpdate", line, "false",
         [](const R& r, ZAVError* e) { return answer(r.persistEventContentUpdate(*partToUpdate(), e)); }},
        {"totalDiskUtilization", line, "18446744073709551615",
         [](const R& r, ZAVError* e) {
             return answer(r.totalDiskUtilizationOfEventContentPartsWithError(e));
         }},
        {"leastRecentlyAccessedEventContentParts", line, "none",
         [](const R& r, ZAVError* e) {
             return answer(r.leastRecentlyAccessedEventContentPartsForSize(150, e));
         }},
    };

    constexpr auto cell = FailureReport::outParameterOnly;
    const std::string noRow = std::to_string(ZAVDatabaseIdentifierNotSet);
    const std::vector<Operation> neighbours{
        {"persistEventsInATransaction", cell, "false",
         [](const R& r, ZAVError* e) {
             auto transaction = ZAVTransaction::begin(r.database(), e);
             return answer(transaction && r.persistEvents(eventsToStore(), e) && transaction->commit(e));
         }},
        {"registerStream", cell, noRow,
         [noRow](const R& r, ZAVError* e) {
             return Answer{
                 std::to_string(on<ZAVStreamRepository>(r).findOrCreateStreamWithUUID(uuidNumber(0xBB), e))};
         }},
        {"findStream", cell, noRow,
         [](const R& r, ZAVError* e) {
             return Answer{
                 std::to_string(on<ZAVStreamRepository>(r).findOrCreateStreamWithUUID(stream(), e))};
         }},
        {"publishStream", cell, "false",
         [](const R& r, ZAVError* e) {
             return answer(on<ZAVStreamRepository>(r).setUUID(uuidNumber(0xCC), unpublishedStream, e));
         }},
        {"setSeqOfStream", cell, "false",
         [](const R& r, ZAVError* e) {
             return answer(on<ZAVStreamRepository>(r).setSeq(77, publishedStream, e));
         }},
        {"countOfStreams", cell, "none",
         [](const R& r, ZAVError* e) {
             const auto count = on<ZAVStreamRepository>(r).countOfStreams(e);
             return count ? answer(ZAVSize{*count}) : Answer{"none"};
         }},
        {"makeConversation", cell, noRow,
         [](const R& r, ZAVError* e) {
             return Answer{
                 std::to_string(on<ZAVConversationRepository>(r).findOrCreateConversationWithStreamUUID(
                     uuidNumber(0xBB), e))};
         }},
        {"addParticipant", cell, "false",
         [](const R& r, ZAVError* e) {
             return answer(on<ZAVConversationRepository>(r).addParticipant("member-2", 1, e));
         }},
        {"seqOfParticipant", cell, "none",
         [](const R& r, ZAVError* e) {
             return answerOfSeq(e, [&](ZAVError* error) {
                 return on<ZAVConversationRepository>(r).seqOfParticipant("member-1", 1, error);
             });
         }},
        {"makeMessage", cell, "null",
         [](const R& r, ZAVError* e) {
             const auto message =
                 on<ZAVMessageRepository>(r).findOrCreateMessageForEventDatabaseIdentifier(21, e);
             return Answer{message ? message->description() : "null"};
         }},
        {"seqOfMessage", cell, "none",
         [](const R& r, ZAVError* e) {
             return answerOfSeq(e, [&](ZAVError* error) {
                 return on<ZAVMessageRepository>(r).seqOfMessage(ZAVMessage(5), error);
             });
         }},
        {"eventsWithoutSeq", cell, "none",
         [](const R& r, ZAVError* e) {
             const auto rows = on<ZAVEventRowRepository>(r).eventsWithoutSeq(e);
             Answer found{rows ? "rows" : "none"};
             for (const ZAVDatabaseIdentifier row : rows.value_or(std::set<ZAVDatabaseIdentifier>())) {
                 found.value += " " + std::to_string(row);
             }
             return found;
         }},
        {"diskUtilizationIn64Bits", cell, "none",
         [](const R& r, ZAVError* e) {
             const auto sum = on<ZAVEventRowRepository>(r).diskUtilization(e);
             return Answer{sum ? std::to_string(*sum) : "none"};
         }},
        {"setKeyedValues", cell, "false",
         [](const R& r, ZAVError* e) {
             const ZAVDictionary values{{"locale", std::string("fr")}, {"key", ZAVData("\xFF", 1)}};
             return answer(on<ZAVKeyedValueRepository>(r).setKeyedValuesWithDictionary(
                 values, ZAVDateFromSecondsSince1970(1700000000), metadataOf(1), e));
         }},
        {"keyedValues", cell, "none",
         [](const R& r, ZAVError* e) {
             const auto values = on<ZAVKeyedValueRepository>(r).keyedValuesInContext(metadataOf(1), e);
             Answer found{values ? "values" : "none"};
             if (values) {
                 for (const auto& [key, value] : values->keyedValues()) {
                     const auto* const string = std::get_if<std::string>(&value);
                     found.value += " " + key + "=" + (string != nullptr ? *string : "bytes");
                 }
             }
             return found;
         }},
        {"recordChange", cell, "false",
         [](const R& r, ZAVError* e) {
             return answer(on<ZAVSyncedChangeRepository>(r).recordChange(ZAVSyncedChangeTableNameEvents, 1,
                                                                         ZAVSyncedChangeTypeUpdate, e));
         }},
    };
    operations.insert(operations.end(), neighbours.begin(), neighbours.end());
    const auto named = [&](std::string_view name) -> Operation& {
        return *std::find_if(operations.begin(), operations.end(),
                             [&](const Operation& operation) { return operation.name == name; });
    };
    named("totalDiskUtilization").breaksOffSilently = true;
    named("publishableEvents").leavesOutIncomplete = true;
    for (const std::string_view severalStatements : {"persistEvents", "deleteEvents", "setKeyedValues"}) {
        named(severalStatements).isAtomic = false;
    }
    // An insertion that is ignored uses up a row identifier, so events get later rows the second time.
    for (const std::string_view growing : {"persistEvents", "recordChange"}) {
        named(growing).isRepeatable = false;
    }
    return operations;
}

void require(bool succeeded, const FMDatabase& database, const ZAVError& error) {
    if (!succeeded) {
        throw std::runtime_error("cannot fill the store: " +
                                 (error ? error : database.lastError()).description());
    }
}

std::string columnText(sqlite3_stmt* statement, int column) {
    static constexpr char digits[] = "0123456789ABCDEF";
    switch (sqlite3_column_type(statement, column)) {
        case SQLITE_NULL:
            return "NULL";
        case SQLITE_BLOB: {
            const auto* const bytes =
                static_cast<const unsigned char*>(sqlite3_column_blob(statement, column));
            std::string hexadecimal = "X'";
            for (int index = 0; index < sqlite3_column_bytes(statement, column); ++index) {
                hexadecimal += digits[bytes[index] >> 4];
                hexadecimal += digits[bytes[index] & 0x0F];
            }
            return hexadecimal + "'";
        }
        default:
            return {reinterpret_cast<const char*>(sqlite3_column_text(statement, column)),
                    static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
    }
}

}  // namespace

std::string describeAlone(const ZAVEvent& event) {
    std::string text = event.description();
    for (const std::string_view field : {" content=", " transient_metadata="}) {
        if (const auto start = text.find(field); start != std::string::npos) {
            const auto end = text.find(')', start);
            text.erase(start, end == std::string::npos ? end : end + 1 - start);
        }
    }
    return text;
}

std::string describe(const ZAVEventContent& content) {
    return content.description() + " eventClientID=" + text(content.eventClientID()) +
           " streamUUID=" + text(content.streamUUID()) + " eventSeq=" + std::to_string(content.eventSeq()) +
           " lastAccessed=" + text(content.lastAccessed()) +
           " expiration=" + text(content.externalContentURLExpiration()) + " bytes=" + text(content.body());
}

std::vector<std::string> describeParts(const ZAVEvent& event) {
    std::vector<std::string> parts;
    for (const auto& part : event.contentParts()) {
        parts.push_back(describe(*part));
    }
    return parts;
}

std::vector<std::string> describeMetadata(const ZAVEvent& event) {
    std::vector<std::string> entries;
    if (event.transient_metadata()) {
        for (const auto& [key, value] : *event.transient_metadata()) {
            const auto* const string = std::get_if<std::string>(&value);
            entries.push_back(key + "=" +
                              (string != nullptr ? *string : std::string(std::get<ZAVData>(value).asText())));
        }
    }
    return entries;
}

std::vector<std::string> Answer::text() const {
    std::vector<std::string> lines{value};
    for (const auto& event : events) {
        lines.push_back(describeAlone(*event));
        for (auto& entry : describeMetadata(*event)) {
            lines.push_back("  " + std::move(entry));
        }
        for (auto& part : describeParts(*event)) {
            lines.push_back("  " + std::move(part));
        }
    }
    for (const auto& content : contents) {
        lines.push_back(describe(*content));
    }
    return lines;
}

std::ostream& operator<<(std::ostream& stream, const Operation& operation) {
    return stream << operation.name;
}

const std::vector<Operation>& everyOperation() {
    static const std::vector<Operation> operations = makeOperations();
    return operations;
}

void fillStore(const std::shared_ptr<FMDatabase>& database) {
    ZAVError error;
    auto transaction = ZAVTransaction::begin(*database, &error);
    require(transaction.has_value(), *database, error);
    const ZAVStreamRepository streams(database);
    require(streams.findOrCreateStreamWithUUID(stream(), &error) == publishedStream &&
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
            "UPDATE event_content_parts SET transfer_status = 1, url = 'https://content.example.com/upload/' "
            "|| event_database_identifier WHERE event_content_part_id = 0 AND event_database_identifier "
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
            "events WHERE database_identifier <= 20"),
        *database, {});
    require(transaction->commit(&error), *database, error);
}

std::vector<std::string> rowsOfAllTables(FMDatabase& database) {
    std::vector<std::string> rows;
    for (const std::string table :
         {"streams", "events", "event_content_parts", "synced_changes", "conversations",
          "conversation_participants", "messages", "keyed_values_local", "keyed_values_remote"}) {
        sqlite3_stmt* statement = nullptr;
        const std::string sql = "SELECT * FROM " + table;
        int status = sqlite3_prepare_v2(database.sqliteHandle(), sql.c_str(), -1, &statement, nullptr);
        while (status == SQLITE_OK || status == SQLITE_ROW) {
            status = sqlite3_step(statement);
            if (status == SQLITE_ROW) {
                std::string row = table + ": ";
                for (int column = 0; column < sqlite3_column_count(statement); ++column) {
                    row += (column == 0 ? "" : "|") + columnText(statement, column);
                }
                rows.push_back(std::move(row));
            }
        }
        sqlite3_finalize(statement);
        if (status != SQLITE_DONE) {
            throw std::runtime_error("cannot read " + table + ": " + sqlite3_errmsg(database.sqliteHandle()));
        }
    }
    std::sort(rows.begin(), rows.end());
    return rows;
}

}  // namespace zav::test
