#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Operations/TestWithOperation.h"
#include "Support/LogCapture.h"
#include "Support/OperationExpectations.h"
#include "Support/StatementInterruption.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

/// The event queries with these answers on failure: "none" of those that collect events, "null" of those that
/// look for one. The count has another, and maps no row.
std::vector<const Operation*> queriesAnswering(const std::set<std::string>& failing) {
    static const std::vector<Operation> queries = eventQueries();
    return entriesOf(queries,
                     [&](const Operation& query) { return failing.contains(query.answers.failing); });
}

/// How many events a query maps in the store that the catalogue fills.
std::size_t mappedBy(const Operation& query) {
    return static_cast<std::size_t>(query.statements.at(1).times);
}

/// A store with six events: two sequenced (rows 1 and 2) and two that are not (3 and 4) in a stream that
/// the service knows, and two (5 and 6) in one that it does not. The insertion of each is unprocessed.
class SixEvents : public TestStore {
public:
    SixEvents() {
        execute(
            "INSERT INTO streams (database_identifier, stream_id, seq)"
            " VALUES (1, x'11111111111111111111111111111101', 2), (2, NULL, NULL);"
            "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id)"
            " VALUES (1, 2, 1, 1, x'01'), (2, 2, 2, 1, x'02'), (3, 2, NULL, 1, x'03'),"
            " (4, 2, NULL, 1, x'04'), (5, 2, NULL, 2, x'05'), (6, 2, NULL, 2, x'06');"
            "INSERT INTO synced_changes (table_name, row_identifier, change_type)"
            " SELECT 'events', database_identifier, 0 FROM events;");
    }
};

/// A repository that runs `afterMapping` once a row has been mapped; whatever it returns is the mapped event.
template <class AfterMapping>
class TamperingRepository final : public ZAVEventRepository {
public:
    TamperingRepository(const TestStore& store, AfterMapping afterMapping)
        : ZAVEventRepository(store.sharedDatabase()), afterMapping_(afterMapping) {}

    [[nodiscard]] std::shared_ptr<ZAVEvent> objectFromResultSet(const FMResultSet& row,
                                                                ZAVError* error) const override {
        return afterMapping_(ZAVEventRepository::objectFromResultSet(row, error), error);
    }

private:
    AfterMapping afterMapping_;
};

std::vector<ZAVDatabaseIdentifier> rowsOf(const std::optional<ZAVSet<ZAVEvent>>& events) {
    std::vector<ZAVDatabaseIdentifier> rows;
    EXPECT_TRUE(events) << "the query failed";
    if (events) {
        for (const auto& event : *events) {
            rows.push_back(event->databaseIdentifier());
        }
    }
    return rows;
}

std::vector<ZAVDatabaseIdentifier> sortedRowsOf(const std::optional<ZAVSet<ZAVEvent>>& events) {
    auto rows = rowsOf(events);
    std::sort(rows.begin(), rows.end());
    return rows;
}

using Rows = std::vector<ZAVDatabaseIdentifier>;

// What the queries that map rows have in common.

class EveryMappingEventQuery : public TestWithOperation {};

INSTANTIATE_TEST_SUITE_P(Of, EveryMappingEventQuery, testing::ValuesIn(queriesAnswering({"none", "null"})),
                         nameOfParameter);

TEST_P(EveryMappingEventQuery, HandsTheMapperTheCallersOwnError) {
    const FilledStore store;
    std::vector<const ZAVError*> received;
    const TamperingRepository repository(store, [&](std::shared_ptr<ZAVEvent> event, ZAVError* error) {
        received.push_back(error);
        return event;
    });
    ZAVError error;
    ASSERT_EQ(operation().call(repository, &error).summary(), operation().answers.filled);
    EXPECT_EQ(received, std::vector<const ZAVError*>(mappedBy(operation()), &error));
    received.clear();
    ASSERT_EQ(operation().call(repository, nullptr).summary(), operation().answers.filled);
    EXPECT_EQ(received, std::vector<const ZAVError*>(mappedBy(operation()), nullptr));
}

TEST_P(EveryMappingEventQuery, ReturnsItsEventsAndTellsOnlyTheCallerWhenMetadataCannotBeRead) {
    const FilledStore store;
    store.execute("DROP TABLE keyed_values_remote");
    const LogCapture log;
    ZAVError error;
    EXPECT_EQ(operation().call(store.repository(), &error).summary(), operation().answers.filled);
    EXPECT_EQ(error, ZAVError("SQLite", SQLITE_ERROR, "no such table: keyed_values_remote"))
        << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(operation()));
    EXPECT_EQ(operation().call(store.repository(), nullptr).summary(), operation().answers.filled);
    expectHandleIsAtRest(store);
}

TEST_P(EveryMappingEventQuery, ReturnsItsEventsSilentlyWhenContentCannotBeRead) {
    const FilledStore store;
    // No messages: what is no message may be published without its content.
    store.execute("UPDATE events SET type = 2; DROP TABLE event_content_parts");
    const LogCapture log;
    ZAVError error;
    EXPECT_EQ(operation().call(store.repository(), &error).summary(), operation().answers.filled);
    EXPECT_FALSE(error) << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(operation()));
    expectHandleIsAtRest(store);
}

TEST_P(EveryMappingEventQuery, PrefersItsOwnFailureToThatOfTheMapper) {
    const FilledStore store;
    store.execute("DROP TABLE keyed_values_remote; DROP TABLE events");
    expectFailure(store, operation(), missingTable("events"));
}

TEST_P(EveryMappingEventQuery, ClosesItsCursorWhenTheMapperThrows) {
    const FilledStore store;
    const TamperingRepository repository(
        store, [](const std::shared_ptr<ZAVEvent>&, ZAVError*) -> std::shared_ptr<ZAVEvent> {
            throw std::runtime_error("no mapping today");
        });
    EXPECT_THROW(static_cast<void>(operation().call(repository, nullptr)), std::runtime_error);
    expectHandleIsAtRest(store);
}

// What the queries that collect several events have in common.

class EveryCollectingEventQuery : public TestWithOperation {};

INSTANTIATE_TEST_SUITE_P(Of, EveryCollectingEventQuery, testing::ValuesIn(queriesAnswering({"none"})),
                         nameOfParameter);

TEST_P(EveryCollectingEventQuery, StopsWithoutAnErrorAtARowThatMapsToNoEvent) {
    const FilledStore store;
    int mapped = 0;
    const TamperingRepository repository(
        store, [&](std::shared_ptr<ZAVEvent> event, ZAVError*) { return ++mapped == 2 ? nullptr : event; });
    const LogCapture log;
    ZAVError error = errorOfSomebodyElse();
    EXPECT_EQ(operation().call(repository, &error).summary(), operation().answers.failing)
        << "the events before the row are not a result";
    EXPECT_EQ(mapped, 2) << "the rows after it are not read";
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    EXPECT_EQ(log.records(), linesOfASuccess(operation()));
    expectHandleIsAtRest(store);
}

TEST_P(EveryCollectingEventQuery, HoldsARecordOnceThatTheMapperAnswersForSeveralRows) {
    const FilledStore store;
    const auto same = std::make_shared<ZAVEvent>(7, 1);
    same->set_type(EventType_MEMBER_ADDED);
    const TamperingRepository repository(store,
                                         [&](const std::shared_ptr<ZAVEvent>&, ZAVError*) { return same; });
    EXPECT_EQ(operation().call(repository, nullptr).summary(), "set of 1");
}

class EverySingleEventLookup : public TestWithOperation {};

INSTANTIATE_TEST_SUITE_P(Of, EverySingleEventLookup, testing::ValuesIn(queriesAnswering({"null"})),
                         nameOfParameter);

TEST_P(EverySingleEventLookup, AsksForOneRowOnly) {
    const FilledStore store;
    const TamperingRepository repository(store, [&](std::shared_ptr<ZAVEvent> event, ZAVError*) {
        sqlite3_interrupt(store.database().sqliteHandle());
        return event;
    });
    ZAVError error;
    EXPECT_EQ(operation().call(repository, &error).summary(), "event") << "a step after the row was taken";
    EXPECT_FALSE(error) << error.description();
    expectHandleIsAtRest(store);
}

// What each query answers.

/// Inserts an event of a type into a stream's row, with `columns` and their `values` beside.
void addEvent(const TestStore& store, int row, int type, const std::string& seq, const std::string& streamRow,
              const std::string& columns = "", const std::string& values = "") {
    store.execute(
        "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id" +
        (columns.empty() ? "" : ", " + columns) + ") VALUES (" + std::to_string(row) + ", " +
        std::to_string(type) + ", " + seq + ", " + streamRow + ", x'AA'" +
        (values.empty() ? "" : ", " + values) + ")");
}

void addPart(const TestStore& store, int eventRow, int index, const std::string& transferStatus) {
    store.execute(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, "
        "transfer_status) VALUES (" +
        std::to_string(index) + ", " + std::to_string(eventRow) + ", 'text/plain', " + transferStatus + ")");
}

void addChange(const TestStore& store, const std::string& table, int row, ZAVSyncedChangeType type) {
    ZAVError error;
    EXPECT_TRUE(ZAVSyncedChangeRepository(store.sharedDatabase()).recordChange(table, row, type, &error))
        << error.description();
}

TEST(EventQueries, AllEventsAreThoseOfEveryStreamAndThoseWithout) {
    const SixEvents store;
    addEvent(store, 7, EventType_MESSAGE, "1", "99");
    addEvent(store, 8, EventType_MESSAGE, "NULL", "NULL");
    EXPECT_EQ(sortedRowsOf(store.repository().allEvents()), (Rows{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(EventQueries, EachCallMakesNewRecordsThatAreTiedToNothing) {
    const SixEvents store;
    const auto first = store.repository().allEvents();
    const auto second = store.repository().allEvents();
    ASSERT_TRUE(first && second);
    ASSERT_EQ(first->size(), second->size());
    EXPECT_FALSE(second->contains((*first)[0])) << "two calls handed out the same record";
    (*first)[0]->set_creator_id("changed by the caller");
    EXPECT_EQ((*second)[0]->creator_id(), std::nullopt);
    store.execute("DELETE FROM events");
    EXPECT_EQ(first->size(), 6U) << "a result changed with the table";
}

TEST(EventQueries, TwoStoredEventsThatDifferOnlyInTheirRowsAreTwoEvents) {
    const StreamStore store;
    store.execute(
        "WITH RECURSIVE numbers (number) AS (SELECT 1 UNION ALL SELECT number + 1 FROM numbers LIMIT 5000)"
        "INSERT INTO events (type, stream_database_identifier, client_id) SELECT 2, 1, x'AA' FROM numbers");
    EXPECT_EQ(rowsOf(store.repository().allEvents()).size(), 5000U);
    EXPECT_EQ(rowsOf(store.repository().publishableEvents()).size(), 5000U);
    EXPECT_EQ(store.repository().countOfEvents(), 5000U);
}

TEST(EventQueries, TheCountTakesInEventsWhoseStreamIsMissing) {
    const TestStore store;
    addEvent(store, 1, EventType_MESSAGE, "1", "99");
    addEvent(store, 2, EventType_MESSAGE, "NULL", "NULL");
    EXPECT_EQ(store.repository().countOfEvents(), 2U);
}

TEST(EventQueries, TheCountReadsNoStream) {
    const SixEvents store;
    store.execute("DROP TABLE streams");
    ZAVError error;
    EXPECT_EQ(store.repository().countOfEvents(&error), 6U);
    EXPECT_FALSE(error) << error.description();
}

TEST(EventQueries, AnUnsequencedEventOfAStreamThatTheServiceDoesNotKnowIsUnpublishable) {
    const TestStore store;
    store.execute("INSERT INTO streams (database_identifier, stream_id) VALUES (1, NULL)");
    addEvent(store, 1, EventType_MEMBER_ADDED, "NULL", "1");
    EXPECT_EQ(rowsOf(store.repository().unpublishableEvents()), Rows{1});
    EXPECT_EQ(rowsOf(store.repository().publishableEvents()), Rows{});
}

TEST(EventQueries, AnUnsequencedEventWhoseStreamDoesNotExistIsUnpublishable) {
    const TestStore store;
    addEvent(store, 1, EventType_MEMBER_ADDED, "NULL", "99");
    addEvent(store, 2, EventType_MEMBER_ADDED, "NULL", "NULL");
    EXPECT_EQ(sortedRowsOf(store.repository().unpublishableEvents()), (Rows{1, 2}));
    EXPECT_EQ(rowsOf(store.repository().publishableEvents()), Rows{});
}

TEST(EventQueries, AnUnpublishableEventBecomesPublishableOnceItsStreamHasItsIdentifier) {
    const TestStore store;
    const ZAVDatabaseIdentifier stream = store.streams().createStreamWithoutUUID();
    addEvent(store, 1, EventType_MEMBER_ADDED, "NULL", std::to_string(stream));
    ASSERT_EQ(rowsOf(store.repository().unpublishableEvents()), Rows{1});
    ASSERT_TRUE(store.streams().setUUID(uuidNumber(1), stream));
    EXPECT_EQ(rowsOf(store.repository().publishableEvents()), Rows{1});
    EXPECT_EQ(rowsOf(store.repository().unpublishableEvents()), Rows{});
}

TEST(EventQueries, ASequencedEventIsNeitherPublishableNorUnpublishable) {
    const StreamStore store;
    addEvent(store, 1, EventType_MEMBER_ADDED, "0", "1");
    addEvent(store, 2, EventType_MEMBER_ADDED, "2147483647", "1");
    addEvent(store, 3, EventType_MEMBER_ADDED, "5", "99");
    EXPECT_EQ(rowsOf(store.repository().publishableEvents()), Rows{});
    EXPECT_EQ(rowsOf(store.repository().unpublishableEvents()), Rows{});
}

/// The publishable rows of a store with one unsequenced message, row 1, whose parts have these statuses.
Rows publishableWithPartsOf(ZAVTEventType type, const std::vector<std::string>& transferStatuses) {
    const StreamStore store;
    addEvent(store, 1, type, "NULL", "1");
    int index = 0;
    for (const std::string& status : transferStatuses) {
        addPart(store, 1, index++, status);
    }
    EXPECT_EQ(rowsOf(store.repository().unpublishableEvents()), Rows{});
    return rowsOf(store.repository().publishableEvents());
}

TEST(EventQueries, AMessageWhosePartsAreAllTransferredIsPublishable) {
    EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {"4"}), Rows{1});
    EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {"4", "4"}), Rows{1});
    EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {"4", "4", "4"}), Rows{1});
}

TEST(EventQueries, AMessageWithAPartStillUploadingIsNeitherPublishableNorUnpublishable) {
    EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {"4", "1"}), Rows{});
    EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {"1", "4"}), Rows{});
}

TEST(EventQueries, AMessageWithoutPartsIsNeitherPublishableNorUnpublishable) {
    EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {}), Rows{});
}

TEST(EventQueries, AMessageWithAPartInAnyOtherTransferStateIsNotPublishable) {
    for (const char* status : {"0", "1", "2", "3", "5", "-1", "NULL"}) {
        EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {status}), Rows{}) << "alone: " << status;
        EXPECT_EQ(publishableWithPartsOf(EventType_MESSAGE, {"4", status}), Rows{}) << "beside: " << status;
    }
}

/// The publishable rows of a store with one unsequenced message, row 1, whose mapper answers this content.
Rows publishableWithContent(const std::optional<std::vector<std::shared_ptr<ZAVTContent>>>& content) {
    const StreamStore store;
    addEvent(store, 1, EventType_MESSAGE, "NULL", "1");
    addPart(store, 1, 0, "4");
    const TamperingRepository repository(store, [&](std::shared_ptr<ZAVEvent> event, ZAVError*) {
        event->set_content(content);
        return event;
    });
    return rowsOf(repository.publishableEvents());
}

TEST(EventQueries, AMessageWhoseMapperAnswersNoPartsIsNotPublishable) {
    EXPECT_EQ(publishableWithContent(std::nullopt), Rows{});
    EXPECT_EQ(publishableWithContent(std::vector<std::shared_ptr<ZAVTContent>>()), Rows{})
        << "content that is there and holds nothing was taken for transferred content";
}

TEST(EventQueries, APartWithoutATransferStatusIsNotTransferred) {
    const auto complete = makeTextPart("hi");
    EXPECT_EQ(publishableWithContent({{complete}}), Rows{1});
    EXPECT_EQ(publishableWithContent({{std::make_shared<ZAVTContent>()}}), Rows{});
    EXPECT_EQ(publishableWithContent({{complete, std::make_shared<ZAVTContent>()}}), Rows{});
    EXPECT_EQ(publishableWithContent({{nullptr, complete}}), Rows{});
}

TEST(EventQueries, AnEventThatIsNoMessageIsPublishableWhateverItsParts) {
    for (const ZAVTEventType type :
         {EventType_APPLICATION, EventType_MEMBER_ADDED, EventType_MEMBER_REMOVED,
          EventType_MESSAGE_DELIVERED, EventType_MESSAGE_READ, EventType_EVENT_DELETED, EventType_TOMBSTONE,
          EventType_STREAM_DELETED}) {
        EXPECT_EQ(publishableWithPartsOf(type, {}), Rows{1}) << "without parts, type " << type;
        EXPECT_EQ(publishableWithPartsOf(type, {"4", "1"}), Rows{1}) << "uploading, type " << type;
    }
}

TEST(EventQueries, AMessageThatIsHeldBackDoesNotHoldBackTheEventsAroundIt) {
    const StreamStore store;
    for (const int row : {1, 2, 3}) {
        addEvent(store, row, EventType_MESSAGE, "NULL", "1");
        addPart(store, row, 0, row == 2 ? "1" : "4");
    }
    EXPECT_EQ(sortedRowsOf(store.repository().publishableEvents()), (Rows{1, 3}));
}

TEST(EventQueries, OnlyARecordedInsertionMakesAnEventUnprocessed) {
    const StreamStore store;
    for (int row = 1; row <= 5; ++row) {
        addEvent(store, row, EventType_MEMBER_ADDED, "NULL", "1");
    }
    addChange(store, "events", 1, ZAVSyncedChangeTypeInsert);
    addChange(store, "events", 2, ZAVSyncedChangeTypeUpdate);
    addChange(store, "events", 3, ZAVSyncedChangeTypeDelete);
    addChange(store, "events", 4, ZAVSyncedChangeTypeUpdate);
    addChange(store, "events", 4, ZAVSyncedChangeTypeInsert);
    addChange(store, "messages", 5, ZAVSyncedChangeTypeInsert);
    EXPECT_EQ(sortedRowsOf(store.repository().unprocessedEvents()), (Rows{1, 4}));
}

TEST(EventQueries, ARecordedInsertionOfAnEventThatIsGoneYieldsNothing) {
    const TestStore store;
    addChange(store, "events", 1, ZAVSyncedChangeTypeInsert);
    EXPECT_EQ(rowsOf(store.repository().unprocessedEvents()), Rows{});
}

TEST(EventQueries, AnUnprocessedEventNeedsNoStreamAndNoSequence) {
    const TestStore store;
    addEvent(store, 1, EventType_MESSAGE, "NULL", "99");
    addEvent(store, 2, EventType_MESSAGE, "7", "99");
    addChange(store, "events", 1, ZAVSyncedChangeTypeInsert);
    addChange(store, "events", 2, ZAVSyncedChangeTypeInsert);
    EXPECT_EQ(sortedRowsOf(store.repository().unprocessedEvents()), (Rows{1, 2}));
}

TEST(EventQueries, AnEventWithSeveralRecordedInsertionsComesBackOnce) {
    const SixEvents store;
    for (int round = 0; round < 3; ++round) {
        for (int row = 1; row <= 6; ++row) {
            addChange(store, "events", row, ZAVSyncedChangeTypeInsert);
        }
    }
    EXPECT_EQ(sortedRowsOf(store.repository().unprocessedEvents()), (Rows{1, 2, 3, 4, 5, 6}));
}

TEST(EventQueries, AnEventComesBackOnceInWhateverOrderItsInsertionsAreFound) {
    const StreamStore store;
    for (int row = 1; row <= 4; ++row) {
        addEvent(store, row, EventType_MEMBER_ADDED, "NULL", "1");
    }
    // Without the index the changes are met in the order in which they were recorded.
    store.execute("DROP INDEX synced_changes_by_row");
    for (const int row : {3, 1, 3, 4, 2, 1, 4, 3}) {
        addChange(store, "events", row, ZAVSyncedChangeTypeInsert);
    }
    EXPECT_EQ(sortedRowsOf(store.repository().unprocessedEvents()), (Rows{1, 2, 3, 4}));
}

TEST(EventQueries, AnEventOfManyInsertionsComesBackOnceBesideThoseAroundIt) {
    const StreamStore store;
    for (int row = 1; row <= 3; ++row) {
        addEvent(store, row, EventType_MEMBER_ADDED, "NULL", "1");
    }
    for (const int row : {1, 1, 2, 2, 2, 3, 3}) {
        addChange(store, "events", row, ZAVSyncedChangeTypeInsert);
    }
    EXPECT_EQ(rowsOf(store.repository().unprocessedEvents()), (Rows{1, 2, 3}));
}

TEST(EventQueries, AnUnprocessedEventIsReadWithItsContentAndNotFromTheColumnsOfItsChange) {
    const StreamStore store;
    addEvent(store, 7, EventType_MESSAGE, "3", "1", "creator_name", "'Ann'");
    addPart(store, 7, 0, "4");
    addPart(store, 7, 1, "1");
    addChange(store, "events", 7, ZAVSyncedChangeTypeInsert);
    const auto events = store.repository().unprocessedEvents();
    ASSERT_EQ(rowsOf(events), Rows{7});
    EXPECT_EQ((*events)[0]->creator_name(), "Ann");
    EXPECT_EQ((*events)[0]->seq(), 3);
    EXPECT_EQ((*events)[0]->contentParts().size(), 2U);
}

/// The rows of a revived stream in the order of the answer. Its events, in the rows from 1 on, have these
/// preceding sequences, creators and client sequences.
Rows replayOrderOf(const std::vector<std::string>& events) {
    const StreamStore store;
    int row = 0;
    for (const std::string& event : events) {
        ++row;
        addEvent(store, row, EventType_MESSAGE, std::to_string(100 - row), "1",
                 "preceding_seq, creator_id, client_seq", event);
    }
    return rowsOf(store.repository().eventsFromRevivedStreamWithStreamDatabaseIdentifier(1));
}

TEST(EventQueries, TheEventsOfARevivedStreamComeByPrecedingSequenceThenCreator) {
    EXPECT_EQ(replayOrderOf({"5, 'a', 1", "3, 'b', 1", "3, 'a', 1"}), (Rows{3, 2, 1}));
}

TEST(EventQueries, EventsOfOneCreatorAfterTheSameSequenceComeByClientSequence) {
    EXPECT_EQ(replayOrderOf({"3, 'a', 10", "3, 'a', 9", "3, 'a', -1", "2, 'z', 99"}), (Rows{4, 3, 2, 1}));
}

TEST(EventQueries, WhatARevivedEventLacksSortsBeforeWhatOthersHave) {
    EXPECT_EQ(replayOrderOf({"0, '', 1", "0, NULL, 1", "NULL, 'z', 1", "-5, 'a', NULL"}), (Rows{3, 4, 2, 1}));
}

TEST(EventQueries, RevivedEventsThatTieAreAllReturned) {
    Rows rows = replayOrderOf({"9, 'a', 1", "3, 'a', 1", "3, 'a', 1", "3, 'a', 1"});
    ASSERT_EQ(rows.size(), 4U);
    EXPECT_EQ(rows.back(), 1);
    std::sort(rows.begin(), rows.end());
    EXPECT_EQ(rows, (Rows{1, 2, 3, 4}));
}

TEST(EventQueries, ARevivedStreamYieldsOnlyItsOwnSequencedEvents) {
    const SixEvents store;
    addEvent(store, 7, EventType_MESSAGE, "1", "2");
    addEvent(store, 8, EventType_MESSAGE, "1", "99");
    EXPECT_EQ(sortedRowsOf(store.repository().eventsFromRevivedStreamWithStreamDatabaseIdentifier(1)),
              (Rows{1, 2}));
    EXPECT_EQ(rowsOf(store.repository().eventsFromRevivedStreamWithStreamDatabaseIdentifier(2)), Rows{7})
        << "the stream need not be known to the service";
    EXPECT_EQ(rowsOf(store.repository().eventsFromRevivedStreamWithStreamDatabaseIdentifier(99)), Rows{})
        << "an event whose stream is missing never matches";
}

TEST(EventQueries, AStreamRowIsBoundAndLoggedWithAllItsBits) {
    const TestStore store;
    const StatementTrace trace(store.database());
    const LogCapture log;
    EXPECT_EQ(rowsOf(store.repository().eventsFromRevivedStreamWithStreamDatabaseIdentifier(
                  std::numeric_limits<std::int64_t>::min())),
              Rows{});
    ASSERT_EQ(trace.statements().size(), 1U);
    EXPECT_NE(trace.statements()[0].find("streams.database_identifier = -9223372036854775808 ORDER BY"),
              std::string::npos)
        << trace.statements()[0];
    EXPECT_EQ(log.records(),
              std::vector{verboseLine(
                  "-[ZAVEventRepository eventsFromRevivedStreamWithStreamDatabaseIdentifier:error:]",
                  "fetching events for revived stream (streamDatabaseIdentifier=%lld)",
                  "fetching events for revived stream (streamDatabaseIdentifier=-9223372036854775808)")});
}

TEST(EventQueries, PostedEventsAreThoseWithAnySequenceInAnyStream) {
    const SixEvents store;
    addEvent(store, 7, EventType_MESSAGE, "0", "2");
    addEvent(store, 8, EventType_MESSAGE, "-3", "99");
    EXPECT_EQ(sortedRowsOf(store.repository().postedAndProcessedEvents()), (Rows{1, 2, 7, 8}));
}

TEST(EventQueries, AnEventIsFoundByItsSequenceInItsOwnStreamOnly) {
    const StreamStore store;
    store.addStream(uuidNumber(2));
    addEvent(store, 1, EventType_MESSAGE, "5", "1");
    addEvent(store, 2, EventType_MESSAGE, "5", "2");
    addEvent(store, 3, EventType_MESSAGE, "6", "2");
    const auto event = store.repository().eventWithSeq(5, uuidNumber(2));
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->databaseIdentifier(), 2);
    EXPECT_EQ(event->streamUUID(), uuidNumber(2));
    EXPECT_EQ(store.repository().eventWithSeq(6, uuidNumber(1)), nullptr);
}

TEST(EventQueries, ALookupInAStreamThatDoesNotExistFindsNothingAndIsNoFailure) {
    const SixEvents store;
    const LogCapture log;
    ZAVError error = errorOfSomebodyElse();
    EXPECT_EQ(store.repository().eventWithSeq(1, *ZAVUUID::fromString("ABCDEF01-2345-6789-abcd-EF0123456789"),
                                              &error),
              nullptr);
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    EXPECT_EQ(log.records(),
              std::vector{verboseLine(
                  "-[ZAVEventRepository eventWithSeq:streamIdentifier:error:]",
                  "fetching event by seq:%d and stream identifier:%@",
                  "fetching event by seq:1 and stream identifier:abcdef01-2345-6789-abcd-ef0123456789")});
    expectHandleIsAtRest(store);
}

TEST(EventQueries, AnEventWithoutASequenceIsNotFoundBySequenceZero) {
    const SixEvents store;
    EXPECT_EQ(store.repository().eventWithSeq(0, uuidNumber(1)), nullptr);
    EXPECT_EQ(store.repository().eventWithSeq(ZAVSequenceNotSet, uuidNumber(1)), nullptr);
}

TEST(EventQueries, SequencesAtBothEndsOfTheirRangeAreFoundAndLogged) {
    const StreamStore store;
    addEvent(store, 1, EventType_MESSAGE, "-2147483648", "1");
    addEvent(store, 2, EventType_MESSAGE, "2147483647", "1");
    const LogCapture log;
    const auto lowest =
        store.repository().eventWithSeq(std::numeric_limits<ZAVSequence>::min(), uuidNumber(1));
    const auto highest =
        store.repository().eventWithSeq(std::numeric_limits<ZAVSequence>::max(), uuidNumber(1));
    ASSERT_NE(lowest, nullptr);
    ASSERT_NE(highest, nullptr);
    EXPECT_EQ(lowest->databaseIdentifier(), 1);
    EXPECT_EQ(highest->databaseIdentifier(), 2);
    ASSERT_EQ(log.records().size(), 2U);
    EXPECT_EQ(log.records()[0].message,
              "fetching event by seq:-2147483648 and stream identifier:11111111-1111-1111-1111-111111111101");
    EXPECT_EQ(log.records()[1].message,
              "fetching event by seq:2147483647 and stream identifier:11111111-1111-1111-1111-111111111101");
}

TEST(EventQueries, OfSeveralEventsAtOneSequenceOneIsReturned) {
    const StreamStore store;
    store.execute("DROP INDEX events_by_stream_and_seq");
    addEvent(store, 1, EventType_MESSAGE, "5", "1");
    addEvent(store, 2, EventType_MESSAGE, "5", "1");
    int mapped = 0;
    const TamperingRepository repository(store, [&](std::shared_ptr<ZAVEvent> event, ZAVError*) {
        ++mapped;
        return event;
    });
    ZAVError error;
    EXPECT_NE(repository.eventWithSeq(5, uuidNumber(1), &error), nullptr);
    EXPECT_FALSE(error) << error.description();
    EXPECT_EQ(mapped, 1) << "rows after the first are ignored";
    expectHandleIsAtRest(store);
}

TEST(EventQueries, AnEventIsFoundByItsRowWithEverythingThatItCarries) {
    const StreamStore store;
    const auto stored = makeEvent(EventType_MESSAGE, uuidNumber(1), 7);
    stored->set_creator_id("alice");
    stored->set_transient_metadata(ZAVDictionary{{"colour", std::string("green")}});
    stored->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("one"), makeTextPart("two")});
    ASSERT_TRUE(store.repository().persistEvents({stored}));
    const auto event = store.repository().eventForDatabaseIdentifier(stored->databaseIdentifier());
    ASSERT_NE(event, nullptr);
    EXPECT_NE(event, stored) << "a read hands out a record of its own";
    EXPECT_EQ(event->creator_id(), "alice");
    EXPECT_EQ(event->client_id(), ZAVDataFromUUID(uuidNumber(7)));
    EXPECT_EQ(event->transient_metadata(), (ZAVDictionary{{"colour", ZAVData::fromText("green")}}));
    ASSERT_EQ(event->contentParts().size(), 2U);
    EXPECT_EQ(event->contentParts()[1]->body(), ZAVData::fromText("two"));
}

TEST(EventQueries, AnyRowIdentifierMayBeLookedUp) {
    const TestStore store;
    addEvent(store, 0, EventType_MESSAGE, "1", "99");
    addEvent(store, -1, EventType_MESSAGE, "2", "99");
    store.execute(
        "INSERT INTO events (database_identifier, type, client_id) VALUES (9223372036854775806, 4, x'AA')");
    for (const ZAVDatabaseIdentifier row :
         {ZAVDatabaseIdentifier(0), ZAVDatabaseIdentifier(-1), ZAVDatabaseIdentifier(9223372036854775806)}) {
        const auto event = store.repository().eventForDatabaseIdentifier(row);
        ASSERT_NE(event, nullptr) << row;
        EXPECT_EQ(event->databaseIdentifier(), row);
    }
}

TEST(EventQueries, ARowThatDoesNotExistIsNoFailure) {
    const SixEvents store;
    const LogCapture log;
    ZAVError error = errorOfSomebodyElse();
    EXPECT_EQ(store.repository().eventForDatabaseIdentifier(ZAVDatabaseIdentifierNotSet, &error), nullptr);
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    EXPECT_EQ(log.records(),
              std::vector{verboseLine("-[ZAVEventRepository eventForDatabaseIdentifier:error:]",
                                      "fetching event for database identifier:%lld",
                                      "fetching event for database identifier:9223372036854775807")});
    expectHandleIsAtRest(store);
}

TEST(EventQueries, ADamagedPageAmongTheEventsFailsTheWholeQuery) {
    const TestStore store;
    store.execute(
        "WITH RECURSIVE numbers (number) AS (SELECT 1 UNION ALL SELECT number + 1 FROM numbers LIMIT 500)"
        "INSERT INTO events (type, client_id, creator_name) SELECT 2, x'AA', printf('%0200d', number)"
        " FROM numbers");
    ASSERT_TRUE(ZAVDatabaseMaintenance(store.sharedDatabase()).checkpoint(ZAVCheckpointMode::truncate));
    const auto pageSize = std::stoll(store.rows("PRAGMA page_size").at(0));
    const auto root =
        std::stoll(store.rows("SELECT rootpage FROM sqlite_master WHERE name = 'events'").at(0));
    {
        std::fstream file(store.path(), std::ios::in | std::ios::out | std::ios::binary);
        char header[12] = {};
        file.seekg((root - 1) * pageSize);
        file.read(header, sizeof header);
        ASSERT_EQ(header[0], 5) << "the table was to have more than one page";
        // The page behind the last of the keys: the query meets it after many good rows.
        std::int64_t last = 0;
        for (int position = 8; position < 12; ++position) {
            last = last * 256 + static_cast<unsigned char>(header[position]);
        }
        file.seekp((last - 1) * pageSize);
        file << std::string(static_cast<std::size_t>(pageSize), '\xEE');
        ASSERT_TRUE(file.good());
    }
    const ZAVEventRepository repository(store.secondConnection());
    const LogCapture log;
    ZAVError error;
    EXPECT_FALSE(repository.allEvents(&error)) << "events of a damaged table are not a result";
    EXPECT_EQ(error.code() & 0xFF, SQLITE_CORRUPT) << error.description();
    expectLinesOfAFailure(eventQueries().front(), log.records(), error);
    EXPECT_EQ(repository.database().openResultSets(), 0U);
}

}  // namespace
}  // namespace zav::test
