#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Support/LogCapture.h"
#include "Support/OperationExpectations.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;
using Content = std::vector<std::shared_ptr<ZAVTContent>>;

/// A new message in the stream of a `StreamStore`.
std::shared_ptr<ZAVEvent> makeMessage(int number, std::optional<ZAVSequence> seq = std::nullopt) {
    auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), number);
    if (seq) {
        event->set_seq(*seq);
    }
    return event;
}

/// A new message with these parts.
std::shared_ptr<ZAVEvent> messageWith(int number, Content parts,
                                      std::optional<ZAVSequence> seq = std::nullopt) {
    auto event = makeMessage(number, seq);
    event->set_content(std::move(parts));
    return event;
}

const ZAVDictionary someMetadata{{"key", std::string("value")}};

void persist(const TestStore& store, const ZAVSet<ZAVTEvent>& events) {
    ZAVError error;
    ASSERT_TRUE(store.repository().persistEvents(events, &error)) << error.description();
}

/// What the engine runs while the events are stored.
Lines statementsPersisting(const TestStore& store, const ZAVSet<ZAVTEvent>& events) {
    const StatementTrace trace(store.database());
    persist(store, events);
    return trace.statements();
}

LogRecord announcementOf(const std::string& message) {
    return verboseLine("-[ZAVEventRepository persistEvents:error:]", "persisting %lu event(s)", message);
}

std::string announcementFor(const ZAVSet<ZAVTEvent>& events) {
    return "persisting " + std::to_string(events.size()) + " event(s)";
}

/// The printable form of a set as its error line shows it.
std::string descriptionOf(const ZAVSet<ZAVTEvent>& events) {
    std::string text;
    for (const auto& event : events) {
        text += (text.empty() ? "{(" : ", ") + event->description();
    }
    return text + ")}";
}

/// Stores events that the database must refuse, and checks all that a caller sees of the failure.
void expectFailure(const TestStore& store, const ZAVSet<ZAVTEvent>& events, const ZAVError& expected) {
    ZAVError error;
    const LogCapture log;
    EXPECT_FALSE(store.repository().persistEvents(events, &error)) << "the failure was not reported";
    EXPECT_EQ(error, expected) << error.description();
    EXPECT_EQ(error, store.database().lastError()) << "the caller did not get the handle's last error";
    EXPECT_EQ(log.records(), (std::vector{announcementOf(announcementFor(events)),
                                          errorLine("-[ZAVEventRepository persistEvents:error:]",
                                                    "failed to persist events:%@ with %@",
                                                    "failed to persist events:" + descriptionOf(events) +
                                                        " with " + error.description())}));
    expectHandleIsAtRest(store);
}

/// Stores events one of which violates a precondition, checks what the exception leaves behind, and returns
/// its reason.
std::string refusalOf(const TestStore& store, const ZAVSet<ZAVTEvent>& events) {
    std::string reason;
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    try {
        store.repository().persistEvents(events, &error);
        ADD_FAILURE() << "the events were to be refused";
    } catch (const NSInternalInconsistencyException& exception) {
        EXPECT_EQ(exception.name(), "NSInternalInconsistencyException");
        reason = exception.reason();
    }
    EXPECT_EQ(error, errorOfSomebodyElse()) << "an exception is no error: " << error.description();
    EXPECT_EQ(log.records(), std::vector{announcementOf(announcementFor(events))});
    expectHandleIsAtRest(store);
    return reason;
}

// The statements.

TEST(EventPersistence, ANewEventIsLookedUpByItsStreamsIdentifierAndInserted) {
    const StreamStore store;
    const auto event = makeMessage(7, 12);
    event->set_creator_id("alice");
    event->set_server_timestamp(1700000000123);
    event->set_preceding_seq(11);
    event->set_client_seq(-3);
    event->set_subtype(200);
    event->set_member_id("bob");
    event->set_target_seq(9);
    event->set_creator_name("Alice");
    EXPECT_EQ(statementsPersisting(store, {event}),
              (Lines{"SELECT * FROM streams WHERE stream_id = x'11111111111111111111111111111101' LIMIT 1",
                     "INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, "
                     "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, "
                     "client_id, creator_name) VALUES (NULL, 4, 'alice', 12, 1700000000123, 11, -3, 200, "
                     "'bob', 9, 1, x'11111111111111111111111111111107', 'Alice')"}));
}

TEST(EventPersistence, WhatAnEventLacksIsBoundAsNullAndItsNumbersAlways) {
    const StreamStore store;
    EXPECT_EQ(statementsPersisting(store, {makeMessage(7)}),
              (Lines{"SELECT * FROM streams WHERE stream_id = x'11111111111111111111111111111101' LIMIT 1",
                     "INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, "
                     "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, "
                     "client_id, creator_name) VALUES (NULL, 4, NULL, NULL, 0, 0, 0, 0, NULL, NULL, 1, "
                     "x'11111111111111111111111111111107', NULL)"}));
}

TEST(EventPersistence, AnEventWithBothNamesOfItsStreamIsLookedUpByTheRow) {
    const StreamStore store;
    store.addStream(uuidNumber(2));
    const auto event = makeMessage(7);
    event->setStreamDatabaseIdentifier(2);
    EXPECT_EQ(statementsPersisting(store, {event}),
              (Lines{"SELECT * FROM streams WHERE database_identifier = 2 LIMIT 1",
                     "INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, "
                     "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, "
                     "client_id, creator_name) VALUES (NULL, 4, NULL, NULL, 0, 0, 0, 0, NULL, NULL, 2, "
                     "x'11111111111111111111111111111107', NULL)"}));
    EXPECT_EQ(event->stream_id(), ZAVDataFromUUID(uuidNumber(2))) << "the stored stream's identifier wins";
    EXPECT_EQ(event->streamDatabaseIdentifier(), 2);
}

TEST(EventPersistence, AnEventWithoutARowThatCollidesAdoptsTheStoredRowAndOverwritesIt) {
    const StreamStore store;
    store.execute(
        "INSERT INTO events (database_identifier, type, creator_id, seq, timestamp, "
        "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, "
        "client_id, creator_name) VALUES (41, 2, 'old', 12, 1, 2, 3, 4, 'old', 5, 1, x'00', 'old')");
    const auto event = makeMessage(7, 12);
    event->set_creator_id("new");
    event->set_server_timestamp(99);
    persist(store, {event});
    EXPECT_EQ(event->databaseIdentifier(), 41);
    EXPECT_EQ(store.rows("SELECT * FROM events"),
              Lines{"41|4|new|12|99|0|0|0|NULL|NULL|1|X'11111111111111111111111111111107'|NULL"});
}

TEST(EventPersistence, AnEventWithARowThatCollidesIsUpdatedWithoutALookup) {
    const StreamStore store;
    store.execute(
        "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id) "
        "VALUES (41, 2, 3, 1, x'00')");
    const auto event = makeMessage(7, 12);
    event->setDatabaseIdentifier(41);
    event->set_creator_id("alice");
    event->set_server_timestamp(-1);
    event->set_preceding_seq(11);
    event->set_client_seq(5);
    event->set_subtype(255);
    event->set_member_id("bob");
    event->set_target_seq(9);
    event->set_creator_name("Alice");
    EXPECT_EQ(statementsPersisting(store, {event}),
              (Lines{"SELECT * FROM streams WHERE stream_id = x'11111111111111111111111111111101' LIMIT 1",
                     "INSERT OR IGNORE INTO events (database_identifier, type, creator_id, seq, timestamp, "
                     "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, "
                     "client_id, creator_name) VALUES (41, 4, 'alice', 12, -1, 11, 5, 255, 'bob', 9, 1, "
                     "x'11111111111111111111111111111107', 'Alice')",
                     "UPDATE events SET type = 4, creator_id = 'alice', seq = 12, timestamp = -1, "
                     "preceding_seq = 11, client_seq = 5, subtype = 255, member_id = 'bob', target_seq = 9, "
                     "stream_database_identifier = 1, client_id = x'11111111111111111111111111111107', "
                     "creator_name = 'Alice' WHERE database_identifier = 41"}));
    EXPECT_EQ(event->databaseIdentifier(), 41);
    EXPECT_EQ(store.rows("SELECT * FROM events"),
              Lines{"41|4|alice|12|-1|11|5|255|bob|9|1|X'11111111111111111111111111111107'|Alice"});
}

TEST(EventPersistence, EachPartIsInsertedAfterItsEventUnderItsPosition) {
    const StreamStore store;
    const auto first = makeTextPart("hi");
    first->setIndex(9);
    const auto second = std::make_shared<ZAVEventContent>();
    second->set_media_type("image/png");
    second->set_external_url("https://store.example/a");
    second->set_external_access_expiration(77);
    second->setExternalContentURLExpiration(ZAVDateFromSecondsSince1970(1700000000.25));
    second->set_size(5000000000);
    second->setTransferStatus(ZAVContentTransferReadyForDownload);
    second->setFileURL(ZAVURL::URLWithString("app/user/part-1", ZAVMessageRepositoryCacheBaseDirectoryURL()));
    second->setLastAccessed(ZAVDateFromSecondsSince1970(1.5));
    second->setIsPurged(true);
    const auto event = messageWith(7, Content{first, second});
    const Lines statements = statementsPersisting(store, {event});
    ASSERT_EQ(statements.size(), 4U);
    EXPECT_EQ(statements[2],
              "INSERT OR IGNORE INTO event_content_parts (event_content_part_id, event_database_identifier, "
              "type, value, access_expiration, url, size, transfer_status, file_path, last_accessed, purged) "
              "VALUES (0, 1, 'text/plain', x'6869', NULL, NULL, 2, 4, NULL, NULL, 0)");
    EXPECT_EQ(statements[3],
              "INSERT OR IGNORE INTO event_content_parts (event_content_part_id, event_database_identifier, "
              "type, value, access_expiration, url, size, transfer_status, file_path, last_accessed, purged) "
              "VALUES (1, 1, 'image/png', NULL, 1700000000.25, 'https://store.example/a', 5000000000, 2, "
              "'app/user/part-1', 1.5, 1)");
}

TEST(EventPersistence, MetadataAreStoredAfterTheEventAndBeforeItsParts) {
    const StreamStore store;
    const auto event = messageWith(7, Content{makeTextPart("hi")});
    event->set_transient_metadata(someMetadata);
    const Lines statements = statementsPersisting(store, {event});
    ASSERT_GT(statements.size(), 3U) << "the metadata take statements of their own";
    EXPECT_TRUE(statements[1].starts_with("INSERT OR IGNORE INTO events ")) << statements[1];
    for (std::size_t position = 2; position + 1 < statements.size(); ++position) {
        EXPECT_NE(statements[position].find("keyed_values_remote"), std::string::npos)
            << statements[position];
    }
    EXPECT_TRUE(statements.back().starts_with("INSERT OR IGNORE INTO event_content_parts "))
        << statements.back();
}

TEST(EventPersistence, ATransactionOfTheCallersOwnUndoesEverything) {
    const StreamStore store;
    const auto event = messageWith(7, Content{makeTextPart("hi")});
    event->set_transient_metadata(someMetadata);
    {
        auto transaction = ZAVTransaction::begin(store.database());
        ASSERT_TRUE(transaction);
        persist(store, {event});
        EXPECT_TRUE(store.database().inTransaction()) << "the caller's transaction was ended";
    }
    EXPECT_EQ(
        store.rows("SELECT (SELECT COUNT(*) FROM events) + (SELECT COUNT(*) FROM event_content_parts) + "
                   "(SELECT COUNT(*) FROM keyed_values_remote)"),
        Lines{"0"});
}

// The log and the result.

TEST(EventPersistence, AnEmptySetIsStoredWithoutAStatement) {
    const StreamStore store;
    const StatementTrace trace(store.database());
    const LogCapture log;
    ZAVError error = errorOfSomebodyElse();
    EXPECT_TRUE(store.repository().persistEvents({}, &error));
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    EXPECT_EQ(trace.statements(), Lines{});
    EXPECT_EQ(log.records(), std::vector{announcementOf("persisting 0 event(s)")});
}

TEST(EventPersistence, TheErrorLineShowsTheEventsAsTheyAreAfterTheFailure) {
    const StreamStore store;
    store.execute("DROP TABLE event_content_parts");
    const auto stored = makeMessage(7, 3);
    const auto failing = messageWith(8, Content{makeTextPart("hi")});
    const LogCapture log;
    EXPECT_FALSE(store.repository().persistEvents({stored, failing}));
    ASSERT_EQ(log.records().size(), 2U);
    EXPECT_EQ(
        log.records()[1],
        errorLine("-[ZAVEventRepository persistEvents:error:]", "failed to persist events:%@ with %@",
                  "failed to persist events:{(<ZAVEvent databaseIdentifier=1 streamDatabaseIdentifier=1 "
                  "stream_id=11111111-1111-1111-1111-111111111101 type=4 seq=3 "
                  "client_id=11111111-1111-1111-1111-111111111107>, <ZAVEvent databaseIdentifier=2 "
                  "streamDatabaseIdentifier=1 stream_id=11111111-1111-1111-1111-111111111101 type=4 "
                  "content=1 part(s) client_id=11111111-1111-1111-1111-111111111108>)} with Error "
                  "Domain=SQLite Code=1 \"no such table: event_content_parts\""));
}

// What is written back onto the records.

TEST(EventPersistence, AStoredEventKnowsItsRowAndItsStream) {
    const StreamStore store;
    store.execute("INSERT INTO events (database_identifier, type, client_id) VALUES (40, 2, x'00')");
    const auto event = makeMessage(7);
    persist(store, {event});
    EXPECT_EQ(event->databaseIdentifier(), 41) << "the row that the database chose";
    EXPECT_EQ(event->streamDatabaseIdentifier(), 1);
    EXPECT_EQ(event->stream_id(), ZAVDataFromUUID(uuidNumber(1)));
}

TEST(EventPersistence, TheStreamOfAnEventThatNamesItByItsRowIsCompleted) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_stream_id(std::nullopt);
    event->setStreamDatabaseIdentifier(1);
    persist(store, {event});
    EXPECT_EQ(event->stream_id(), ZAVDataFromUUID(uuidNumber(1)));
}

TEST(EventPersistence, AStreamThatTheServiceDoesNotKnowTakesTheIdentifierOffTheRecords) {
    const TestStore store;
    const auto event = makeMessage(7);
    event->setStreamDatabaseIdentifier(store.streams().createStreamWithoutUUID());
    const auto part = makeTextPart("hi");
    part->setStreamUUID(uuidNumber(9));
    event->set_content(Content{part});
    persist(store, {event});
    EXPECT_EQ(event->stream_id(), std::nullopt);
    EXPECT_EQ(part->streamUUID(), std::nullopt);
}

TEST(EventPersistence, TheStreamRowZeroIsARowLikeAnyOther) {
    const TestStore store;
    store.execute("INSERT INTO streams (database_identifier, stream_id) VALUES (0, x'AB')");
    const auto event = makeMessage(7);
    event->setStreamDatabaseIdentifier(0);
    persist(store, {event});
    EXPECT_EQ(event->stream_id(), ZAVData::fromText("\xAB"));
    EXPECT_EQ(store.rows("SELECT stream_database_identifier FROM events"), Lines{"0"});
}

TEST(EventPersistence, AnEventKeepsTheRowThatItBrought) {
    const StreamStore store;
    for (const ZAVDatabaseIdentifier row :
         {ZAVDatabaseIdentifier(77), ZAVDatabaseIdentifier(0), ZAVDatabaseIdentifier(-5)}) {
        const auto event = makeMessage(7);
        event->setDatabaseIdentifier(row);
        persist(store, {event});
        EXPECT_EQ(event->databaseIdentifier(), row);
        EXPECT_EQ(
            store.rows("SELECT COUNT(*) FROM events WHERE database_identifier = " + std::to_string(row)),
            Lines{"1"});
    }
}

TEST(EventPersistence, EachPartReceivesItsBackReferences) {
    const StreamStore store;
    const auto first = makeTextPart("one");
    const auto second = makeTextPart("two");
    const auto event = messageWith(7, Content{first, second}, 12);
    persist(store, {event});
    for (const auto& part : {first, second}) {
        EXPECT_EQ(part->eventDatabaseIdentifier(), event->databaseIdentifier());
        EXPECT_EQ(part->eventClientID(), uuidNumber(7));
        EXPECT_EQ(part->streamUUID(), uuidNumber(1));
        EXPECT_EQ(part->eventSeq(), ZAVSequenceNotSet) << "storing sets no sequence on a part";
    }
}

TEST(EventPersistence, AClientIdentifierThatIsNoUUIDIsStoredAndLeavesThePartWithoutOne) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_client_id(ZAVData::fromText("abc"));
    const auto part = makeTextPart("hi");
    event->set_content(Content{part});
    persist(store, {event});
    EXPECT_EQ(part->eventClientID(), std::nullopt);
    EXPECT_EQ(store.rows("SELECT client_id FROM events"), Lines{"X'616263'"});
}

TEST(EventPersistence, EventsAreStoredInTheOrderOfTheSet) {
    const StreamStore store;
    ZAVSet<ZAVTEvent> events;
    for (const int number : {9, 3, 7, 1}) {
        events.insert(makeMessage(number));
    }
    persist(store, events);
    EXPECT_EQ(store.rows("SELECT substr(hex(client_id), -2) FROM events ORDER BY database_identifier"),
              (Lines{"09", "03", "07", "01"}));
}

TEST(EventPersistence, AnObjectOfADerivedClassIsAnEventToo) {
    class Draft final : public ZAVEvent {
    public:
        [[nodiscard]] std::string_view className() const noexcept override { return "Draft"; }
    };
    const StreamStore store;
    const auto draft = std::make_shared<Draft>();
    draft->set_type(EventType_MESSAGE);
    draft->set_client_id(ZAVDataFromUUID(uuidNumber(7)));
    draft->set_stream_id(ZAVDataFromUUID(uuidNumber(1)));
    persist(store, {draft});
    EXPECT_EQ(draft->databaseIdentifier(), 1);
}

// Sequences.

/// The `seq` and `target_seq` that are stored for an event, first when it is inserted and then when the
/// same record is stored again.
Lines sequencesStoredTwiceFor(const std::shared_ptr<ZAVEvent>& event) {
    const StreamStore store;
    Lines stored;
    for (int round = 0; round < 2; ++round) {
        persist(store, {event});
        stored.push_back(store.rows("SELECT seq, target_seq FROM events").at(0));
    }
    EXPECT_EQ(store.repository().countOfEvents(), 1U);
    return stored;
}

TEST(EventPersistence, ASequenceIsStoredOnInsertAndOnUpdate) {
    EXPECT_EQ(sequencesStoredTwiceFor(makeMessage(7, 12)), (Lines{"12|NULL", "12|NULL"}));
    EXPECT_EQ(sequencesStoredTwiceFor(makeMessage(7, 0)), (Lines{"0|NULL", "0|NULL"}));
    EXPECT_EQ(sequencesStoredTwiceFor(makeMessage(7, std::numeric_limits<ZAVSequence>::min())),
              (Lines{"-2147483648|NULL", "-2147483648|NULL"}));
}

TEST(EventPersistence, ASequenceThatIsNotSetIsStoredAsNullWhateverItsValue) {
    EXPECT_EQ(sequencesStoredTwiceFor(makeMessage(7)), (Lines{"NULL|NULL", "NULL|NULL"}));
    const auto unset = makeMessage(7, 12);
    unset->unset_seq();
    EXPECT_EQ(sequencesStoredTwiceFor(unset), (Lines{"NULL|NULL", "NULL|NULL"}));
}

TEST(EventPersistence, ASequenceSetToTheMarkerIsNullOnInsertAndThatNumberOnUpdate) {
    EXPECT_EQ(sequencesStoredTwiceFor(makeMessage(7, 2147483647)), (Lines{"NULL|NULL", "2147483647|NULL"}));
}

TEST(EventPersistence, ATargetSequenceIsStoredWheneverItIsSet) {
    for (const ZAVSequence target : {0, 9, -1, 2147483647}) {
        const auto event = makeMessage(7);
        event->set_target_seq(target);
        const std::string expected = "NULL|" + std::to_string(target);
        EXPECT_EQ(sequencesStoredTwiceFor(event), (Lines{expected, expected}));
    }
}

TEST(EventPersistence, ATargetSequenceThatIsNotSetIsStoredAsNullWhateverItsValue) {
    const auto event = makeMessage(7);
    event->set_target_seq(9);
    event->unset_target_seq();
    EXPECT_EQ(sequencesStoredTwiceFor(event), (Lines{"NULL|NULL", "NULL|NULL"}));
}

TEST(EventPersistence, AnUpdateTakesAwayWhatTheRecordNoLongerHas) {
    const StreamStore store;
    const auto event = makeMessage(7, 12);
    event->set_target_seq(9);
    event->set_creator_id("alice");
    persist(store, {event});
    event->unset_seq();
    event->unset_target_seq();
    event->set_creator_id(std::nullopt);
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT seq, target_seq, creator_id FROM events"), Lines{"NULL|NULL|NULL"});
}

TEST(EventPersistence, TheOtherFlagsOfARecordDecideNothing) {
    const StreamStore store;
    const auto event = messageWith(7, Content{makeTextPart("hi")});
    event->set_creator_id("alice");
    event->set_server_timestamp(99);
    event->set_subtype(3);
    event->set_transient_metadata(someMetadata);
    event->unset_type();
    event->unset_client_id();
    event->unset_creator_id();
    event->unset_server_timestamp();
    event->unset_subtype();
    event->unset_content();
    event->unset_transient_metadata();
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT type, creator_id, timestamp, subtype FROM events"), Lines{"4|alice|99|3"});
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM event_content_parts"), Lines{"1"});
    EXPECT_EQ(store.rows("SELECT value FROM keyed_values_remote"), Lines{"value"});
}

// Collisions.

TEST(EventPersistence, TwoEventsOfOneSetAtOneSequenceShareARow) {
    const StreamStore store;
    const auto first = makeMessage(7, 12);
    const auto second = makeMessage(8, 12);
    persist(store, {first, second});
    EXPECT_EQ(first->databaseIdentifier(), second->databaseIdentifier());
    EXPECT_EQ(store.rows("SELECT client_id FROM events"), Lines{"X'11111111111111111111111111111108'"});
}

TEST(EventPersistence, EventsWithoutASequenceNeverCollide) {
    const StreamStore store;
    persist(store, {makeMessage(7), makeMessage(7), makeMessage(7, 2147483647)});
    EXPECT_EQ(store.repository().countOfEvents(), 3U);
}

TEST(EventPersistence, OneSequenceInTwoStreamsIsNoCollision) {
    const StreamStore store;
    store.addStream(uuidNumber(2));
    const auto other = makeEvent(EventType_MESSAGE, uuidNumber(2), 8);
    other->set_seq(12);
    persist(store, {makeMessage(7, 12), other});
    EXPECT_EQ(store.rows("SELECT stream_database_identifier FROM events ORDER BY 1"), (Lines{"1", "2"}));
}

TEST(EventPersistence, AnEventWithAnUnknownRowThatCollidesBySequenceChangesNothingAndSucceeds) {
    const StreamStore store;
    persist(store, {makeMessage(7, 12)});
    const Lines before = store.rows("SELECT * FROM events");
    const auto event = messageWith(8, Content{makeTextPart("hi")}, 12);
    event->setDatabaseIdentifier(99);
    persist(store, {event});
    EXPECT_EQ(event->databaseIdentifier(), 99);
    EXPECT_EQ(store.rows("SELECT * FROM events"), before);
    EXPECT_EQ(store.rows("SELECT event_database_identifier FROM event_content_parts"), Lines{"99"})
        << "its parts are stored under the row that it carries";
}

TEST(EventPersistence, TheLookupTakesTheValueOfASequenceThatIsNotSet) {
    const StreamStore store;
    persist(store, {makeMessage(7, 5)});
    store.execute("CREATE UNIQUE INDEX one_client_id ON events (client_id)");
    const auto event = makeMessage(7, 5);
    event->unset_seq();
    const Lines statements = statementsPersisting(store, {event});
    ASSERT_EQ(statements.size(), 4U);
    EXPECT_EQ(statements[2], "SELECT * FROM events WHERE stream_database_identifier = 1 AND seq = 5 LIMIT 1");
    EXPECT_EQ(event->databaseIdentifier(), 1);
    EXPECT_EQ(store.rows("SELECT seq FROM events"), Lines{"NULL"});
}

TEST(EventPersistence, StoringAnEventAgainMovesItToTheStreamThatItNamesNow) {
    const StreamStore store;
    store.addStream(uuidNumber(2));
    const auto event = makeMessage(7, 12);
    persist(store, {event});
    event->setStreamDatabaseIdentifier(2);
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT database_identifier, stream_database_identifier FROM events"), Lines{"1|2"});
    EXPECT_EQ(event->streamUUID(), uuidNumber(2));
}

// Texts, bytes and numbers.

TEST(EventPersistence, TextKeepsItsNulBytesAndEmptyTextIsNotAbsent) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_creator_id(std::string("a\0b", 3));
    event->set_member_id("");
    event->set_creator_name("J\xC3\xBCrgen '; DROP TABLE events; --");
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT typeof(creator_id), hex(CAST(creator_id AS BLOB)), typeof(member_id), "
                         "hex(member_id), creator_name FROM events"),
              Lines{"text|610062|text||J\xC3\xBCrgen '; DROP TABLE events; --"});
    const auto read = store.repository().eventForDatabaseIdentifier(event->databaseIdentifier());
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->creator_id(), std::string("a\0b", 3));
    EXPECT_EQ(read->member_id(), "");
}

TEST(EventPersistence, NumbersAreStoredAtBothEndsOfTheirRanges) {
    const StreamStore store;
    const auto lowest = makeMessage(7);
    lowest->set_server_timestamp(std::numeric_limits<std::int64_t>::min());
    lowest->set_preceding_seq(std::numeric_limits<ZAVSequence>::min());
    lowest->set_client_seq(std::numeric_limits<ZAVSequence>::min());
    const auto highest = makeMessage(8);
    highest->set_server_timestamp(std::numeric_limits<std::int64_t>::max());
    highest->set_preceding_seq(std::numeric_limits<ZAVSequence>::max());
    highest->set_client_seq(std::numeric_limits<ZAVSequence>::max());
    highest->set_subtype(255);
    persist(store, {lowest, highest});
    EXPECT_EQ(
        store.rows("SELECT timestamp, preceding_seq, client_seq, subtype FROM events ORDER BY timestamp"),
        (Lines{"-9223372036854775808|-2147483648|-2147483648|0",
               "9223372036854775807|2147483647|2147483647|255"}));
}

TEST(EventPersistence, AnEmptyClientIdentifierIsNotAbsent) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_client_id(ZAVData());
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT typeof(client_id), length(client_id) FROM events"), Lines{"blob|0"});
}

// Content parts.

/// The stored row of the only part of a new message, by these columns.
std::string storedPart(const std::shared_ptr<ZAVEventContent>& part, const std::string& columns) {
    const StreamStore store;
    const auto event = messageWith(7, Content{part});
    persist(store, {event});
    const Lines rows = store.rows("SELECT " + columns + " FROM event_content_parts");
    EXPECT_EQ(rows.size(), 1U);
    return rows.empty() ? "" : rows[0];
}

TEST(EventPersistence, APartThatHasNothingIsStoredAsNulls) {
    EXPECT_EQ(storedPart(std::make_shared<ZAVEventContent>(),
                         "event_content_part_id, event_database_identifier, type, value, access_expiration, "
                         "url, size, transfer_status, file_path, last_accessed, purged"),
              "0|1|NULL|NULL|NULL|NULL|0|0|NULL|NULL|0");
}

TEST(EventPersistence, AnEmptyBodyAndEmptyTextsOfAPartAreNotAbsent) {
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_body(ZAVData());
    part->set_media_type("");
    part->set_external_url("");
    part->setFileURL(ZAVURL::URLWithString(""));
    EXPECT_EQ(storedPart(part,
                         "value, typeof(type), length(type), typeof(url), length(url), "
                         "typeof(file_path), length(file_path)"),
              "X''|text|0|text|0|text|0");
}

TEST(EventPersistence, TheBytesAndTheMediaTypeOfAPartKeepTheirNulBytes) {
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_body(ZAVData("\0\xFF\0", 3));
    part->set_media_type(std::string("a\0b", 3));
    EXPECT_EQ(storedPart(part, "value, hex(CAST(type AS BLOB))"), "X'00FF00'|610062");
}

std::string storedDates(double expiration, double lastAccessed) {
    const auto part = makeTextPart("hi");
    part->setExternalContentURLExpiration(ZAVDateFromSecondsSince1970(expiration));
    part->setLastAccessed(ZAVDateFromSecondsSince1970(lastAccessed));
    return storedPart(part,
                      "typeof(access_expiration), access_expiration, typeof(last_accessed), last_accessed");
}

TEST(EventPersistence, DatesOfAPartKeepTheirFractions) {
    EXPECT_EQ(storedDates(1700000000.125, -0.5), "real|1700000000.125|real|-0.5");
}

TEST(EventPersistence, AWholeSecondIsStoredAsADateToo) {
    EXPECT_EQ(storedDates(1700000000, 0), "real|1700000000.0|real|0.0");
}

TEST(EventPersistence, TheExpirationOfTheWireIsNotStored) {
    const auto part = makeTextPart("hi");
    part->set_external_access_expiration(1700000000);
    EXPECT_EQ(storedPart(part, "access_expiration"), "NULL");
}

TEST(EventPersistence, APartKeepsWhateverTransferStatusItHas) {
    for (const ZAVContentTransferStatus status :
         {ZAVContentTransferAwaitingUpload, ZAVContentTransferUploading, ZAVContentTransferReadyForDownload,
          ZAVContentTransferDownloading, ZAVContentTransferComplete}) {
        const auto part = makeTextPart("hi");
        part->setTransferStatus(status);
        EXPECT_EQ(storedPart(part, "transfer_status"), std::to_string(status));
    }
}

TEST(EventPersistence, ATransferStatusWithoutANameIsStoredAsItWasRead) {
    for (const char* const status : {"-1", "-2147483648", "2147483647", "5"}) {
        const StreamStore store;
        const auto event = makeMessage(1);
        event->set_content(Content{makeTextPart("hi")});
        persist(store, {event});
        store.execute(std::string("UPDATE event_content_parts SET transfer_status = ") + status);
        const auto read = store.repository().eventForDatabaseIdentifier(event->databaseIdentifier());
        ASSERT_NE(read, nullptr);
        read->setDatabaseIdentifier(99);
        read->unset_seq();
        persist(store, {read});
        EXPECT_EQ(store.rows("SELECT transfer_status FROM event_content_parts WHERE "
                             "event_database_identifier = 99"),
                  Lines{status});
    }
}

TEST(EventPersistence, AnEventTypeWithoutANameIsStoredAsItWasRead) {
    for (const char* const type : {"-1", "-2147483648", "2147483647", "12"}) {
        const StreamStore store;
        persist(store, {makeMessage(1)});
        store.execute(std::string("UPDATE events SET type = ") + type);
        const auto read = store.repository().eventForDatabaseIdentifier(1);
        ASSERT_NE(read, nullptr);
        read->setDatabaseIdentifier(99);
        read->unset_seq();
        persist(store, {read});
        EXPECT_EQ(store.rows("SELECT type FROM events WHERE database_identifier = 99"), Lines{type});
    }
}

TEST(EventPersistence, AFileBelowADirectoryIsStoredByItsRelativePath) {
    const auto directory = ZAVURL::fileURLWithDirectoryPath("/var/cache/events");
    for (const char* path : {"app/user/part-0", "a%20b/part-1", "../elsewhere", "part-2"}) {
        const auto part = makeTextPart("hi");
        part->setFileURL(ZAVURL::URLWithString(path, directory));
        EXPECT_EQ(storedPart(part, "file_path"), path);
    }
}

TEST(EventPersistence, AnAbsoluteFileURLIsStoredByItsWholePath) {
    const auto part = makeTextPart("hi");
    part->setFileURL(ZAVURL::URLWithString("file:///var/cache/part%20one"));
    EXPECT_EQ(storedPart(part, "file_path"), "/var/cache/part%20one");
    part->setFileURL(
        ZAVURL::URLWithString("file:///var/cache/part-1", ZAVURL::fileURLWithDirectoryPath("/var/cache")));
    EXPECT_EQ(storedPart(part, "file_path"), "/var/cache/part-1");
}

TEST(EventPersistence, SizesOfPartsAreSignedSixtyFourBitNumbers) {
    for (const std::int64_t size : {std::numeric_limits<std::int64_t>::max(), std::int64_t(-1)}) {
        const auto part = std::make_shared<ZAVEventContent>();
        part->set_size(size);
        EXPECT_EQ(storedPart(part, "size"), std::to_string(size));
    }
}

TEST(EventPersistence, PartsAreNumberedByTheirPositionAndNotByTheirIndex) {
    const StreamStore store;
    const auto event = makeMessage(7);
    Content content;
    for (const int index : {5, 5, -1}) {
        const auto part = makeTextPart(std::to_string(content.size()));
        part->setIndex(index);
        content.push_back(part);
    }
    event->set_content(content);
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT event_content_part_id, CAST(value AS TEXT) FROM event_content_parts "
                         "ORDER BY database_identifier"),
              (Lines{"0|0", "1|1", "2|2"}));
}

TEST(EventPersistence, StoringAnEventAgainKeepsItsPartsAsTheyWereAndAddsNewOnes) {
    const StreamStore store;
    const auto part = makeTextPart("first");
    const auto event = messageWith(7, Content{part});
    persist(store, {event});
    part->set_body(ZAVData::fromText("changed"));
    part->setTransferStatus(ZAVContentTransferUploading);
    event->set_content(Content{part, makeTextPart("second")});
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT event_content_part_id, CAST(value AS TEXT), transfer_status "
                         "FROM event_content_parts ORDER BY 1"),
              (Lines{"0|first|4", "1|second|4"}));
}

TEST(EventPersistence, StoringAnEventAgainWithFewerPartsRemovesNone) {
    const StreamStore store;
    const auto event = messageWith(7, Content{makeTextPart("one"), makeTextPart("two")});
    persist(store, {event});
    for (const std::optional<Content>& content : {std::optional<Content>(), std::optional(Content{})}) {
        event->set_content(content);
        persist(store, {event});
        EXPECT_EQ(store.rows("SELECT COUNT(*) FROM event_content_parts"), Lines{"2"});
    }
}

TEST(EventPersistence, AnEventWithAnEmptyListOfPartsIsStored) {
    const StreamStore store;
    const auto event = messageWith(7, Content{});
    EXPECT_EQ(statementsPersisting(store, {event}).size(), 2U);
    EXPECT_EQ(event->databaseIdentifier(), 1);
}

TEST(EventPersistence, OneRecordMayStandAtTwoPositions) {
    const StreamStore store;
    const auto part = makeTextPart("hi");
    const auto event = messageWith(7, Content{part, part});
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT event_content_part_id FROM event_content_parts ORDER BY 1"),
              (Lines{"0", "1"}));
}

// Transient metadata.

/// The stored metadata of a new message that carries these, by key.
Lines storedMetadata(const ZAVDictionary& metadata) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_transient_metadata(metadata);
    persist(store, {event});
    EXPECT_EQ(event->transient_metadata(), metadata) << "the record keeps its values as they are";
    return store.rows(
        "SELECT key, typeof(value), hex(CAST(value AS BLOB)) FROM keyed_values_remote ORDER BY key");
}

TEST(EventPersistence, MetadataAreKeptBesideTheEventsRowWithoutATimestamp) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->setDatabaseIdentifier(41);
    event->set_transient_metadata(someMetadata);
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT object_database_identifier, object_type, key_type, key, value, timestamp "
                         "FROM keyed_values_remote"),
              Lines{"41|event|0|key|value|NULL"});
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM keyed_values_local"), Lines{"0"});
}

TEST(EventPersistence, MetadataAreKeptUnderTheRowThatTheEventAdopted) {
    const StreamStore store;
    store.execute(
        "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id) "
        "VALUES (41, 2, 12, 1, x'00')");
    const auto event = messageWith(7, Content{makeTextPart("hi")}, 12);
    event->set_transient_metadata(someMetadata);
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT object_database_identifier FROM keyed_values_remote"), Lines{"41"});
    EXPECT_EQ(store.rows("SELECT event_database_identifier FROM event_content_parts"), Lines{"41"});
}

TEST(EventPersistence, MetadataThatAreBytesAreStoredAsTheirText) {
    EXPECT_EQ(storedMetadata({{"bytes", ZAVData::fromText("gr\xC3\xBCn")}, {"text", std::string("red")}}),
              (Lines{"bytes|text|6772C3BC6E", "text|text|726564"}));
}

TEST(EventPersistence, MetadataKeepEmptyValuesAndNulBytes) {
    EXPECT_EQ(storedMetadata(
                  {{"empty bytes", ZAVData()}, {"empty text", std::string()}, {"nul", ZAVData("a\0b", 3)}}),
              (Lines{"empty bytes|text|", "empty text|text|", "nul|text|610062"}));
}

TEST(EventPersistence, MetadataWhoseBytesAreNoTextAreLeftOut) {
    EXPECT_EQ(storedMetadata({{"good", ZAVData::fromText("yes")},
                              {"lone continuation", ZAVData::fromText("\x80")},
                              {"overlong", ZAVData::fromText("\xC0\x80")},
                              {"surrogate", ZAVData::fromText("\xED\xA0\x80")},
                              {"too high", ZAVData::fromText("\xF4\x90\x80\x80")},
                              {"truncated", ZAVData::fromText("a\xE2\x82")},
                              {"two bytes", ZAVData::fromText("\xFF\xFE")}}),
              Lines{"good|text|796573"});
}

TEST(EventPersistence, AnEventWithoutMetadataLeavesWhatIsStored) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_transient_metadata(someMetadata);
    persist(store, {event});
    event->set_transient_metadata(std::nullopt);
    for (const std::string& statement : statementsPersisting(store, {event})) {
        EXPECT_EQ(statement.find("keyed_values"), std::string::npos) << statement;
    }
    EXPECT_EQ(store.rows("SELECT key FROM keyed_values_remote"), Lines{"key"});
}

TEST(EventPersistence, EmptyMetadataReplaceWhatIsStored) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_transient_metadata(someMetadata);
    persist(store, {event});
    event->set_transient_metadata(ZAVDictionary());
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT key FROM keyed_values_remote"), Lines{});
}

TEST(EventPersistence, EmptyMetadataAreHandedToTheirStoreAsWell) {
    const StreamStore store;
    store.execute("DROP TABLE keyed_values_remote");
    const auto event = makeMessage(7);
    event->set_transient_metadata(ZAVDictionary());
    expectFailure(store, {event}, missingTable("keyed_values_remote"));
    EXPECT_EQ(store.rows("SELECT database_identifier FROM events"), Lines{"1"}) << "the event's row stays";
}

// Nothing else is touched.

TEST(EventPersistence, NoChangeIsRecordedAndNoStreamIsTouched) {
    const StreamStore store;
    store.execute("UPDATE streams SET seq = 3");
    const auto event = messageWith(7, Content{makeTextPart("hi")}, 12);
    persist(store, {event});
    persist(store, {event});
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM synced_changes"), Lines{"0"});
    EXPECT_EQ(store.rows("SELECT * FROM streams"), Lines{"1|X'11111111111111111111111111111101'|3"});
}

TEST(EventPersistence, ALargeSetIsStoredWholeAndAgain) {
    const StreamStore store;
    constexpr int count = 3000;
    ZAVSet<ZAVTEvent> events;
    for (int number = 0; number < count; ++number) {
        const auto event = makeMessage(number % 256, number);
        event->set_content(Content{makeTextPart("one"), makeTextPart("two")});
        events.insert(event);
    }
    auto transaction = ZAVTransaction::begin(store.database());
    ASSERT_TRUE(transaction);
    persist(store, events);
    persist(store, events);
    ASSERT_TRUE(transaction->commit());
    EXPECT_EQ(store.rows("SELECT COUNT(*), COUNT(DISTINCT seq) FROM events"), Lines{"3000|3000"});
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM event_content_parts"), Lines{"6000"});
}

// Violated preconditions.

TEST(EventPersistence, AnElementThatIsNoEventIsRefused) {
    class Receipt final : public ZAVTEvent {
    public:
        [[nodiscard]] std::string_view className() const noexcept override { return "Receipt"; }
    };
    const StreamStore store;
    EXPECT_EQ(refusalOf(store, {std::make_shared<ZAVTEvent>()}),
              "Failed to persist an event. Expected 'ZAVEvent' but received an object of type 'ZAVTEvent'");
    EXPECT_EQ(refusalOf(store, {std::make_shared<Receipt>()}),
              "Failed to persist an event. Expected 'ZAVEvent' but received an object of type 'Receipt'");
}

TEST(EventPersistence, AnEventOfTypeZeroIsRefused) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_type(ZAVTEventType(0));
    EXPECT_EQ(refusalOf(store, {event}),
              "Cannot persist event: invalid type of 0 encountered. (<ZAVEvent databaseIdentifier=not set "
              "streamDatabaseIdentifier=not set stream_id=11111111-1111-1111-1111-111111111101 type=0 "
              "client_id=11111111-1111-1111-1111-111111111107>)");
}

TEST(EventPersistence, AnEventWithoutAStreamIsRefused) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_stream_id(std::nullopt);
    EXPECT_EQ(refusalOf(store, {event}),
              "Failed to persist an event. Event should have 'stream_id' OR 'streamDatabaseIdentifier' set!");
}

TEST(EventPersistence, AnEventWithoutAClientIdentifierIsRefused) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->set_client_id(std::nullopt);
    EXPECT_EQ(refusalOf(store, {event}),
              "Failed to persist an event with an undefined client_id; event = <ZAVEvent "
              "databaseIdentifier=not set streamDatabaseIdentifier=not set "
              "stream_id=11111111-1111-1111-1111-111111111101 type=4>");
}

TEST(EventPersistence, AnEventOfAnUnknownStreamIsRefused) {
    const StreamStore store;
    EXPECT_EQ(
        refusalOf(store, {makeEvent(EventType_MESSAGE, uuidNumber(2), 7)}),
        "Failed to persist an event. stream_id='11111111-1111-1111-1111-111111111102' doesn't exist yet "
        "in the database. Should create a new stream with that identifier before persisting the event.");
}

TEST(EventPersistence, AnEventWhoseStreamIdentifierIsNoUUIDIsRefused) {
    const StreamStore store;
    const auto event = makeMessage(7);
    for (const char* bytes : {"abc", ""}) {
        event->set_stream_id(ZAVData::fromText(bytes));
        EXPECT_EQ(refusalOf(store, {event}),
                  "Failed to persist an event. stream_id='(null)' doesn't exist yet in the database. Should "
                  "create a new stream with that identifier before persisting the event.");
    }
}

TEST(EventPersistence, AnEventOfAnUnknownStreamRowIsRefusedThoughItsIdentifierIsKnown) {
    const StreamStore store;
    const auto event = makeMessage(7);
    event->setStreamDatabaseIdentifier(-9223372036854775807);
    EXPECT_EQ(
        refusalOf(store, {event}),
        "Failed to persist the event. stream_database_identifier='-9223372036854775807' doesn't exist in "
        "the database. The stream might have been deleted before the event could be persisted.");
}

TEST(EventPersistence, AnEventThatCollidesWithNoEventAtItsSequenceIsRefused) {
    const StreamStore store;
    persist(store, {makeMessage(7, 5)});
    store.execute("CREATE UNIQUE INDEX one_client_id ON events (client_id)");
    const auto event = makeMessage(7, 6);
    EXPECT_EQ(refusalOf(store, {event}), "Failed to persist an event with an existing stream_id and seq.");
    EXPECT_EQ(event->databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(event->streamDatabaseIdentifier(), 1) << "what was written on the record stays";
}

TEST(EventPersistence, APartThatIsNoEventContentIsRefusedBeforeItsEventIsStored) {
    const StreamStore store;
    const auto event = messageWith(7, Content{makeTextPart("good"), std::make_shared<ZAVTContent>()});
    EXPECT_EQ(refusalOf(store, {event}),
              "Failed to persist an event's content. Expected 'ZAVEventContent' but received an object of "
              "type 'ZAVTContent'");
    event->set_content(Content{nullptr});
    EXPECT_EQ(refusalOf(store, {event}),
              "Failed to persist an event's content. Expected 'ZAVEventContent' but received an object of "
              "type '(null)'");
    EXPECT_EQ(store.repository().countOfEvents(), 0U);
}

TEST(EventPersistence, TheFirstViolatedPreconditionIsTheOneThatIsReported) {
    const StreamStore store;
    const auto event = std::make_shared<ZAVEvent>();
    EXPECT_EQ(refusalOf(store, {event}),
              "Cannot persist event: invalid type of 0 encountered. (<ZAVEvent databaseIdentifier=not set "
              "streamDatabaseIdentifier=not set>)");
    event->set_type(EventType_MESSAGE);
    EXPECT_EQ(refusalOf(store, {event}),
              "Failed to persist an event. Event should have 'stream_id' OR 'streamDatabaseIdentifier' set!");
    event->setStreamDatabaseIdentifier(99);
    EXPECT_EQ(refusalOf(store, {event}),
              "Failed to persist an event with an undefined client_id; event = <ZAVEvent "
              "databaseIdentifier=not set streamDatabaseIdentifier=99 type=4>");
    event->set_client_id(ZAVDataFromUUID(uuidNumber(7)));
    EXPECT_EQ(
        refusalOf(store, {event}),
        "Failed to persist the event. stream_database_identifier='99' doesn't exist in the database. The "
        "stream might have been deleted before the event could be persisted.");
}

TEST(EventPersistence, ARefusedEventRunsNoStatement) {
    const StreamStore store;
    const StatementTrace trace(store.database());
    EXPECT_THROW(store.repository().persistEvents({std::make_shared<ZAVEvent>()}),
                 NSInternalInconsistencyException);
    EXPECT_EQ(trace.statements(), Lines{});
}

TEST(EventPersistence, EventsBeforeARefusedOneStayStoredAndThoseAfterItAreUntouched) {
    const StreamStore store;
    const auto before = messageWith(7, Content{makeTextPart("hi")});
    const auto after = makeMessage(8);
    EXPECT_EQ(refusalOf(store, {before, std::make_shared<ZAVTEvent>(), after}),
              "Failed to persist an event. Expected 'ZAVEvent' but received an object of type 'ZAVTEvent'");
    EXPECT_EQ(before->databaseIdentifier(), 1);
    EXPECT_EQ(store.rows("SELECT client_id FROM events"), Lines{"X'11111111111111111111111111111107'"});
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM event_content_parts"), Lines{"1"});
    EXPECT_EQ(after->databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(after->streamDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
}

// Failures of the database, statement by statement.

TEST(EventPersistence, AStreamLookupThatCannotBePreparedFails) {
    const StreamStore store;
    store.execute("DROP TABLE streams");
    const auto byIdentifier = makeMessage(7);
    expectFailure(store, {byIdentifier}, missingTable("streams"));
    EXPECT_EQ(byIdentifier->streamDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    const auto byRow = makeMessage(8);
    byRow->setStreamDatabaseIdentifier(1);
    expectFailure(store, {byRow}, missingTable("streams"));
    EXPECT_EQ(store.repository().countOfEvents(), 0U);
}

TEST(EventPersistence, AStepOfTheStreamLookupThatFailsIsAnErrorAndNotAMissingStream) {
    const StreamStore store;
    const StatementInterruption interruption(store.database(), "SELECT * FROM streams");
    expectFailure(store, {makeMessage(7)}, interruptionError());
    const auto byRow = makeMessage(8);
    byRow->setStreamDatabaseIdentifier(99);
    expectFailure(store, {byRow}, interruptionError());
}

TEST(EventPersistence, AnInsertThatFailsLeavesTheEventWithoutARow) {
    const StreamStore store;
    refuse(store, "INSERT ON events");
    const auto event = messageWith(7, Content{makeTextPart("hi")});
    event->set_transient_metadata(someMetadata);
    expectFailure(store, {event}, refusal());
    EXPECT_EQ(event->databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(event->streamDatabaseIdentifier(), 1) << "the stream had been resolved";
    EXPECT_EQ(event->contentParts()[0]->eventDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(store.rows("SELECT (SELECT COUNT(*) FROM keyed_values_remote) + "
                         "(SELECT COUNT(*) FROM event_content_parts)"),
              Lines{"0"});
}

TEST(EventPersistence, AnInsertThatMeetsALockFails) {
    const StreamStore store;
    sqlite3_busy_timeout(store.database().sqliteHandle(), 0);
    const auto event = makeMessage(7);
    {
        const auto other = store.secondConnection();
        ASSERT_TRUE(other->executeUpdate("BEGIN IMMEDIATE"));
        ZAVError error;
        EXPECT_FALSE(store.repository().persistEvents({event}, &error));
        EXPECT_EQ(error, ZAVError("SQLite", SQLITE_BUSY, "database is locked")) << error.description();
        EXPECT_EQ(store.database().openResultSets(), 0U);
        ASSERT_TRUE(other->executeUpdate("ROLLBACK"));
    }
    persist(store, {event});
    EXPECT_EQ(event->databaseIdentifier(), 1) << "the same record can be stored once the lock is gone";
}

TEST(EventPersistence, TheLookupOfACollidingEventThatFailsIsAnErrorAndNoException) {
    const StreamStore store;
    persist(store, {makeMessage(7, 12)});
    const auto event = makeMessage(8, 12);
    const StatementInterruption interruption(store.database(), "SELECT * FROM events");
    expectFailure(store, {event}, interruptionError());
    EXPECT_EQ(event->databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(store.rows("SELECT client_id FROM events"), Lines{"X'11111111111111111111111111111107'"});
}

TEST(EventPersistence, TheLookupOfACollidingEventThatCannotBePreparedFails) {
    const StreamStore store;
    persist(store, {makeMessage(7, 12)});
    // Of the statements on the way only the lookup reads the creator's name.
    sqlite3_set_authorizer(
        store.database().sqliteHandle(),
        [](void*, int action, const char* table, const char* column, const char*, const char*) {
            const bool denied = action == SQLITE_READ && std::string(table) == "events" &&
                                std::string(column) == "creator_name";
            return denied ? SQLITE_DENY : SQLITE_OK;
        },
        nullptr);
    expectFailure(store, {makeMessage(8, 12)},
                  ZAVError("SQLite", SQLITE_AUTH, "access to events.creator_name is prohibited"));
    sqlite3_set_authorizer(store.database().sqliteHandle(), nullptr, nullptr);
    EXPECT_EQ(store.rows("SELECT client_id FROM events"), Lines{"X'11111111111111111111111111111107'"});
}

TEST(EventPersistence, AnUpdateThatFailsKeepsTheStoredRowAndTheAdoptedIdentifier) {
    const StreamStore store;
    persist(store, {makeMessage(7, 12)});
    refuse(store, "UPDATE ON events");
    const auto event = messageWith(8, Content{makeTextPart("hi")}, 12);
    expectFailure(store, {event}, refusal());
    EXPECT_EQ(event->databaseIdentifier(), 1);
    EXPECT_EQ(store.rows("SELECT client_id FROM events"), Lines{"X'11111111111111111111111111111107'"});
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM event_content_parts"), Lines{"0"});
}

TEST(EventPersistence, AnUpdateThatWouldTakeASequenceTwiceFails) {
    const StreamStore store;
    const auto first = makeMessage(7, 12);
    const auto second = makeMessage(8, 13);
    persist(store, {first, second});
    second->set_seq(12);
    expectFailure(store, {second},
                  ZAVError("SQLite", SQLITE_CONSTRAINT_UNIQUE,
                           "UNIQUE constraint failed: events.stream_database_identifier, events.seq"));
    EXPECT_EQ(store.rows("SELECT seq FROM events ORDER BY 1"), (Lines{"12", "13"}));
}

TEST(EventPersistence, MetadataThatCannotBeStoredFailTheEventAndItsPartsAreNotWritten) {
    const StreamStore store;
    refuse(store, "INSERT ON keyed_values_remote WHEN NEW.key = 'b'");
    const auto event = messageWith(7, Content{makeTextPart("hi")});
    event->set_transient_metadata(
        ZAVDictionary{{"a", std::string("1")}, {"b", std::string("2")}, {"c", std::string("3")}});
    expectFailure(store, {event}, refusal());
    EXPECT_EQ(event->databaseIdentifier(), 1) << "the event's row had been written";
    EXPECT_EQ(store.repository().countOfEvents(), 1U);
    EXPECT_EQ(store.rows("SELECT key FROM keyed_values_remote"), Lines{"a"})
        << "what was written before stays";
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM event_content_parts"), Lines{"0"});
    EXPECT_EQ(event->contentParts()[0]->eventDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
}

TEST(EventPersistence, APartThatFailsStopsItsEventAndKeepsThePartsBeforeIt) {
    const StreamStore store;
    refuse(store, "INSERT ON event_content_parts WHEN NEW.event_content_part_id = 1");
    const auto event =
        messageWith(7, Content{makeTextPart("one"), makeTextPart("two"), makeTextPart("three")});
    expectFailure(store, {event}, refusal());
    EXPECT_EQ(store.rows("SELECT event_content_part_id FROM event_content_parts"), Lines{"0"});
    const auto parts = event->contentParts();
    EXPECT_EQ(parts[0]->eventDatabaseIdentifier(), 1);
    EXPECT_EQ(parts[1]->eventDatabaseIdentifier(), 1) << "it was marked before it failed";
    EXPECT_EQ(parts[2]->eventDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(parts[2]->streamUUID(), std::nullopt);
}

TEST(EventPersistence, EveryWritingStatementMayBeInterrupted) {
    for (const char* beginning : {"INSERT OR IGNORE INTO events ", "UPDATE events SET ",
                                  "INSERT OR IGNORE INTO event_content_parts "}) {
        SCOPED_TRACE(beginning);
        const StreamStore store;
        persist(store, {makeMessage(7, 12)});
        const auto event = makeMessage(8, 12);
        event->set_content(Content{makeTextPart("hi")});
        const StatementInterruption interruption(store.database(), beginning);
        expectFailure(store, {event}, interruptionError());
    }
}

TEST(EventPersistence, AFailureKeepsTheEventsBeforeItAndTouchesNoneAfterIt) {
    const StreamStore store;
    refuse(store, "INSERT ON event_content_parts WHEN NEW.type = 'text/failing'");
    const auto before = messageWith(7, Content{makeTextPart("hi")});
    const auto part = makeTextPart("ho");
    part->set_media_type("text/failing");
    const auto failing = messageWith(8, Content{part});
    const auto after = makeMessage(9);
    expectFailure(store, {before, failing, after}, refusal());
    EXPECT_EQ(store.rows("SELECT database_identifier, client_id FROM events ORDER BY 1"),
              (Lines{"1|X'11111111111111111111111111111107'", "2|X'11111111111111111111111111111108'"}));
    EXPECT_EQ(before->databaseIdentifier(), 1);
    EXPECT_EQ(failing->databaseIdentifier(), 2);
    EXPECT_EQ(after->databaseIdentifier(), ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(after->streamDatabaseIdentifier(), ZAVDatabaseIdentifierNotSet);
}

TEST(EventPersistence, TheSameSetCanBeStoredOnceTheCauseOfItsFailureIsGone) {
    const StreamStore store;
    refuse(store, "INSERT ON event_content_parts WHEN NEW.event_content_part_id = 1");
    const auto event = messageWith(7, Content{makeTextPart("one"), makeTextPart("two")});
    const ZAVSet<ZAVTEvent> events{event, makeMessage(8)};
    expectFailure(store, events, refusal());
    store.execute("DROP TRIGGER refusing");
    persist(store, events);
    EXPECT_EQ(store.repository().countOfEvents(), 2U);
    EXPECT_EQ(store.rows("SELECT event_content_part_id FROM event_content_parts ORDER BY 1"),
              (Lines{"0", "1"}));
}

// What observers change meanwhile.

TEST(EventPersistence, TheEventsAreThoseOfTheCallWhateverAnObserverDoesToTheSet) {
    const StreamStore store;
    ZAVSet<ZAVTEvent> events{makeMessage(1), makeMessage(2), makeMessage(3)};
    const auto uninvited = makeMessage(4);
    store.database().setStatementObserver([&](const FMStatementRun&) {
        events.clear();
        events.insert(uninvited);
    });
    EXPECT_TRUE(store.repository().persistEvents(events));
    store.database().setStatementObserver({});
    EXPECT_EQ(store.rows("SELECT client_id FROM events"),
              (Lines{"X'11111111111111111111111111111101'", "X'11111111111111111111111111111102'",
                     "X'11111111111111111111111111111103'"}));
    EXPECT_EQ(events.size(), 1U) << "the observer's change was undone";
}

TEST(EventPersistence, ThePartsAreThoseOfTheEventAsItWasWhateverAnObserverDoesToThem) {
    const StreamStore store;
    const auto event = messageWith(1, Content{makeTextPart("a"), makeTextPart("b"), makeTextPart("c")});
    store.database().setStatementObserver([&](const FMStatementRun& run) {
        if (run.sql.starts_with("INSERT OR IGNORE INTO event_content_parts")) {
            event->set_content(Content{makeTextPart("x")});
        }
    });
    EXPECT_TRUE(store.repository().persistEvents({event}));
    store.database().setStatementObserver({});
    EXPECT_EQ(store.rows("SELECT CAST(value AS TEXT) FROM event_content_parts ORDER BY "
                         "event_content_part_id"),
              (Lines{"a", "b", "c"}));
}

TEST(EventPersistence, AnObserverCannotPutAPartOfAnotherClassAmongThem) {
    const StreamStore store;
    const auto event = messageWith(1, Content{makeTextPart("a")});
    store.database().setStatementObserver(
        [&](const FMStatementRun&) { event->set_content(Content{std::make_shared<ZAVTContent>()}); });
    EXPECT_TRUE(store.repository().persistEvents({event}));
    store.database().setStatementObserver({});
    EXPECT_EQ(store.rows("SELECT CAST(value AS TEXT) FROM event_content_parts"), Lines{"a"});
}

TEST(EventPersistence, TheMetadataAreThoseFromBeforeTheFirstWhateverAnObserverDoesToThem) {
    const StreamStore store;
    const auto event = makeMessage(1);
    event->set_transient_metadata(ZAVDictionary{{"a", std::string("1")}, {"b", std::string("2")}});
    store.database().setStatementObserver([&](const FMStatementRun& run) {
        if (run.sql.find("keyed_values") != std::string_view::npos) {
            event->set_transient_metadata(std::nullopt);
        }
    });
    EXPECT_TRUE(store.repository().persistEvents({event}));
    store.database().setStatementObserver({});
    EXPECT_EQ(store.rows("SELECT key, value FROM keyed_values_remote ORDER BY key"), (Lines{"a|1", "b|2"}));
}

// The row identifier that means "not set".

constexpr const char* greatestChosenRow = "9223372036854775806";
constexpr const char* unusableRow = "9223372036854775807";

/// What an operation fails with that meets the row which cannot be named.
void expectUnusableRow(const ZAVError& error) {
    EXPECT_EQ(error.domain(), "ZAVDatabase");
    EXPECT_EQ(error.code(), 14);
    EXPECT_EQ(error.message(),
              "the row identifier 9223372036854775807 means that there is no row: the table has used up its "
              "row identifiers");
}

TEST(EventPersistence, AnEventThatGetsTheRowWhichMeansNotSetFailsAndItsRowStays) {
    const StreamStore store;
    const auto last = makeMessage(1, 1);
    last->setDatabaseIdentifier(9223372036854775806);
    persist(store, {last});

    const auto event = messageWith(2, Content{makeTextPart("hi")}, 2);
    ZAVError error;
    const LogCapture log;
    EXPECT_FALSE(store.repository().persistEvents({event}, &error)) << "the event has no usable row";
    expectUnusableRow(error);
    EXPECT_EQ(log.records().size(), 2U) << "the failure was not logged";
    EXPECT_EQ(log.records().back().message,
              "failed to persist events:" + descriptionOf({event}) + " with " + error.description());
    EXPECT_EQ(store.rows("SELECT database_identifier FROM events ORDER BY 1"),
              (Lines{greatestChosenRow, unusableRow}));
    EXPECT_EQ(store.rows("SELECT COUNT(*) FROM event_content_parts"), Lines{"0"})
        << "parts were stored for an event that has no row";
    expectHandleIsAtRest(store);
}

TEST(EventPersistence, AnEventThatCollidesWithTheRowWhichMeansNotSetFailsAndOverwritesNothing) {
    const StreamStore store;
    // The library's own table is full once it has that row; one that somebody else made may not be.
    store.execute("DROP TABLE events");
    store.execute(
        "CREATE TABLE events (database_identifier INTEGER PRIMARY KEY, type, creator_id, seq, timestamp, "
        "preceding_seq, client_seq, subtype, member_id, target_seq, stream_database_identifier, client_id, "
        "creator_name, UNIQUE (stream_database_identifier, seq))");
    store.execute(std::string("INSERT INTO events (database_identifier, type, client_id, seq, "
                              "stream_database_identifier) VALUES (") +
                  unusableRow + ", 4, x'AA', 7, 1)");
    const Lines before = store.rows("SELECT * FROM events");
    const auto event = makeMessage(2, 7);
    ZAVError error;
    EXPECT_FALSE(store.repository().persistEvents({event}, &error));
    expectUnusableRow(error);
    EXPECT_EQ(store.rows("SELECT * FROM events"), before);
}

TEST(EventPersistence, AnEventOfTheStreamInTheRowWhichMeansNotSetFailsAndIsNotStored) {
    const TestStore store;
    store.execute(std::string("INSERT INTO streams (database_identifier, stream_id) VALUES (") + unusableRow +
                  ", x'11111111111111111111111111111101')");
    ZAVError error;
    EXPECT_FALSE(store.repository().persistEvents({makeMessage(2, 7)}, &error));
    expectUnusableRow(error);
    EXPECT_EQ(store.repository().countOfEvents(), 0U);
}

TEST(EventPersistence, AnUnchangedEventWritesNoneOfItsMetadata) {
    const StreamStore store;
    const auto event = makeMessage(7, 1);
    event->set_transient_metadata(ZAVDictionary{{"key", std::string("value")}, {"other", std::string("")}});
    persist(store, {event});
    int statementsOfMetadata = 0;
    for (const std::string& statement : statementsPersisting(store, {event})) {
        if (statement.find("keyed_values") != std::string::npos) {
            ++statementsOfMetadata;
            EXPECT_TRUE(statement.starts_with("SELECT ")) << "an unchanged value was written: " << statement;
        }
    }
    EXPECT_EQ(statementsOfMetadata, 1);
}

}  // namespace
}  // namespace zav::test
