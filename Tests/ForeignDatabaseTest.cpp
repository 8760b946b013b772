#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Operations/Answers.h"
#include "Operations/Catalogue.h"
#include "Support/DatabaseHandles.h"
#include "Support/SchemaVersion.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

const std::vector<std::pair<std::string, std::string>> tables{
    {"streams", "database_identifier, stream_id, seq"},
    {"events",
     "database_identifier, type, creator_id, seq, timestamp, preceding_seq, client_seq, subtype, member_id, "
     "target_seq, stream_database_identifier, client_id, creator_name"},
    {"event_content_parts",
     "database_identifier, event_content_part_id, event_database_identifier, type, value, access_expiration, "
     "url, size, transfer_status, file_path, last_accessed, purged"},
    {"synced_changes", "database_identifier, table_name, row_identifier, change_type"},
    {"conversations", "database_identifier, stream_id"},
    {"conversation_participants", "database_identifier, conversation_database_identifier, member_id, seq"},
    {"messages", "database_identifier, event_database_identifier, seq"},
    {"keyed_values_local", "object_database_identifier, object_type, key_type, key, value, timestamp"},
    {"keyed_values_remote", "object_database_identifier, object_type, key_type, key, value, timestamp"},
    {"stream_recency", "stream_database_identifier, timestamp"}};

/// A database of the library's version that something else made: the tables have their columns, but no types,
/// keys or constraints, so that each column can hold anything.
class ForeignStore {
public:
    ForeignStore() {
        const std::string path = directory_.file("foreign.db");
        std::string script = "PRAGMA user_version = " + schemaVersionText + ";";
        for (const auto& [table, columns] : tables) {
            script += "CREATE TABLE " + table + " (" + columns + ");";
        }
        run(*openHandle(path), script);
        ZAVError error;
        database_ = ZAVDatabaseSchema::openDatabase(path, {}, &error);
        if (!database_) {
            throw std::runtime_error("a foreign database of the right version is refused: " +
                                     error.description());
        }
    }

    void execute(const std::string& sql) const { run(*database_, sql); }

    /// A row whose every column holds `literal`.
    void addRowOf(const std::string& table, const std::string& columns, const std::string& literal) const {
        std::string values = literal;
        for (const char character : columns) {
            values += character == ',' ? ", " + literal : "";
        }
        execute("INSERT INTO " + table + " (" + columns + ") VALUES (" + values + ")");
    }

    [[nodiscard]] FMDatabase& database() const { return *database_; }
    [[nodiscard]] ZAVEventRepository repository() const { return ZAVEventRepository(database_); }

private:
    TemporaryDirectory directory_;
    std::shared_ptr<FMDatabase> database_;
};

/// One event, in row 1, in a stream that is known, with one part at index 0. Every other column is NULL.
class OneEventForeignStore : public ForeignStore {
public:
    OneEventForeignStore() {
        execute(
            "INSERT INTO streams (database_identifier, stream_id) VALUES"
            " (1, x'11111111111111111111111111111101');"
            "INSERT INTO events (database_identifier, stream_database_identifier) VALUES (1, 1);"
            "INSERT INTO event_content_parts (database_identifier, event_content_part_id,"
            " event_database_identifier) VALUES (1, 0, 1)");
    }

private:
    template <class Read>
    [[nodiscard]] auto readWith(const std::string& table, const std::string& column,
                                const std::string& literal, const Read& read) const {
        execute("UPDATE " + table + " SET " + column + " = " + literal);
        auto record = read();
        if (record == nullptr) {
            throw std::runtime_error("no record with " + table + "." + column + " = " + literal);
        }
        execute("UPDATE " + table + " SET " + column + " = NULL");
        return record;
    }

public:
    /// The event when `column` holds `literal`; the column is NULL again afterwards.
    [[nodiscard]] std::shared_ptr<ZAVEvent> eventWith(const std::string& column,
                                                      const std::string& literal) const {
        return readWith("events", column, literal, [&] {
            ZAVError error;
            auto event = repository().eventForDatabaseIdentifier(1, &error);
            EXPECT_FALSE(error) << error.description();
            return event;
        });
    }

    /// The part when `column` of `table` holds `literal`.
    [[nodiscard]] std::shared_ptr<ZAVEventContent> partWith(
        const std::string& column, const std::string& literal,
        const std::string& table = "event_content_parts") const {
        return readWith(table, column, literal, [&] {
            ZAVError error;
            auto part = repository().eventContentDatabaseIdentifier(1, &error);
            EXPECT_FALSE(error) << error.description();
            return part;
        });
    }
};

/// Makes a call that must not fail, whatever the tables hold; what it answers.
std::string answerOf(const ForeignStore& store, const std::function<Answer(ZAVError*)>& call) {
    ZAVError error;
    Answer answer;
    EXPECT_NO_THROW(answer = call(&error));
    EXPECT_FALSE(error) << error.description();
    EXPECT_EQ(store.database().openResultSets(), 0U) << "a cursor stayed open";
    return answer.summary();
}

/// Runs every operation of the event repository and expects that none fails, whatever the tables hold.
void expectEveryOperationToSucceed(const ForeignStore& store) {
    // The streams that the operations name.
    store.execute(
        "INSERT INTO streams (database_identifier, stream_id) VALUES (70, x'111111111111111111111111111111AA');"
        "INSERT INTO streams (database_identifier) SELECT 1 WHERE NOT EXISTS"
        " (SELECT 1 FROM streams WHERE database_identifier = 1)");
    const ZAVEventRepository repository = store.repository();
    // Zero may be among what the tables hold, unlike the rows that the operations of the catalogue look for.
    answerOf(store, [&](auto* error) {
        return answer(repository.eventsFromRevivedStreamWithStreamDatabaseIdentifier(0, error));
    });
    answerOf(store, [&](auto* error) { return answer(repository.eventWithSeq(0, uuidNumber(0xAA), error)); });
    answerOf(store, [&](auto* error) { return answer(repository.eventForDatabaseIdentifier(0, error)); });
    answerOf(store, [&](auto* error) { return answer(repository.eventContentDatabaseIdentifier(0, error)); });
    answerOf(store, [&](auto* error) {
        return answer(repository.eventContentForEventDatabaseIdentifier(0, 0, error));
    });
    answerOf(store, [&](auto* error) {
        return answer(
            repository.eventContentForMessagePart(ZAVMessagePart(std::make_shared<ZAVMessage>(0), 0), error));
    });
    answerOf(store, [&](auto* error) {
        return answer(repository.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
            std::set<std::string>{"4"}, 0, 100, error));
    });
    for (const Operation& operation : operationsOfTheEventRepository()) {
        SCOPED_TRACE(operation);
        const std::string answered =
            answerOf(store, [&](ZAVError* error) { return operation.call(repository, error); });
        EXPECT_TRUE(answered != operation.answers.failing || answered == operation.answers.empty) << answered;
    }
    EXPECT_EQ(
        scalar(store.database(), "SELECT COUNT(*) > 0 FROM events WHERE stream_database_identifier = 70"),
        "1")
        << "no event was stored in the stream that it names";
    const auto events = repository.allEvents();
    ASSERT_TRUE(events);
    EXPECT_TRUE(repository.deleteUnprocessedEvents(*events));
    EXPECT_TRUE(repository.deleteEvents(*events));
}

struct Filling {
    const char* name;
    const char* literal;
};

void PrintTo(const Filling& filling, std::ostream* stream) {
    *stream << filling.literal;
}

std::string nameOf(const testing::TestParamInfo<Filling>& filling) {
    return filling.param.name;
}

class TablesFilledWithOneValue : public testing::TestWithParam<Filling> {};

INSTANTIATE_TEST_SUITE_P(Of, TablesFilledWithOneValue,
                         testing::Values(Filling{"Null", "NULL"}, Filling{"Zero", "0"}, Filling{"One", "1"},
                                         Filling{"Four", "4"}, Filling{"MinusOne", "-1"},
                                         Filling{"GreatestInteger", "9223372036854775807"},
                                         Filling{"LeastInteger", "-9223372036854775808"},
                                         Filling{"Fraction", "1.5"}, Filling{"HugeReal", "1e300"},
                                         Filling{"Infinity", "9e999"}, Filling{"EmptyText", "''"},
                                         Filling{"Text", "'a text, with blanks'"},
                                         Filling{"NumberAsText", "'4'"}, Filling{"EmptyBlob", "x''"},
                                         Filling{"Blob", "x'00FF'"}, Filling{"LongBlob", "zeroblob(16)"},
                                         Filling{"TextThatIsNoUTF8", "CAST(x'FFFE4100D800' AS TEXT)"}),
                         nameOf);

TEST_P(TablesFilledWithOneValue, AreReadAndWrittenByEveryOperation) {
    const ForeignStore store;
    for (const auto& [table, columns] : tables) {
        store.addRowOf(table, columns, GetParam().literal);
    }
    EXPECT_EQ(store.repository().countOfEvents(), 1U);
    const auto events = store.repository().allEvents();
    ASSERT_TRUE(events);
    EXPECT_EQ(events->size(), 1U) << "the event must not be lost, whatever it holds";
    expectEveryOperationToSucceed(store);
}

TEST(ForeignDatabase, RowsOfEveryKindSideBySideAreReadAndWrittenByEveryOperation) {
    const ForeignStore store;
    const std::vector<std::string> literals{"NULL", "0",        "4",   "-1",     "1.5",
                                            "''",   "'a text'", "x''", "x'00FF'"};
    for (const auto& [table, columns] : tables) {
        for (const std::string& literal : literals) {
            store.addRowOf(table, columns, literal);
        }
    }
    EXPECT_EQ(store.repository().countOfEvents(), literals.size());
    expectEveryOperationToSucceed(store);
}

TEST(ForeignDatabase, AnEventOfNullsHasNothing) {
    const ForeignStore store;
    store.addRowOf(tables[1].first, tables[1].second, "NULL");
    const auto events = store.repository().unpublishableEvents();
    ASSERT_TRUE(events);
    ASSERT_EQ(events->size(), 1U);
    const ZAVEvent& event = *(*events)[0];
    EXPECT_EQ(event.databaseIdentifier(), 0);
    EXPECT_EQ(event.streamDatabaseIdentifier(), 0);
    EXPECT_EQ(event.type(), 0);
    EXPECT_EQ(event.client_id(), std::nullopt);
    EXPECT_EQ(event.stream_id(), std::nullopt);
    EXPECT_EQ(event.creator_id(), std::nullopt);
    EXPECT_EQ(event.creator_name(), std::nullopt);
    EXPECT_EQ(event.member_id(), std::nullopt);
    EXPECT_EQ(event.seq(), 0);
    EXPECT_EQ(event.client_seq(), 0);
    EXPECT_EQ(event.preceding_seq(), 0);
    EXPECT_EQ(event.subtype(), 0);
    EXPECT_EQ(event.server_timestamp(), 0);
    EXPECT_FALSE(event.target_seqIsSet());
    EXPECT_EQ(event.content(), std::nullopt);
    ASSERT_TRUE(event.transient_metadata());
    EXPECT_TRUE(event.transient_metadata()->empty());
}

TEST(ForeignDatabase, ANumberOfAnEventIsReadFromTextAsFarAsItGoes) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.eventWith("client_seq", "'12'")->client_seq(), 12);
    EXPECT_EQ(store.eventWith("client_seq", "'12 or so'")->client_seq(), 12);
    EXPECT_EQ(store.eventWith("client_seq", "'twelve'")->client_seq(), 0);
    EXPECT_EQ(store.eventWith("client_seq", "x'3132'")->client_seq(), 12);
    EXPECT_EQ(store.eventWith("preceding_seq", "''")->preceding_seq(), 0);
    EXPECT_EQ(store.eventWith("timestamp", "'1700000000123'")->server_timestamp(), 1700000000123);
    EXPECT_EQ(store.eventWith("seq", "'7'")->seq(), 7);
}

TEST(ForeignDatabase, ANumberOfAnEventIsReadFromARealNumberWithoutItsFraction) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.eventWith("client_seq", "12.9")->client_seq(), 12);
    EXPECT_EQ(store.eventWith("client_seq", "-12.9")->client_seq(), -12);
    EXPECT_EQ(store.eventWith("timestamp", "1e300")->server_timestamp(),
              std::numeric_limits<std::int64_t>::max());
}

TEST(ForeignDatabase, ANumberOfAnEventThatIsTooLargeIsReadThroughItsLowBits) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.eventWith("client_seq", "4294967301")->client_seq(), 5);
    EXPECT_EQ(store.eventWith("preceding_seq", "2147483648")->preceding_seq(),
              std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(store.eventWith("subtype", "257")->subtype(), 1);
    EXPECT_EQ(store.eventWith("subtype", "-1")->subtype(), 255);
    EXPECT_EQ(store.eventWith("subtype", "'300'")->subtype(), 44);
    EXPECT_EQ(store.eventWith("type", "4294967300")->type(), EventType_MESSAGE);
}

TEST(ForeignDatabase, AnUnknownTypeOfAnEventIsKeptAsItsNumber) {
    const OneEventForeignStore store;
    for (const int type : {0, -1, 7, 12, 99, 2147483647}) {
        EXPECT_EQ(store.eventWith("type", std::to_string(type))->type(), static_cast<ZAVTEventType>(type));
    }
}

TEST(ForeignDatabase, AnEventOfAnUnknownTypeIsPublishableAndAMessageByItsTextIsAMessage) {
    const OneEventForeignStore store;
    const auto publishableCount = [&] {
        const auto events = store.repository().publishableEvents();
        EXPECT_TRUE(events);
        return events ? events->size() : 0;
    };
    store.execute("UPDATE events SET type = 99");
    EXPECT_EQ(publishableCount(), 1U);
    store.execute("UPDATE events SET type = '4'");
    EXPECT_EQ(publishableCount(), 0U) << "its part is not transferred";
    store.execute("UPDATE event_content_parts SET transfer_status = '4'");
    EXPECT_EQ(publishableCount(), 1U);
    store.execute("UPDATE event_content_parts SET transfer_status = 99");
    EXPECT_EQ(publishableCount(), 0U) << "an unknown state is not that of a complete transfer";
}

TEST(ForeignDatabase, ATextOfAnEventIsReadFromBytesAndNumbers) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.eventWith("creator_id", "x'616263'")->creator_id(), "abc");
    EXPECT_EQ(store.eventWith("creator_id", "x''")->creator_id(), "");
    EXPECT_EQ(store.eventWith("creator_id", "12")->creator_id(), "12");
    EXPECT_EQ(store.eventWith("creator_name", "1.5")->creator_name(), "1.5");
    EXPECT_EQ(store.eventWith("member_id", "x'610062'")->member_id(), std::string("a\0b", 3));
    EXPECT_EQ(store.eventWith("member_id", "''")->member_id(), "") << "an empty text is not absent";
}

TEST(ForeignDatabase, ATargetThatIsNotNullIsSetWhateverItHolds) {
    const OneEventForeignStore store;
    EXPECT_FALSE(store.eventWith("target_seq", "NULL")->target_seqIsSet());
    for (const auto& [literal, number] : std::vector<std::pair<std::string, int>>{
             {"0", 0}, {"'5'", 5}, {"'none'", 0}, {"x''", 0}, {"2147483647", 2147483647}}) {
        const auto event = store.eventWith("target_seq", literal);
        EXPECT_TRUE(event->target_seqIsSet()) << literal;
        EXPECT_EQ(event->target_seq(), number) << literal;
    }
}

TEST(ForeignDatabase, AnEventsClientIdentifierIsTheStoredBytesWhateverTheirNumber) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.eventWith("client_id", "NULL")->client_id(), std::nullopt);
    EXPECT_EQ(store.eventWith("client_id", "x''")->client_id(), ZAVData()) << "no bytes are not absent";
    EXPECT_EQ(store.eventWith("client_id", "x'616263'")->client_id(), ZAVData::fromText("abc"));
    EXPECT_EQ(store.eventWith("client_id", "'abc'")->client_id(), ZAVData::fromText("abc"));
    EXPECT_EQ(store.eventWith("client_id", "12")->client_id(), ZAVData::fromText("12"));
}

TEST(ForeignDatabase, AStreamIdentifierOfOddLengthIsKeptAsBytesButIsNoUUID) {
    const OneEventForeignStore store;
    store.execute("UPDATE streams SET stream_id = x'616263'");
    const auto event = store.repository().eventForDatabaseIdentifier(1);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->stream_id(), ZAVData::fromText("abc"));
    EXPECT_EQ(event->streamUUID(), std::nullopt);
    store.execute("UPDATE streams SET stream_id = x''");
    const auto empty = store.repository().eventForDatabaseIdentifier(1);
    ASSERT_NE(empty, nullptr);
    EXPECT_EQ(empty->stream_id(), ZAVData());
}

TEST(ForeignDatabase, OfTwoEventsAtOneSequenceOneIsFound) {
    const OneEventForeignStore store;
    store.execute(
        "UPDATE events SET seq = 3;"
        "INSERT INTO events (database_identifier, seq, stream_database_identifier) VALUES (2, 3, 1)");
    ZAVError error;
    EXPECT_NE(store.repository().eventWithSeq(3, uuidNumber(1), &error), nullptr);
    EXPECT_FALSE(error) << error.description();
    EXPECT_EQ(store.database().openResultSets(), 0U);
}

TEST(ForeignDatabase, MetadataOfEveryStorageTypeAreReadAsBytes) {
    const OneEventForeignStore store;
    store.execute(
        "INSERT INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, value)"
        " VALUES (1, 'event', 0, 'text', 'abc'), (1, 'event', 0, 'bytes', x'00FF'),"
        " (1, 'event', 0, 'number', 12), (1, 'event', 0, 'null', NULL), (1, 'event', 0, NULL, 'no key')");
    ZAVError error;
    const auto event = store.repository().eventForDatabaseIdentifier(1, &error);
    ASSERT_NE(event, nullptr);
    EXPECT_FALSE(error) << error.description();
    ASSERT_TRUE(event->transient_metadata());
    const auto valueOf = [&](const char* key) {
        const auto* value = event->transient_metadata()->find(key);
        return value == nullptr ? ZAVDictionaryValue(std::string("missing")) : *value;
    };
    EXPECT_EQ(valueOf("text"), ZAVDictionaryValue(ZAVData::fromText("abc")));
    EXPECT_EQ(valueOf("bytes"), ZAVDictionaryValue(ZAVData("\x00\xFF", 2)));
    EXPECT_EQ(valueOf("number"), ZAVDictionaryValue(ZAVData::fromText("12")));
}

TEST(ForeignDatabase, APartOfNullsHasItsDefaults) {
    const ForeignStore store;
    store.addRowOf(tables[2].first, tables[2].second, "NULL");
    store.execute("UPDATE event_content_parts SET database_identifier = 1");
    const auto part = store.repository().eventContentDatabaseIdentifier(1);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->index(), 0);
    EXPECT_EQ(part->eventDatabaseIdentifier(), 0);
    EXPECT_EQ(part->media_type(), "application/octet-stream");
    EXPECT_EQ(part->body(), ZAVData()) << "a part without a URL has inline data, here none";
    EXPECT_EQ(part->externalContentURLExpiration(), std::nullopt);
    EXPECT_EQ(part->external_url(), std::nullopt);
    EXPECT_EQ(part->size(), 0);
    EXPECT_EQ(part->transferStatus(), ZAVContentTransferAwaitingUpload);
    EXPECT_EQ(part->fileURL(), std::nullopt);
    EXPECT_EQ(part->lastAccessed(), std::nullopt);
    EXPECT_FALSE(part->isPurged());
    EXPECT_EQ(part->eventClientID(), std::nullopt);
    EXPECT_EQ(part->eventSeq(), ZAVSequenceNotSet);
    EXPECT_EQ(part->streamUUID(), std::nullopt);
}

TEST(ForeignDatabase, AnOrphanedPartKeepsTheRowOfItsEvent) {
    const OneEventForeignStore store;
    const auto orphan = store.partWith("event_database_identifier", "99");
    EXPECT_EQ(orphan->eventDatabaseIdentifier(), 99);
    EXPECT_EQ(orphan->eventClientID(), std::nullopt);
    EXPECT_EQ(orphan->eventSeq(), ZAVSequenceNotSet);
    EXPECT_EQ(orphan->streamUUID(), std::nullopt);
}

TEST(ForeignDatabase, APartWhoseStreamIsMissingKeepsWhatItsEventTells) {
    const OneEventForeignStore store;
    store.execute(
        "DELETE FROM streams;"
        "UPDATE events SET seq = 3, client_id = x'11111111111111111111111111111102'");
    const auto part = store.repository().eventContentDatabaseIdentifier(1);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(part->eventClientID(), uuidNumber(2));
    EXPECT_EQ(part->eventSeq(), 3);
    EXPECT_EQ(part->streamUUID(), std::nullopt);
}

TEST(ForeignDatabase, AnIdentifierWithoutBytesOrOfOddLengthIsNoneOfAPart) {
    const OneEventForeignStore store;
    for (const std::string literal : {"NULL", "x''", "''", "x'616263'", "'abc'", "12", "zeroblob(17)"}) {
        EXPECT_EQ(store.partWith("client_id", literal, "events")->eventClientID(), std::nullopt) << literal;
        EXPECT_EQ(store.partWith("stream_id", literal, "streams")->streamUUID(), std::nullopt) << literal;
    }
    EXPECT_EQ(store.partWith("client_id", "zeroblob(16)", "events")->eventClientID(), ZAVUUID());
    EXPECT_EQ(store.partWith("stream_id", "zeroblob(16)", "streams")->streamUUID(), ZAVUUID());
    EXPECT_EQ(store.partWith("client_id", "'0123456789abcdef'", "events")->eventClientID(),
              ZAVUUIDFromData(ZAVData::fromText("0123456789abcdef")));
}

TEST(ForeignDatabase, AnEventsSequenceIsSetOnAPartUnlessItIsNullOrTheMarker) {
    const OneEventForeignStore store;
    for (const auto& [literal, sequence] :
         std::vector<std::pair<std::string, ZAVSequence>>{{"NULL", ZAVSequenceNotSet},
                                                          {"2147483647", ZAVSequenceNotSet},
                                                          {"'2147483647'", ZAVSequenceNotSet},
                                                          {"2147483647.5", ZAVSequenceNotSet},
                                                          {"0", 0},
                                                          {"-1", -1},
                                                          {"'none'", 0},
                                                          {"x''", 0},
                                                          {"'7'", 7},
                                                          {"7.9", 7},
                                                          {"4294967303", 7}}) {
        EXPECT_EQ(store.partWith("seq", literal, "events")->eventSeq(), sequence) << literal;
    }
}

TEST(ForeignDatabase, ANumberOfAPartIsReadFromWhateverIsStored) {
    const OneEventForeignStore store;
    for (const auto& [literal, number] : std::vector<std::pair<std::string, std::int64_t>>{
             {"'12'", 12},
             {"'12 kilobytes'", 12},
             {"'big'", 0},
             {"x''", 0},
             {"x'3132'", 12},
             {"12.9", 12},
             {"1e300", std::numeric_limits<std::int64_t>::max()},
             {"-1", -1},
             {"9223372036854775807", std::numeric_limits<std::int64_t>::max()}}) {
        EXPECT_EQ(store.partWith("size", literal)->size(), number) << literal;
        EXPECT_EQ(store.partWith("event_content_part_id", literal)->index(), number) << literal;
    }
}

TEST(ForeignDatabase, AnUnknownTransferStateIsKeptAsItsNumber) {
    const OneEventForeignStore store;
    for (const auto& [literal, number] :
         std::vector<std::pair<std::string, std::uint64_t>>{{"5", 5},
                                                            {"99", 99},
                                                            {"'3'", 3},
                                                            {"'done'", 0},
                                                            {"-1", 18446744073709551615U},
                                                            {"4294967300", 4}}) {
        EXPECT_EQ(store.partWith("transfer_status", literal)->transferStatus(),
                  static_cast<ZAVContentTransferStatus>(number))
            << literal;
    }
}

TEST(ForeignDatabase, ATypeOfAPartIsReadFromBytesAndNumbers) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.partWith("type", "x'612F62'")->media_type(), "a/b");
    EXPECT_EQ(store.partWith("type", "12")->media_type(), "12");
    EXPECT_EQ(store.partWith("type", "''")->media_type(), "") << "an empty type is not absent";
    EXPECT_EQ(store.partWith("type", "x''")->media_type(), "");
}

TEST(ForeignDatabase, InlineDataAreReadFromTextAndNumbersAsTheirBytes) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.partWith("value", "'abc'")->body(), ZAVData::fromText("abc"));
    EXPECT_EQ(store.partWith("value", "12")->body(), ZAVData::fromText("12"));
    EXPECT_EQ(store.partWith("value", "x'610062'")->body(), ZAVData("a\0b", 3));
    EXPECT_EQ(store.partWith("value", "x''")->body(), ZAVData());
}

TEST(ForeignDatabase, AURLInBytesIsReadAndWhatIsNoURLIsAbsentTogetherWithTheInlineData) {
    const OneEventForeignStore store;
    store.execute("UPDATE event_content_parts SET value = 'abc'");
    EXPECT_EQ(store.partWith("url", "x'613A62'")->external_url(), "a:b");
    for (const std::string literal : {"'not a URL'", "'http://%zz'", "x'FF'", "'http://[::1'"}) {
        const auto part = store.partWith("url", literal);
        EXPECT_EQ(part->external_url(), std::nullopt) << literal;
        EXPECT_EQ(part->body(), std::nullopt) << "beside " << literal;
    }
    EXPECT_EQ(store.partWith("url", "NULL")->body(), ZAVData::fromText("abc"));
}

TEST(ForeignDatabase, AFileInBytesOrNumbersIsReadAndWhatIsNoPathIsAbsent) {
    const OneEventForeignStore store;
    for (const auto& [literal, path] : std::vector<std::pair<std::string, std::string>>{
             {"x'612F62'", "a/b"}, {"12", "12"}, {"''", ""}, {"x''", ""}}) {
        const auto part = store.partWith("file_path", literal);
        ASSERT_TRUE(part->fileURL()) << literal;
        EXPECT_EQ(part->fileURL()->relativePath(), path) << literal;
    }
    for (const std::string literal : {"NULL", "'a b'", "'100%'", "x'FF'", "'a' || char(0) || 'b'"}) {
        EXPECT_EQ(store.partWith("file_path", literal)->fileURL(), std::nullopt) << literal;
    }
}

TEST(ForeignDatabase, AnExpirationIsReadInWholeSecondsFromWhateverIsStored) {
    const OneEventForeignStore store;
    for (const auto& [literal, seconds] :
         std::vector<std::pair<std::string, double>>{{"1", 1.0},
                                                     {"1700000000.9", 1700000000.0},
                                                     {"'1700000000.9'", 1700000000.0},
                                                     {"'12 o''clock'", 12.0},
                                                     {"-1", 18446744073709551615.0}}) {
        EXPECT_EQ(store.partWith("access_expiration", literal)->externalContentURLExpiration(),
                  ZAVDateFromSecondsSince1970(seconds))
            << literal;
    }
    for (const std::string literal : {"NULL", "0", "0.5", "'never'", "''", "x''"}) {
        EXPECT_EQ(store.partWith("access_expiration", literal)->externalContentURLExpiration(), std::nullopt)
            << literal;
    }
}

TEST(ForeignDatabase, AnAccessTimeThatIsNotNullIsADateWhateverIsStored) {
    const OneEventForeignStore store;
    EXPECT_EQ(store.partWith("last_accessed", "NULL")->lastAccessed(), std::nullopt);
    for (const auto& [literal, seconds] : std::vector<std::pair<std::string, double>>{{"0", 0.0},
                                                                                      {"12", 12.0},
                                                                                      {"-1.5", -1.5},
                                                                                      {"'12.5'", 12.5},
                                                                                      {"'yesterday'", 0.0},
                                                                                      {"x''", 0.0}}) {
        EXPECT_EQ(store.partWith("last_accessed", literal)->lastAccessed(),
                  ZAVDateFromSecondsSince1970(seconds))
            << literal;
    }
}

TEST(ForeignDatabase, APurgeMarkIsTrueWhenItIsANumberOtherThanZero) {
    const OneEventForeignStore store;
    for (const std::string literal : {"1", "2", "-1", "0.5", "'1'", "'0.5'", "9223372036854775807"}) {
        EXPECT_TRUE(store.partWith("purged", literal)->isPurged()) << literal;
    }
    for (const std::string literal : {"NULL", "0", "0.0", "'0'", "'yes'", "''", "x''"}) {
        EXPECT_FALSE(store.partWith("purged", literal)->isPurged()) << literal;
    }
}

TEST(ForeignDatabase, TheTotalOfSizesThatAreNoIntegersIsTheirSumWithoutItsFraction) {
    const ForeignStore store;
    store.execute(
        "INSERT INTO event_content_parts (transfer_status, file_path, size) VALUES"
        " (4, 'f', 1.75), (4, 'f', '2'), (4, 'f', 'big'), (4, 'f', 10), (4, x'00', 20), ('4', 'f', 1000)");
    ZAVError error;
    EXPECT_EQ(store.repository().totalDiskUtilizationOfEventContentPartsWithError(&error), 33U);
    EXPECT_FALSE(error) << error.description();
}

TEST(ForeignDatabase, AnUpdateWritesItsPartAlsoWhereNothingIsUnique) {
    const OneEventForeignStore store;
    store.execute(
        "INSERT INTO event_content_parts (database_identifier, event_content_part_id,"
        " event_database_identifier) VALUES (2, 0, 1), (3, 1, 1)");
    const auto part = store.repository().eventContentDatabaseIdentifier(1);
    ASSERT_NE(part, nullptr);
    part->set_size(42);
    ASSERT_TRUE(store.repository().persistEventContentUpdate(*part));
    EXPECT_EQ(store.database().changes(), 2) << "both parts at that index of the event";
    EXPECT_EQ(
        scalar(store.database(),
               "SELECT COUNT(*) FROM event_content_parts WHERE size = 42 AND event_content_part_id = 0"),
        "2");
}

}  // namespace
}  // namespace zav::test
