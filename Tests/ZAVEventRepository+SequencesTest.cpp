#include <ZAVEventRepository/DDLog.h>
#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Support/LogCapture.h"
#include "Support/OperationExpectations.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Lines = std::vector<std::string>;

constexpr ZAVSequence smallestSequence = std::numeric_limits<ZAVSequence>::min();

// What an event acquires when it is published.

/// A store with an event that was not published, row 41, and another one, row 42, at sequence 3 of its
/// stream.
class UnpublishedStore : public TestStore {
public:
    UnpublishedStore() {
        addStream(uuidNumber(1));
        execute(
            "INSERT INTO events (database_identifier, type, creator_id, seq, timestamp, preceding_seq, "
            "client_seq, subtype, member_id, target_seq, stream_database_identifier, client_id, "
            "creator_name) VALUES (41, 2, 'old', NULL, 1, 2, 3, 4, 'member', 5, 1, x'AB', 'name'), "
            "(42, 2, 'other', 3, 1, 2, 3, 4, 'member', 5, 1, x'CD', 'name')");
    }

    [[nodiscard]] Lines events() const { return rows("SELECT * FROM events ORDER BY database_identifier"); }
};

const Lines unpublished{"41|2|old|NULL|1|2|3|4|member|5|1|X'AB'|name",
                        "42|2|other|3|1|2|3|4|member|5|1|X'CD'|name"};

/// The event in row 41 as the service has published it.
std::shared_ptr<ZAVEvent> publishedEvent() {
    auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), 7);
    event->setDatabaseIdentifier(41);
    event->set_seq(12);
    event->set_creator_id("alice");
    event->set_server_timestamp(1700000000123);
    return event;
}

Lines statementsUpdating(const TestStore& store, const ZAVEvent& event) {
    const StatementTrace trace(store.database());
    EXPECT_TRUE(store.repository().updateObject(event)) << store.database().lastError().description();
    return trace.statements();
}

/// Updates an event, which must fail, and checks that the reason stays with the handle.
void expectSilentFailure(const TestStore& store, const ZAVEvent& event, const ZAVError& expected) {
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    EXPECT_FALSE(store.repository().updateObject(event, &error)) << "the failure was not reported";
    EXPECT_EQ(error, errorOfSomebodyElse()) << "the caller's error was written: " << error.description();
    EXPECT_EQ(store.database().lastError(), expected) << store.database().lastError().description();
    EXPECT_FALSE(store.repository().updateObject(event)) << "without an error the failure was not reported";
    EXPECT_EQ(log.records(), std::vector<LogRecord>{}) << "updating an event logs nothing";
    expectHandleIsAtRest(store);
}

TEST(EventSequence, IsRecordedWithTheCreatorAndTheTimestampAndChangesNoOtherColumnAndRow) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->set_type(EventType_TOMBSTONE);
    event->set_member_id("somebody");
    event->set_preceding_seq(77);
    event->set_target_seq(78);
    event->set_creator_name("Alice");
    event->setStreamDatabaseIdentifier(99);
    EXPECT_TRUE(store.repository().updateObject(*event));
    EXPECT_EQ(store.events(), (Lines{"41|2|alice|12|1700000000123|2|3|4|member|5|1|X'AB'|name",
                                     "42|2|other|3|1|2|3|4|member|5|1|X'CD'|name"}));
}

TEST(EventSequence, IsBoundAsTheNumberThatTheRecordHolds) {
    const UnpublishedStore store;
    const auto event = makeEvent(EventType_MESSAGE, uuidNumber(1), 7);
    event->setDatabaseIdentifier(41);
    EXPECT_EQ(statementsUpdating(store, *event),
              Lines{"UPDATE events SET seq = 0, creator_id = NULL, timestamp = 0 "
                    "WHERE database_identifier = 41"})
        << "an event that never had any of the three";
    event->set_seq(2147483647);
    EXPECT_EQ(statementsUpdating(store, *event),
              Lines{"UPDATE events SET seq = 2147483647, creator_id = NULL, timestamp = 0 "
                    "WHERE database_identifier = 41"})
        << "the marker of a missing sequence is a number like any other here";
    event->set_seq(smallestSequence);
    event->set_creator_id("");
    event->set_server_timestamp(-1);
    EXPECT_EQ(statementsUpdating(store, *event),
              Lines{"UPDATE events SET seq = -2147483648, creator_id = '', timestamp = -1 "
                    "WHERE database_identifier = 41"});
}

TEST(EventSequence, IsRecordedWhetherOrNotTheRecordsFieldsAreSet) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->unset_seq();
    event->unset_creator_id();
    event->unset_server_timestamp();
    EXPECT_EQ(statementsUpdating(store, *event),
              Lines{"UPDATE events SET seq = 12, creator_id = 'alice', timestamp = 1700000000123 "
                    "WHERE database_identifier = 41"});
}

TEST(EventSequence, TakesTheCreatorAwayWhenTheRecordHasNone) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->set_creator_id(std::nullopt);
    EXPECT_TRUE(store.repository().updateObject(*event));
    EXPECT_EQ(store.events()[0], "41|2|NULL|12|1700000000123|2|3|4|member|5|1|X'AB'|name");
}

TEST(EventSequence, KeepsATimestampOfSixtyFourBits) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->set_server_timestamp(std::numeric_limits<std::int64_t>::max());
    EXPECT_TRUE(store.repository().updateObject(*event));
    EXPECT_EQ(store.rows("SELECT timestamp FROM events WHERE database_identifier = 41"),
              Lines{"9223372036854775807"});
}

TEST(EventSequence, OfAnEventWithoutARowIsNoFailure) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->setDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
    EXPECT_EQ(statementsUpdating(store, *event),
              Lines{"UPDATE events SET seq = 12, creator_id = 'alice', timestamp = 1700000000123 "
                    "WHERE database_identifier = 9223372036854775807"});
    EXPECT_EQ(store.events(), unpublished);
}

TEST(EventSequence, OfAnEventWhoseRowWasDeletedIsNoFailure) {
    const UnpublishedStore store;
    store.execute("DELETE FROM events WHERE database_identifier = 41");
    EXPECT_TRUE(store.repository().updateObject(*publishedEvent()));
    EXPECT_EQ(store.events(), Lines{unpublished[1]});
}

TEST(EventSequence, LeavesTheRecordAsItWas) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->unset_seq();
    const std::string before = event->description();
    EXPECT_TRUE(store.repository().updateObject(*event));
    EXPECT_EQ(event->description(), before);
    EXPECT_FALSE(event->seqIsSet());
}

TEST(EventSequence, MovesAnEventFromThePublishableToThePosted) {
    const UnpublishedStore store;
    EXPECT_EQ(store.repository().publishableEvents()->size(), 1U);
    EXPECT_EQ(store.repository().postedAndProcessedEvents()->size(), 1U);
    EXPECT_TRUE(store.repository().updateObject(*publishedEvent()));
    EXPECT_EQ(store.repository().publishableEvents()->size(), 0U);
    EXPECT_EQ(store.repository().postedAndProcessedEvents()->size(), 2U);
}

TEST(EventSequence, NeedsAStreamIdentifierWhateverElseTheEventHas) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->set_stream_id(std::nullopt);
    event->setStreamDatabaseIdentifier(1);
    ZAVError error = errorOfSomebodyElse();
    const LogCapture log;
    const StatementTrace trace(store.database());
    try {
        static_cast<void>(store.repository().updateObject(*event, &error));
        ADD_FAILURE() << "an event without a stream identifier was to be refused";
    } catch (const NSInternalInconsistencyException& exception) {
        EXPECT_EQ(exception.name(), "NSInternalInconsistencyException");
        EXPECT_EQ(exception.reason(),
                  "Failed to persist sequence by event. Event's stream_id property shouldn't be `nil`, since "
                  "it's not possible to publish events for streams that don't exist in the data source yet.");
    }
    EXPECT_EQ(error, errorOfSomebodyElse()) << "an exception is no error: " << error.description();
    EXPECT_EQ(log.records(), std::vector<LogRecord>{});
    EXPECT_EQ(trace.statements(), Lines{});
    EXPECT_EQ(store.events(), unpublished);
}

TEST(EventSequence, NeedsNoMoreOfTheStreamIdentifierThanThatThereIsOne) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->set_stream_id(ZAVData());
    EXPECT_TRUE(store.repository().updateObject(*event));
    EXPECT_EQ(store.events()[0], "41|2|alice|12|1700000000123|2|3|4|member|5|1|X'AB'|name");
}

TEST(EventSequence, FailsSilentlyWhenAnotherEventOfTheStreamHasIt) {
    const UnpublishedStore store;
    const auto event = publishedEvent();
    event->set_seq(3);
    expectSilentFailure(store, *event,
                        ZAVError("SQLite", SQLITE_CONSTRAINT_UNIQUE,
                                 "UNIQUE constraint failed: events.stream_database_identifier, events.seq"));
    EXPECT_EQ(store.events(), unpublished);
}

// The sequence up to which a member of a conversation has progressed.

/// Records a sequence for a member of the conversation of stream `uuidNumber(1)`; `printed` is what the lines
/// make of the sequence.
Operation participantSeq(ZAVSequence seq, const std::string& member, const std::string& printed) {
    return {
        .call =
            [=](const ZAVEventRepository& repository, ZAVError* error) {
                return answer(
                    repository.persistConversationsParticipantsSeq(seq, member, uuidNumber(1), error));
            },
        .log = lines(
            "persistConversationsParticipantsSeq:memberID:streamIdentifier:error:",
            "persisting conversations participant's seq:%u for member:%@ with stream identifier:%@",
            "failed persisting conversations participant's seq:%u for member:%@ with stream identifier:%@ with %@",
            {printed, member, "11111111-1111-1111-1111-111111111101"}),
        .answers = {.failing = "false"},
        .report = FailureReport::verboseLine};
}

const Operation aliceAtTwelve = participantSeq(12, "alice", "12");

/// A store whose stream 1 has conversation 7 with alice and bob, and stream 2 conversation 8 with alice.
class ConversationStore : public TestStore {
public:
    ConversationStore() {
        execute(
            "INSERT INTO conversations (database_identifier, stream_id) VALUES "
            "(7, x'11111111111111111111111111111101'), (8, x'11111111111111111111111111111102');"
            "INSERT INTO conversation_participants (database_identifier, conversation_database_identifier, "
            "member_id, seq) VALUES (1, 7, 'alice', 20), (2, 7, 'bob', 20), (3, 8, 'alice', 20);");
    }

    [[nodiscard]] Lines participants() const {
        return rows("SELECT * FROM conversation_participants ORDER BY database_identifier");
    }
};

const Lines untouchedParticipants{"1|7|alice|20", "2|7|bob|20", "3|8|alice|20"};

TEST(ParticipantSequence, IsRecordedForTheMemberOfTheConversationThatIsLookedUpByTheStream) {
    const ConversationStore store;
    expectNoFailure(store, aliceAtTwelve, "true");
    EXPECT_EQ(store.participants(), (Lines{"1|7|alice|12", "2|7|bob|20", "3|8|alice|20"}))
        << "a smaller sequence overwrites a larger one, and no other row changes";
}

TEST(ParticipantSequence, OfSomebodyWhoIsNoParticipantIsNoFailure) {
    const ConversationStore store;
    expectNoFailure(store, participantSeq(12, "carol", "12"), "true");
    expectNoFailure(store, participantSeq(12, "", "12"), "true");
    expectNoFailure(store, participantSeq(12, "ALICE", "12"), "true");
    EXPECT_EQ(store.participants(), untouchedParticipants);
}

TEST(ParticipantSequence, InAStreamWithoutAConversationIsNotRecordedAndNoError) {
    const TestStore store;
    store.execute(
        "INSERT INTO conversations (database_identifier, stream_id) VALUES (7, NULL);"
        "INSERT INTO conversation_participants (conversation_database_identifier, member_id, seq) "
        "VALUES (7, 'alice', 20), (0, 'alice', 20)");
    expectNoFailure(store, aliceAtTwelve, "false");
    EXPECT_EQ(statementsOf(store, aliceAtTwelve, "false"),
              Lines{"SELECT conversations.database_identifier FROM conversations "
                    "WHERE conversations.stream_id = x'11111111111111111111111111111101'"});
    EXPECT_EQ(store.rows("SELECT DISTINCT seq FROM conversation_participants"), Lines{"20"});
}

TEST(ParticipantSequence, IsStoredSignedAndPrintedUnsigned) {
    const ConversationStore store;
    expectNoFailure(store, participantSeq(-1, "alice", "4294967295"), "true");
    EXPECT_EQ(store.participants()[0], "1|7|alice|-1");
    expectNoFailure(store, participantSeq(smallestSequence, "alice", "2147483648"), "true");
    EXPECT_EQ(store.participants()[0], "1|7|alice|-2147483648");
    refuse(store, "UPDATE ON conversation_participants");
    expectFailure(store, participantSeq(-1, "alice", "4294967295"), refusal());
}

TEST(ParticipantSequence, IsStoredAlsoWhenItIsTheMarkerOfAMissingOne) {
    const ConversationStore store;
    expectNoFailure(store, participantSeq(2147483647, "alice", "2147483647"), "true");
    EXPECT_EQ(store.participants()[0], "1|7|alice|2147483647");
}

TEST(ParticipantSequence, IsRecordedInTheFirstOfSeveralConversationsOnly) {
    const ConversationStore store;
    store.execute(
        "UPDATE conversations SET stream_id = x'11111111111111111111111111111101' "
        "WHERE database_identifier = 8");
    const std::string first = store.rows(
        "SELECT conversations.database_identifier FROM conversations "
        "WHERE conversations.stream_id = x'11111111111111111111111111111101'")[0];
    expectNoFailure(store, aliceAtTwelve, "true");
    EXPECT_EQ(store.rows("SELECT conversation_database_identifier FROM conversation_participants "
                         "WHERE seq = 12"),
              Lines{first});
}

TEST(ParticipantSequence, ReachesAConversationWhoseRowTakesSixtyFourBits) {
    const ConversationStore store;
    store.execute(
        "UPDATE conversations SET database_identifier = 5000000000 WHERE database_identifier = 7;"
        "UPDATE conversation_participants SET conversation_database_identifier = 5000000000 "
        "WHERE conversation_database_identifier = 7");
    expectNoFailure(store, aliceAtTwelve, "true");
    EXPECT_EQ(store.participants()[0], "1|5000000000|alice|12");
}

TEST(ParticipantSequence, TakesAMemberForTextAndForNothingElse) {
    const ConversationStore store;
    store.execute("UPDATE conversation_participants SET member_id = 'o''%@ %d' WHERE member_id = 'bob'");
    expectNoFailure(store, participantSeq(12, "o'%@ %d", "12"), "true");
    EXPECT_EQ(store.participants(), (Lines{"1|7|alice|20", "2|7|o'%@ %d|12", "3|8|alice|20"}));
}

TEST(ParticipantSequence, ReportsInAVerboseLineThatTheConversationCannotBeLookedUp) {
    const ConversationStore store;
    store.execute("DROP TABLE conversations; CREATE TABLE conversations (stream_id BLOB)");
    const ZAVError error("SQLite", SQLITE_ERROR, "no such column: conversations.database_identifier");
    expectFailure(store, aliceAtTwelve, error);
    expectFailureWithoutAsking(store, aliceAtTwelve, error);
    EXPECT_EQ(store.participants(), untouchedParticipants);
}

TEST(ParticipantSequence, FailsWithoutALineWhenOnlyErrorsAreLogged) {
    const ConversationStore store;
    refuse(store, "UPDATE ON conversation_participants");
    const LogCapture log;
    gZAVLogPreferences[ZAVLogComponentModel] = 4;
    ZAVError error;
    EXPECT_EQ(aliceAtTwelve.call(store.repository(), &error).value, "false");
    EXPECT_EQ(error, refusal()) << error.description();
    EXPECT_EQ(log.records(), std::vector<LogRecord>{});
}

// The sequence of the message that an event carries.

/// Records a sequence for the message of an event; `printed` is what the lines make of the event's row.
Operation messageSeq(ZAVSequence seq, ZAVDatabaseIdentifier event, const std::string& printed) {
    return {.call = [=](const ZAVEventRepository& repository,
                        ZAVError* error) { return answer(repository.persistMessageSeq(seq, event, error)); },
            .log = lines("persistMessageSeq:eventDatabaseIdentifier:error:",
                         "updating message's seq:%d event database ID:%llu",
                         "failed to update message's seq:%d event database ID:%llu with %@",
                         {std::to_string(seq), printed}),
            .answers = {.failing = "false"}};
}

const Operation messageAtTwelve = messageSeq(12, 3, "3");

class MessageStore : public TestStore {
public:
    MessageStore() {
        execute(
            "INSERT INTO messages (database_identifier, event_database_identifier, seq) "
            "VALUES (1, 3, 20), (2, 4, 20), (3, NULL, 20)");
    }

    [[nodiscard]] Lines messages() const {
        return rows("SELECT * FROM messages ORDER BY database_identifier");
    }
};

const Lines untouchedMessages{"1|3|20", "2|4|20", "3|NULL|20"};

TEST(MessageSequence, IsRecordedForTheMessageOfTheEvent) {
    const MessageStore store;
    expectNoFailure(store, messageAtTwelve, "true");
    EXPECT_EQ(store.messages(), (Lines{"1|3|12", "2|4|20", "3|NULL|20"}))
        << "a smaller sequence overwrites a larger one, and no other row changes";
}

TEST(MessageSequence, OfAnEventThatCarriesNoMessageIsNoFailure) {
    const MessageStore store;
    expectNoFailure(store, messageSeq(12, 99, "99"), "true");
    expectNoFailure(store, messageSeq(12, ZAVDatabaseIdentifierNotSet, "9223372036854775807"), "true");
    EXPECT_EQ(store.messages(), untouchedMessages);
}

TEST(MessageSequence, IsPrintedSignedAndItsEventUnsigned) {
    const MessageStore store;
    store.execute("UPDATE messages SET event_database_identifier = -1 WHERE database_identifier = 2");
    expectNoFailure(store, messageSeq(-1, -1, "18446744073709551615"), "true");
    EXPECT_EQ(store.messages(), (Lines{"1|3|20", "2|-1|-1", "3|NULL|20"}));
    refuse(store, "UPDATE ON messages");
    expectFailure(store, messageSeq(-1, -1, "18446744073709551615"), refusal());
}

TEST(MessageSequence, IsStoredAlsoWhenItIsTheMarkerOfAMissingOne) {
    const MessageStore store;
    expectNoFailure(store, messageSeq(2147483647, 3, "3"), "true");
    EXPECT_EQ(store.messages()[0], "1|3|2147483647");
}

}  // namespace
}  // namespace zav::test
