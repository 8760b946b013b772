#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVSQLVector.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "Support/OperationExpectations.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;
using Rows = std::vector<ZAVDatabaseIdentifier>;

/// The rows from `first` to `last`.
Rows range(ZAVDatabaseIdentifier first, ZAVDatabaseIdentifier last) {
    Rows rows(static_cast<std::size_t>(last - first + 1));
    std::iota(rows.begin(), rows.end(), first);
    return rows;
}

/// "first, second".
std::string joined(const Rows& rows) {
    std::string text;
    for (const ZAVDatabaseIdentifier row : rows) {
        text += (text.empty() ? "" : ", ") + std::to_string(row);
    }
    return text;
}

/// One event for each row, in that order.
ZAVSet<ZAVEvent> eventsInRows(const Rows& rows) {
    ZAVSet<ZAVEvent> events;
    for (const ZAVDatabaseIdentifier row : rows) {
        events.insert(std::make_shared<ZAVEvent>(row, 1));
    }
    return events;
}

// Runs of placeholders.

std::vector<ZAVSQLVector> vectorsOf(const Rows& rows, std::size_t limit) {
    return ZAVSQLVector::arrayOfVectorsWithCollection(rows, limit);
}

TEST(SQLVector, HoldsOnePlaceholderForEachValue) {
    EXPECT_EQ(vectorsOf({7}, 500).at(0).stringRepresentation(), "(?)");
    EXPECT_EQ(vectorsOf({7, 8}, 500).at(0).stringRepresentation(), "(?, ?)");
    EXPECT_EQ(vectorsOf({7, 8, 9}, 500).at(0).stringRepresentation(), "(?, ?, ?)");
}

TEST(SQLVector, IsNotMadeOfAnEmptyCollection) {
    EXPECT_TRUE(vectorsOf({}, 500).empty());
}

TEST(SQLVector, TakesAtMostTheLimitAndLeavesTheRestToTheNext) {
    const Rows rows{5, 3, 9, -1, 3, ZAVDatabaseIdentifierNotSet, 0};
    for (std::size_t limit = 1; limit <= rows.size() + 1; ++limit) {
        std::vector<ZAVValue> arguments;
        const auto vectors = vectorsOf(rows, limit);
        EXPECT_EQ(vectors.size(), (rows.size() + limit - 1) / limit) << "with the limit " << limit;
        for (const ZAVSQLVector& vector : vectors) {
            EXPECT_TRUE(vector.arguments().size() == limit || &vector == &vectors.back())
                << "only the last may hold fewer than " << limit;
            arguments.insert(arguments.end(), vector.arguments().begin(), vector.arguments().end());
        }
        EXPECT_EQ(arguments, std::vector<ZAVValue>(rows.begin(), rows.end()))
            << "every element once and in order, with the limit " << limit;
    }
}

TEST(SQLVector, IsNotMadeOfRunsThatHoldNothing) {
    EXPECT_THROW(vectorsOf({1, 2, 3}, 0), std::invalid_argument);
    EXPECT_THROW(vectorsOf({}, 0), std::invalid_argument);
}

// Events that no longer wait to be processed.

/// Forgets events; `printed` is the collection of their rows as the line shows it.
Operation forgetting(const ZAVSet<ZAVEvent>& events, const std::string& printed) {
    return {
        .call = [=](const ZAVEventRepository& repository,
                    ZAVError* error) { return answer(repository.deleteUnprocessedEvents(events, error)); },
        .log = lines(
            "deleteUnprocessedEvents:error:", "deleting unprocessed events with database identifiers: %@",
            "failed to delete unprocessed events with %@", {printed}),
        .answers = {.failing = "false"}};
}

Operation forgetting(const Rows& rows) {
    return forgetting(eventsInRows(rows), "{(" + joined(rows) + ")}");
}

void addChanges(const TestStore& store, const Rows& rows) {
    const ZAVSyncedChangeRepository changes(store.sharedDatabase());
    store.execute("BEGIN");
    for (const ZAVDatabaseIdentifier row : rows) {
        EXPECT_TRUE(changes.recordChange("events", row, ZAVSyncedChangeTypeInsert));
    }
    store.execute("COMMIT");
}

std::string forgettingStatement(const Rows& rows) {
    return "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (" + joined(rows) +
           ")";
}

TEST(UnprocessedEventRemoval, TakesOneStatementForAFewEventsInTheirOrder) {
    const TestStore store;
    EXPECT_EQ(
        statementsOf(store, forgetting(Rows{3, 1, 2})),
        Lines{"DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (3, 1, 2)"});
    EXPECT_EQ(statementsOf(store, forgetting(Rows{-1, 0, ZAVDatabaseIdentifierNotSet})),
              Lines{"DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN "
                    "(-1, 0, 9223372036854775807)"});
}

TEST(UnprocessedEventRemoval, TakesAStatementForEachFiveHundredEvents) {
    const TestStore store;
    EXPECT_EQ(statementsOf(store, forgetting(range(1, 500))), Lines{forgettingStatement(range(1, 500))});
    EXPECT_EQ(statementsOf(store, forgetting(range(1, 501))),
              (Lines{forgettingStatement(range(1, 500)), forgettingStatement({501})}));
    EXPECT_EQ(statementsOf(store, forgetting(range(1, 1000))),
              (Lines{forgettingStatement(range(1, 500)), forgettingStatement(range(501, 1000))}));
    EXPECT_EQ(statementsOf(store, forgetting(range(1, 1201))),
              (Lines{forgettingStatement(range(1, 500)), forgettingStatement(range(501, 1000)),
                     forgettingStatement(range(1001, 1201))}));
}

TEST(UnprocessedEventRemoval, ForgetsManyEventsWithAllTheirChangesAndNoOthers) {
    const TestStore store;
    addChanges(store, range(1, 1202));
    expectNoFailure(store, forgetting(range(1, 1201)), "true");
    EXPECT_EQ(store.rows("SELECT row_identifier FROM synced_changes"), Lines{"1202"});
}

TEST(UnprocessedEventRemoval, ForgetsEveryKindOfChangeOfTheEventsTableOnly) {
    const TestStore store;
    store.execute(
        "INSERT INTO events (database_identifier, type, client_id) VALUES (1, 2, x'01');"
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', 1, 0), "
        "('events', 1, 1), ('events', 1, 2), ('events', 1, 0), ('events', 2, 0), ('messages', 1, 0), "
        "('Events', 1, 0)");
    expectNoFailure(store, forgetting(Rows{1}), "true");
    EXPECT_EQ(store.rows("SELECT table_name, row_identifier, change_type FROM synced_changes "
                         "ORDER BY database_identifier"),
              (Lines{"events|2|0", "messages|1|0", "Events|1|0"}));
    EXPECT_EQ(store.repository().countOfEvents(), 1U) << "the events stay";
}

TEST(UnprocessedEventRemoval, LeavesNoForgottenEventUnprocessed) {
    const TestStore store;
    store.execute(
        "INSERT INTO events (database_identifier, type, client_id) VALUES (1, 2, x'01'), (2, 2, x'02')");
    addChanges(store, {1, 2});
    const auto unprocessed = store.repository().unprocessedEvents();
    ASSERT_TRUE(unprocessed);
    ASSERT_EQ(unprocessed->size(), 2U);
    EXPECT_TRUE(store.repository().deleteUnprocessedEvents(*unprocessed));
    EXPECT_EQ(store.repository().unprocessedEvents()->size(), 0U);
    EXPECT_EQ(store.repository().countOfEvents(), 2U);
}

TEST(UnprocessedEventRemoval, NamesARowOnceThatSeveralEventsShare) {
    const TestStore store;
    const auto operation = forgetting(eventsInRows({2, 1, 2, 2, 1, 3}), "{(2, 1, 3)}");
    expectNoFailure(store, operation, "true");
    EXPECT_EQ(statementsOf(store, operation), Lines{forgettingStatement({2, 1, 3})});
}

TEST(UnprocessedEventRemoval, NamesRowsOnceInWhateverOrderAndHoweverOftenTheyCome) {
    const TestStore store;
    EXPECT_EQ(
        statementsOf(store, forgetting(eventsInRows({1, 1, 2, 2, 5, 5}), "{(1, 2, 5)}")),
        Lines{"DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (1, 2, 5)"});
    EXPECT_EQ(
        statementsOf(store, forgetting(eventsInRows({5, 1, 5, 5, 2, 1, 2}), "{(5, 1, 2)}")),
        Lines{"DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (5, 1, 2)"});
}

TEST(UnprocessedEventRemoval, TakesRowsThatAHashTableWouldPutIntoOneBucket) {
    const TestStore store;
    constexpr ZAVDatabaseIdentifier bucketCounts = ZAVDatabaseIdentifier{85'229} * 172'933;
    Rows rows;
    for (ZAVDatabaseIdentifier number = 100'000; number > 0; --number) {
        rows.push_back(number * bucketCounts);
    }
    const StatementTrace trace(store.database());
    EXPECT_TRUE(store.repository().deleteUnprocessedEvents(eventsInRows(rows)));
    EXPECT_EQ(trace.statements().size(), 200U);
}

TEST(UnprocessedEventRemoval, OfEventsThatDoNotWaitIsNoFailure) {
    const TestStore store;
    expectNoFailure(store, forgetting(Rows{1, 2}), "true");
}

TEST(UnprocessedEventRemoval, OfNoEventsIsFalseWithoutAStatementAndWithoutAnError) {
    const TestStore store;
    const auto operation = forgetting({}, "{()}");
    expectNoFailure(store, operation, "false");
    EXPECT_EQ(statementsOf(store, operation, "false"), Lines{});
    store.execute("DROP TABLE synced_changes");
    expectNoFailure(store, operation, "false");
}

TEST(UnprocessedEventRemoval, StopsAtTheFirstFailingStatementAndKeepsWhatTheEarlierOnesDid) {
    const TestStore store;
    addChanges(store, range(1, 1201));
    refuse(store, "DELETE ON synced_changes WHEN OLD.row_identifier = 700");
    expectFailure(store, forgetting(range(1, 1201)), refusal());
    EXPECT_EQ(store.rows("SELECT MIN(row_identifier), MAX(row_identifier), COUNT(*) FROM synced_changes"),
              Lines{"501|1201|701"});
}

// Rows of events.

Operation deleting(const Rows& rows) {
    return {.call = [events = eventsInRows(rows)](
                        const ZAVEventRepository& repository,
                        ZAVError* error) { return answer(repository.deleteEvents(events, error)); },
            .log = lines("deleteEvents:error:", "deleting events", "failed to delete events with %@"),
            .answers = {.failing = "false"}};
}

/// A store with events in rows 1 to 4 at the sequences 11 to 14 of stream 1.
class EventStore : public TestStore {
public:
    EventStore() {
        execute(
            "INSERT INTO events (database_identifier, type, creator_id, seq, timestamp, preceding_seq, "
            "client_seq, subtype, member_id, target_seq, stream_database_identifier, client_id, "
            "creator_name) VALUES (1, 4, 'a', 11, 1, 2, 3, 4, 'b', 5, 1, x'01', 'c'), "
            "(2, 4, 'a', 12, 1, 2, 3, 4, 'b', 5, 1, x'02', 'c'), "
            "(3, 4, 'a', 13, 1, 2, 3, 4, 'b', 5, 1, x'03', 'c'), "
            "(4, 4, 'a', 14, 1, 2, 3, 4, 'b', 5, 1, x'04', 'c');"
            "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, value) "
            "VALUES (0, 1, 'text/plain', x'61'), (0, 2, 'text/plain', x'62');"
            "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', 1, 0);"
            "INSERT INTO messages (event_database_identifier, seq) VALUES (1, 11);"
            "INSERT INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, value) "
            "VALUES (1, 'event', 0, 'key', 'value');");
    }

    [[nodiscard]] Lines eventRows() const {
        return rows("SELECT database_identifier FROM events ORDER BY database_identifier");
    }

    /// How many rows refer to events: parts, changes, messages and keyed values.
    [[nodiscard]] Lines referringRows() const {
        return rows(
            "SELECT (SELECT COUNT(*) FROM event_content_parts), (SELECT COUNT(*) FROM synced_changes), "
            "(SELECT COUNT(*) FROM messages), (SELECT COUNT(*) FROM keyed_values_remote)");
    }
};

TEST(EventRemoval, TakesAStatementForEachEventInTheOrderOfTheSet) {
    const EventStore store;
    EXPECT_EQ(statementsOf(store, deleting({3, 1})),
              (Lines{"DELETE FROM events WHERE database_identifier = 3",
                     "DELETE FROM events WHERE database_identifier = 1"}));
    EXPECT_EQ(store.eventRows(), (Lines{"2", "4"}));
}

TEST(EventRemoval, LeavesAllThatRefersToTheEvents) {
    const EventStore store;
    EXPECT_TRUE(store.repository().deleteEvents(eventsInRows({1, 2, 3, 4})));
    EXPECT_EQ(store.eventRows(), Lines{});
    EXPECT_EQ(store.referringRows(), Lines{"2|1|1|1"});
}

TEST(EventRemoval, OfTwoEventsInOneRowTakesTwoStatements) {
    const EventStore store;
    EXPECT_EQ(statementsOf(store, deleting({2, 2})),
              (Lines{"DELETE FROM events WHERE database_identifier = 2",
                     "DELETE FROM events WHERE database_identifier = 2"}));
    EXPECT_EQ(store.eventRows(), (Lines{"1", "3", "4"}));
    expectNoFailure(store, deleting({2, 2}), "true");
}

TEST(EventRemoval, IsOfTheEventsOfTheCallWhateverAnObserverDoesToTheSet) {
    const TestStore store;
    for (const char* const row : {"1", "2", "3", "4"}) {
        store.execute(std::string("INSERT INTO events (database_identifier, type, client_id) VALUES (") +
                      row + ", 4, x'AA')");
    }
    ZAVSet<ZAVEvent> events = eventsInRows({1, 2, 3});
    store.database().setStatementObserver([&](const FMStatementRun&) {
        events.clear();
        events.insert(std::make_shared<ZAVEvent>(4, 1));
    });
    EXPECT_TRUE(store.repository().deleteEvents(events));
    store.database().setStatementObserver({});
    EXPECT_EQ(store.rows("SELECT database_identifier FROM events"), Lines{"4"});
}

TEST(EventRemoval, OfAnEventWithoutARowIsNoFailure) {
    const EventStore store;
    EXPECT_EQ(statementsOf(store, deleting({ZAVDatabaseIdentifierNotSet, -1, 0})),
              (Lines{"DELETE FROM events WHERE database_identifier = 9223372036854775807",
                     "DELETE FROM events WHERE database_identifier = -1",
                     "DELETE FROM events WHERE database_identifier = 0"}));
    EXPECT_EQ(store.eventRows(), (Lines{"1", "2", "3", "4"}));
}

TEST(EventRemoval, OfNoEventsIsFalseWithoutAStatementAndWithoutAnError) {
    const EventStore store;
    expectNoFailure(store, deleting({}), "false");
    EXPECT_EQ(statementsOf(store, deleting({}), "false"), Lines{});
    store.execute("DROP TABLE events");
    expectNoFailure(store, deleting({}), "false");
}

TEST(EventRemoval, StopsAtTheFirstFailingStatementAndKeepsWhatTheEarlierOnesDid) {
    const EventStore store;
    refuse(store, "DELETE ON events WHEN OLD.database_identifier = 2");
    expectFailure(store, deleting({4, 2, 1}), refusal());
    EXPECT_EQ(store.eventRows(), (Lines{"1", "2", "3"}));
    expectFailureWithoutAsking(store, deleting({2, 1}), refusal());
}

// Tombstones.

/// Tombstones the event at a sequence of a stream; `printed` is what the lines make of the stream's row.
Operation tombstoning(ZAVSequence seq, ZAVDatabaseIdentifier stream, const std::string& printed) {
    return {.call =
                [=](const ZAVEventRepository& repository, ZAVError* error) {
                    return answer(repository.persistTombstoneEventWithTargetSeq(seq, stream, error));
                },
            .log = lines("persistTombstoneEventWithTargetSeq:streamDatabaseIdentifier:error:",
                         "tombstoning event with seq:%d and streamDBID:%llu",
                         "failed to tombstone the event with seq:%d and streamDBID:%llu with %@",
                         {std::to_string(seq), printed}),
            .answers = {.failing = "false"}};
}

const Operation tombstoningTwelve = tombstoning(12, 1, "1");

Lines typesOf(const TestStore& store) {
    return store.rows("SELECT database_identifier, type FROM events ORDER BY database_identifier");
}

const Lines untouchedTypes{"1|4", "2|4", "3|4", "4|4"};

TEST(Tombstoning, TakesOneStatementForTheSequenceOfTheStream) {
    const EventStore store;
    EXPECT_EQ(statementsOf(store, tombstoningTwelve),
              Lines{"UPDATE events SET type = 10 WHERE seq = 12 AND stream_database_identifier = 1"});
    EXPECT_EQ(
        statementsOf(store, tombstoning(-1, 5000000000, "5000000000")),
        Lines{"UPDATE events SET type = 10 WHERE seq = -1 AND stream_database_identifier = 5000000000"});
}

TEST(Tombstoning, ChangesTheTypeAndNothingElse) {
    const EventStore store;
    store.execute(
        "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id) "
        "VALUES (5, 4, 12, 2, x'05'), (6, 4, 12, NULL, x'06')");
    expectNoFailure(store, tombstoningTwelve, "true");
    EXPECT_EQ(store.rows("SELECT * FROM events WHERE database_identifier = 2"),
              Lines{"2|10|a|12|1|2|3|4|b|5|1|X'02'|c"});
    EXPECT_EQ(typesOf(store), (Lines{"1|4", "2|10", "3|4", "4|4", "5|4", "6|4"}));
    EXPECT_EQ(store.referringRows(), Lines{"2|1|1|1"});
}

TEST(Tombstoning, OfASequenceThatDoesNotExistIsNoFailure) {
    const EventStore store;
    expectNoFailure(store, tombstoning(99, 1, "1"), "true");
    expectNoFailure(store, tombstoning(12, 2, "2"), "true");
    expectNoFailure(store, tombstoning(2147483647, 1, "1"), "true");
    EXPECT_EQ(typesOf(store), untouchedTypes);
}

TEST(Tombstoning, NeverReachesAnEventThatIsNotSequenced) {
    const EventStore store;
    store.execute("UPDATE events SET seq = NULL");
    expectNoFailure(store, tombstoning(0, 1, "1"), "true");
    EXPECT_EQ(typesOf(store), untouchedTypes);
}

TEST(Tombstoning, OfATombstoneIsNoFailure) {
    const EventStore store;
    expectNoFailure(store, tombstoningTwelve, "true");
    const Lines once = store.rows("SELECT * FROM events");
    expectNoFailure(store, tombstoningTwelve, "true");
    EXPECT_EQ(store.rows("SELECT * FROM events"), once);
}

TEST(Tombstoning, PrintsTheSequenceSignedAndTheStreamUnsigned) {
    const EventStore store;
    const auto operation = tombstoning(-7, -1, "18446744073709551615");
    expectNoFailure(store, operation, "true");
    store.execute("DROP TABLE events");
    expectFailure(store, operation, missingTable("events"));
}

}  // namespace
}  // namespace zav::test
