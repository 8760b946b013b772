#include <ZAVEventRepository/ZAVEventMapperColumns.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <gtest/gtest.h>

#include "Support/LogCapture.h"
#include "Support/SelectedRow.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

/// A message in row 7, of the stream in row 21.
const SelectedRow message({"x'11111111111111111111111111111107'", "3", "'creator'", "'member'", "4", "21",
                           "1", "9", "1234567890123", "4", "17", "7", "x'11111111111111111111111111111121'",
                           "99", "'Name'"});

std::shared_ptr<ZAVEvent> mapped(const TestStore& store, const SelectedRow& row, ZAVError* error = nullptr) {
    const FMResultSet rows = firstRow(store.database(), row.sql());
    return store.repository().objectFromResultSet(rows, error);
}

std::shared_ptr<ZAVEvent> mappedWith(ZAVEventMapperColumn column, const std::string& literal) {
    return mapped(TestStore(), message.with(column, literal));
}

/// What a getter of the event answers for each literal in one column.
template <class Expected, class Getter>
void expectColumn(ZAVEventMapperColumn column, Getter getter,
                  const std::vector<std::pair<std::string, Expected>>& cases) {
    for (const auto& [literal, expected] : cases) {
        EXPECT_EQ(((*mappedWith(column, literal)).*getter)(), expected)
            << "column " << column << " holds " << literal;
    }
}

void addPart(const TestStore& store, int index, ZAVDatabaseIdentifier event = 7) {
    store.execute(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, "
        "value) VALUES (" +
        std::to_string(index) + ", " + std::to_string(event) + ", 'text/plain', x'68')");
}

std::vector<std::int64_t> indexesOf(const ZAVEvent& event) {
    std::vector<std::int64_t> indexes;
    for (const auto& part : event.contentParts()) {
        indexes.push_back(part->index());
    }
    return indexes;
}

/// Stores metadata where those of the event in row 7 belong, unless told otherwise.
void setMetadata(const TestStore& store, const ZAVDictionary& metadata,
                 ZAVKeyedValuesTable table = ZAVKeyedValuesTableRemote, std::string_view objectType = "event",
                 ZAVDatabaseIdentifier row = 7,
                 ZAVKeyedValuesKeyType keyType = ZAVKeyedValuesKeyTypeTransient) {
    const auto keyedValues = ZAVKeyedValueRepository::repositoryWithDatabase(store.sharedDatabase());
    ZAVError error;
    EXPECT_TRUE(keyedValues.setKeyedValuesWithDictionary(
        metadata, std::nullopt, ZAVKeyedValuesContext::contextWithTable(table, objectType, row, keyType),
        &error))
        << error.description();
}

TEST(EventMapper, TheColumnsOfAnEventQueryAreCountedFromZero) {
    EXPECT_EQ(ZAVEventMapperColumnClientID, 0U);
    EXPECT_EQ(ZAVEventMapperColumnClientSeq, 1U);
    EXPECT_EQ(ZAVEventMapperColumnCreatorID, 2U);
    EXPECT_EQ(ZAVEventMapperColumnMemberID, 3U);
    EXPECT_EQ(ZAVEventMapperColumnPrecedingSeq, 4U);
    EXPECT_EQ(ZAVEventMapperColumnStreamDatabaseIdentifier, 5U);
    EXPECT_EQ(ZAVEventMapperColumnSubType, 6U);
    EXPECT_EQ(ZAVEventMapperColumnTargetSeq, 7U);
    EXPECT_EQ(ZAVEventMapperColumnTimestamp, 8U);
    EXPECT_EQ(ZAVEventMapperColumnType, 9U);
    EXPECT_EQ(ZAVEventMapperColumnEventSeq, 10U);
    EXPECT_EQ(ZAVEventMapperColumnEventDatabaseIdentifier, 11U);
    EXPECT_EQ(ZAVEventMapperColumnEventStreamID, 12U);
    EXPECT_EQ(ZAVEventMapperColumnStreamSeq, 13U);
    EXPECT_EQ(ZAVEventMapperColumnCreatorName, 14U);
}

TEST(EventMapper, ARowIsReadWhole) {
    const auto event = mapped(TestStore(), message);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->databaseIdentifier(), 7);
    EXPECT_EQ(event->streamDatabaseIdentifier(), 21);
    EXPECT_EQ(event->client_id(), ZAVDataFromUUID(uuidNumber(7)));
    EXPECT_EQ(event->client_seq(), 3);
    EXPECT_EQ(event->creator_id(), "creator");
    EXPECT_EQ(event->creator_name(), "Name");
    EXPECT_EQ(event->member_id(), "member");
    EXPECT_EQ(event->preceding_seq(), 4);
    EXPECT_EQ(event->subtype(), 1);
    EXPECT_EQ(event->target_seq(), 9);
    EXPECT_TRUE(event->target_seqIsSet());
    EXPECT_EQ(event->server_timestamp(), 1234567890123);
    EXPECT_EQ(event->type(), EventType_MESSAGE);
    EXPECT_EQ(event->seq(), 17);
    EXPECT_TRUE(event->seqIsSet());
    EXPECT_EQ(event->stream_id(), ZAVDataFromUUID(uuidNumber(0x21)));
    EXPECT_EQ(event->streamUUID(), uuidNumber(0x21));
    EXPECT_EQ(event->transient_metadata(), ZAVDictionary());
    EXPECT_EQ(event->content(), std::nullopt);
    EXPECT_FALSE(event->ephemeralIsSet()) << "not stored, so not set";
    EXPECT_FALSE(event->client_timestampIsSet()) << "not stored, so not set";
}

TEST(EventMapper, ARowOfNullsReadsAsTheEventOfNothing) {
    const auto event = mapped(TestStore(), SelectedRow(std::vector<std::string>(15, "NULL")));
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->databaseIdentifier(), 0);
    EXPECT_EQ(event->streamDatabaseIdentifier(), 0);
    EXPECT_EQ(event->client_id(), std::nullopt);
    EXPECT_EQ(event->client_seq(), 0);
    EXPECT_EQ(event->creator_id(), std::nullopt);
    EXPECT_EQ(event->creator_name(), std::nullopt);
    EXPECT_EQ(event->member_id(), std::nullopt);
    EXPECT_EQ(event->preceding_seq(), 0);
    EXPECT_EQ(event->subtype(), 0);
    EXPECT_EQ(event->server_timestamp(), 0);
    EXPECT_EQ(static_cast<int>(event->type()), 0);
    EXPECT_EQ(event->stream_id(), std::nullopt);
    EXPECT_EQ(event->streamUUID(), std::nullopt);
}

TEST(EventMapper, AnEventThatTheServiceHasNotSequencedHasItsSequenceSetToZero) {
    const auto event = mappedWith(ZAVEventMapperColumnEventSeq, "NULL");
    EXPECT_TRUE(event->seqIsSet());
    EXPECT_EQ(event->seq(), 0);
}

TEST(EventMapper, TheTargetSequenceIsSetOnlyWhenOneIsStored) {
    const auto without = mappedWith(ZAVEventMapperColumnTargetSeq, "NULL");
    EXPECT_FALSE(without->target_seqIsSet());
    EXPECT_EQ(without->target_seq(), ZAVEvent().target_seq());
    const auto zero = mappedWith(ZAVEventMapperColumnTargetSeq, "0");
    EXPECT_TRUE(zero->target_seqIsSet());
    EXPECT_EQ(zero->target_seq(), 0);
}

TEST(EventMapper, OnlyTheLow8BitsOfTheSubtypeAreRead) {
    expectColumn<int>(ZAVEventMapperColumnSubType, &ZAVEvent::subtype,
                      {{"0", 0}, {"255", 255}, {"256", 0}, {"257", 1}, {"-1", 255}});
}

TEST(EventMapper, SequencesAreReadAs32Bits) {
    const std::vector<std::pair<std::string, ZAVSequence>> cases = {{"0", 0},
                                                                    {"-3", -3},
                                                                    {"2147483647", 2147483647},
                                                                    {"-2147483648", -2147483647 - 1},
                                                                    {"4294967301", 5},
                                                                    {"'12'", 12},
                                                                    {"2.9", 2}};
    expectColumn(ZAVEventMapperColumnClientSeq, &ZAVEvent::client_seq, cases);
    expectColumn(ZAVEventMapperColumnPrecedingSeq, &ZAVEvent::preceding_seq, cases);
    expectColumn(ZAVEventMapperColumnTargetSeq, &ZAVEvent::target_seq, cases);
    expectColumn(ZAVEventMapperColumnEventSeq, &ZAVEvent::seq, cases);
}

TEST(EventMapper, RowsAndTheTimestampAreReadAs64Bits) {
    const std::vector<std::pair<std::string, std::int64_t>> cases = {
        {"-1", -1}, {"0", 0}, {"4294967296", 4294967296}, {"9223372036854775807", 9223372036854775807}};
    expectColumn(ZAVEventMapperColumnStreamDatabaseIdentifier, &ZAVEvent::streamDatabaseIdentifier, cases);
    expectColumn(ZAVEventMapperColumnTimestamp, &ZAVEvent::server_timestamp, cases);
    expectColumn(ZAVEventMapperColumnEventDatabaseIdentifier, &ZAVEvent::databaseIdentifier, cases);
}

TEST(EventMapper, TheTypeIsTheStoredNumber) {
    expectColumn<ZAVTEventType>(ZAVEventMapperColumnType, &ZAVEvent::type,
                                {{"1", EventType_APPLICATION},
                                 {"10", EventType_TOMBSTONE},
                                 {"11", EventType_STREAM_DELETED},
                                 {"77", static_cast<ZAVTEventType>(77)}});
}

TEST(EventMapper, TextIsReadAsTextWhateverItsStorageClass) {
    const std::vector<std::pair<std::string, std::optional<std::string>>> cases = {
        {"NULL", std::nullopt}, {"''", ""}, {"'\u00FC'", "\u00FC"}, {"42", "42"}, {"x'6162'", "ab"}};
    expectColumn(ZAVEventMapperColumnCreatorID, &ZAVEvent::creator_id, cases);
    expectColumn(ZAVEventMapperColumnMemberID, &ZAVEvent::member_id, cases);
    expectColumn(ZAVEventMapperColumnCreatorName, &ZAVEvent::creator_name, cases);
}

TEST(EventMapper, IdentifiersKeepTheirBytesAlsoWhenTheyAreNoUuid) {
    const std::vector<std::pair<std::string, std::optional<ZAVData>>> cases = {
        {"NULL", std::nullopt},
        {"x''", ZAVData()},
        {"x'010203'", ZAVData("\1\2\3", 3)},
        {"'text'", ZAVData::fromText("text")},
        {"x'1111111111111111111111111111112211'", ZAVData::fromText(std::string(15, '\x11') + "\x22\x11")}};
    expectColumn(ZAVEventMapperColumnClientID, &ZAVEvent::client_id, cases);
    expectColumn(ZAVEventMapperColumnEventStreamID, &ZAVEvent::stream_id, cases);
    EXPECT_EQ(mappedWith(ZAVEventMapperColumnEventStreamID, "x'010203'")->streamUUID(), std::nullopt);
}

TEST(EventMapper, TheStreamsSequenceAndFurtherColumnsAreNotRead) {
    const TestStore store;
    const std::string plain = mapped(store, message)->description();
    for (const char* literal : {"NULL", "0", "'text'", "x'00'"}) {
        EXPECT_EQ(mapped(store, message.with(ZAVEventMapperColumnStreamSeq, literal))->description(), plain)
            << "the stream's sequence is " << literal;
        EXPECT_EQ(mapped(store, message.andAlso(literal))->description(), plain)
            << "the sixteenth column holds " << literal;
    }
}

TEST(EventMapper, AnEventWhoseStreamRowIsMissingKeepsTheRowAndHasNoStreamIdentifier) {
    const TestStore store;
    store.execute("INSERT INTO events (type, stream_database_identifier, client_id) VALUES (4, 99, x'01')");
    const auto events = store.repository().allEvents();
    ASSERT_TRUE(events);
    ASSERT_EQ(events->size(), 1U);
    EXPECT_EQ((*events)[0]->stream_id(), std::nullopt);
    EXPECT_EQ((*events)[0]->streamDatabaseIdentifier(), 99);
}

TEST(EventMapper, PartsComeInTheOrderOfTheirIndex) {
    const TestStore store;
    for (const int index : {2, 0, 1, 10}) {
        addPart(store, index);
    }
    addPart(store, 3, 8);
    const auto event = mapped(store, message);
    EXPECT_EQ(indexesOf(*event), (std::vector<std::int64_t>{0, 1, 2, 10}));
    for (const auto& part : event->contentParts()) {
        EXPECT_EQ(part->eventDatabaseIdentifier(), 7);
        EXPECT_EQ(part->body(), ZAVData::fromText("h"));
    }
}

TEST(EventMapper, AnEventWithoutPartsHasNoContentRatherThanAnEmptyList) {
    const TestStore store;
    addPart(store, 0, 8);
    EXPECT_EQ(mapped(store, message)->content(), std::nullopt);
}

TEST(EventMapper, MetadataTextComesBackAsItsBytesAndBytesStayBytes) {
    const TestStore store;
    setMetadata(store, {{"text", std::string("abc")},
                        {"umlaut", std::string("\u00FC")},
                        {"nothing", std::string()},
                        {"nul", std::string("a\0b", 3)},
                        {"bytes", ZAVData("\xFF\x00", 2)},
                        {"no bytes", ZAVData()}});
    const ZAVDictionary expected = {
        {"text", ZAVData("\x61\x62\x63", 3)}, {"umlaut", ZAVData("\xC3\xBC", 2)}, {"nothing", ZAVData()},
        {"nul", ZAVData("a\0b", 3)},          {"bytes", ZAVData("\xFF\x00", 2)},  {"no bytes", ZAVData()}};
    EXPECT_EQ(mapped(store, message)->transient_metadata(), expected);
}

TEST(EventMapper, MetadataOfOtherTablesObjectsRowsAndKeyTypesAreNotTheEvents) {
    const TestStore store;
    const ZAVDictionary foreign = {{"key", std::string("foreign")}};
    setMetadata(store, foreign, ZAVKeyedValuesTableLocal);
    setMetadata(store, foreign, ZAVKeyedValuesTableRemote, "conversation");
    setMetadata(store, foreign, ZAVKeyedValuesTableRemote, "event", 8);
    setMetadata(store, foreign, ZAVKeyedValuesTableRemote, "event", 7, ZAVKeyedValuesKeyTypeSyncable);
    setMetadata(store, foreign, ZAVKeyedValuesTableRemote, "event", 7, ZAVKeyedValuesKeyTypeConfiguration);
    EXPECT_EQ(mapped(store, message)->transient_metadata(), ZAVDictionary());
    setMetadata(store, {{"key", std::string("own")}});
    EXPECT_EQ(mapped(store, message)->transient_metadata(),
              (ZAVDictionary{{"key", ZAVData::fromText("own")}}));
}

TEST(EventMapper, AnEventWithoutMetadataHasAnEmptyDictionaryThatIsSet) {
    const auto event = mapped(TestStore(), message);
    EXPECT_TRUE(event->transient_metadataIsSet());
    ASSERT_TRUE(event->transient_metadata());
    EXPECT_TRUE(event->transient_metadata()->empty());
}

TEST(EventMapper, MetadataThatCannotBeReadReachOnlyTheCallersError) {
    const TestStore store;
    addPart(store, 0);
    store.execute("DROP TABLE keyed_values_remote");
    const FMResultSet rows = firstRow(store.database(), message.sql());
    const LogCapture log;
    ZAVError error;
    const auto event = store.repository().objectFromResultSet(rows, &error);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(error.domain(), "SQLite");
    EXPECT_EQ(error.code(), 1);
    EXPECT_EQ(error.message(), "no such table: keyed_values_remote");
    EXPECT_EQ(event->transient_metadata(), ZAVDictionary()) << "present and empty";
    EXPECT_EQ(indexesOf(*event), std::vector<std::int64_t>{0}) << "the parts are read all the same";
    EXPECT_EQ(log.records(), std::vector<LogRecord>{});
    EXPECT_NE(store.repository().objectFromResultSet(rows), nullptr) << "without an out-parameter";
}

TEST(EventMapper, MetadataThatBreakOffWhileTheyAreReadLeaveTheEventWithNone) {
    const TestStore store;
    setMetadata(store, {{"a", std::string("1")}, {"b", std::string("2")}});
    store.execute("ALTER TABLE keyed_values_remote RENAME TO stored_values");
    store.execute(
        "CREATE VIEW keyed_values_remote AS SELECT object_database_identifier, object_type, key_type, key, "
        "abs(-9223372036854775807 - (key = 'b')) AS value FROM stored_values");
    ZAVError error;
    const auto event = mapped(store, message, &error);
    EXPECT_EQ(error.message(), "integer overflow");
    EXPECT_EQ(event->transient_metadata(), ZAVDictionary());
}

TEST(EventMapper, AnErrorThatTheCallerHoldsIsLeftAloneWhenNothingFails) {
    const ZAVError before("Caller", 5, "from before");
    ZAVError error = before;
    EXPECT_NE(mapped(TestStore(), message, &error), nullptr);
    EXPECT_EQ(error, before);
}

TEST(EventMapper, ContentThatCannotBeReadIsNoContentAndNoError) {
    const TestStore store;
    addPart(store, 0);
    setMetadata(store, {{"key", std::string("value")}});
    store.execute("DROP TABLE event_content_parts");
    const FMResultSet rows = firstRow(store.database(), message.sql());
    const LogCapture log;
    const ZAVError before("Caller", 5, "from before");
    ZAVError error = before;
    const auto event = store.repository().objectFromResultSet(rows, &error);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(event->content(), std::nullopt);
    EXPECT_EQ(event->transient_metadata(), (ZAVDictionary{{"key", ZAVData::fromText("value")}}));
    EXPECT_EQ(error, before) << "the failure is nobody's business";
    EXPECT_EQ(log.records(), std::vector<LogRecord>{});
}

TEST(EventMapper, ContentThatBreaksOffKeepsThePartsReadBefore) {
    const TestStore store;
    for (const int index : {0, 1, 2, 3}) {
        addPart(store, index);
    }
    store.execute("ALTER TABLE event_content_parts RENAME TO stored_parts");
    store.execute(
        "CREATE VIEW event_content_parts AS SELECT event_content_part_id, event_database_identifier, type, "
        "value, access_expiration, url, abs(-9223372036854775807 - (event_content_part_id = 2)) AS size, "
        "transfer_status, file_path, last_accessed, purged FROM stored_parts");
    const ZAVError before("Caller", 5, "from before");
    ZAVError error = before;
    const auto event = mapped(store, message, &error);
    EXPECT_EQ(indexesOf(*event), (std::vector<std::int64_t>{0, 1}));
    EXPECT_EQ(error, before);
}

TEST(EventMapper, TheCallersCursorStaysWhereItIsAndNoOtherStaysOpen) {
    const TestStore store;
    addPart(store, 0);
    FMResultSet rows =
        firstRow(store.database(), message.sql() + " UNION ALL " +
                                       message.with(ZAVEventMapperColumnEventDatabaseIdentifier, "8").sql());
    EXPECT_EQ(store.repository().objectFromResultSet(rows)->databaseIdentifier(), 7);
    EXPECT_EQ(store.repository().objectFromResultSet(rows)->databaseIdentifier(), 7)
        << "the same row once more";
    EXPECT_EQ(store.database().openResultSets(), 1U) << "the caller's";
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(store.repository().objectFromResultSet(rows)->databaseIdentifier(), 8);
    EXPECT_FALSE(rows.next());
    EXPECT_EQ(store.database().openResultSets(), 0U);
}

TEST(EventMapper, AnEventOutlivesItsDatabase) {
    std::shared_ptr<ZAVEvent> event;
    {
        const TestStore store;
        addPart(store, 0);
        event = mapped(store, message);
    }
    EXPECT_EQ(event->creator_id(), "creator");
    EXPECT_EQ(event->contentParts().at(0)->body(), ZAVData::fromText("h"));
}

}  // namespace
}  // namespace zav::test
