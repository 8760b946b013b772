#include <ZAVEventRepository/ZAVEventMapperColumns.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <gtest/gtest.h>

#include "Support/LogCapture.h"
#include "Support/SelectedRow.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

constexpr const char* sixteenBytes = "x'11111111111111111111111111111107'";

/// An inline text part, numbered 2, of the event in row 7.
const SelectedRow textPart({"2", "7", "'text/plain'", "x'6869'", "NULL", "NULL", "2", "4", "NULL", "NULL",
                            "0", sixteenBytes, "5", "x'11111111111111111111111111111109'"});

std::shared_ptr<ZAVEventContent> mapped(const SelectedRow& row) {
    const TestStore store;
    const FMResultSet rows = firstRow(store.database(), row.sql());
    return store.repository().eventContentFromResultSet(rows);
}

std::shared_ptr<ZAVEventContent> mappedWith(ZAVEventMapperEventContentPartsColumn column,
                                            const std::string& literal) {
    return mapped(textPart.with(column, literal));
}

/// What a getter of the part answers for each literal in one column.
template <class Expected, class Getter>
void expectColumn(ZAVEventMapperEventContentPartsColumn column, Getter getter,
                  const std::vector<std::pair<std::string, Expected>>& cases) {
    for (const auto& [literal, expected] : cases) {
        EXPECT_EQ(((*mappedWith(column, literal)).*getter)(), expected)
            << "column " << column << " holds " << literal;
    }
}

/// Another content cache directory while it lives.
class CacheDirectory {
public:
    explicit CacheDirectory(const std::string& path) {
        ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath(path));
    }
    ~CacheDirectory() { ZAVSetMessageRepositoryCacheBaseDirectoryURL(before_); }
    CacheDirectory(const CacheDirectory&) = delete;
    CacheDirectory& operator=(const CacheDirectory&) = delete;

private:
    ZAVURL before_ = ZAVMessageRepositoryCacheBaseDirectoryURL();
};

TEST(ContentMapper, TheColumnsOfAContentPartQueryAreCountedFromZero) {
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnIndex, 0U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier, 1U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnType, 2U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnValue, 3U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnAccessExpiration, 4U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnURL, 5U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnSize, 6U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnTransferStatus, 7U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnFilePath, 8U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnLastAccessed, 9U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnPurged, 10U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnClientID, 11U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnSeq, 12U);
    EXPECT_EQ(ZAVEventMapperEventContentPartsColumnStreamID, 13U);
}

TEST(ContentMapper, APartWithInlineDataIsReadWhole) {
    const auto part = mapped(textPart);
    EXPECT_EQ(part->index(), 2);
    EXPECT_EQ(part->eventDatabaseIdentifier(), 7);
    EXPECT_EQ(part->media_type(), "text/plain");
    EXPECT_EQ(part->body(), ZAVData::fromText("hi"));
    EXPECT_EQ(part->size(), 2);
    EXPECT_EQ(part->transferStatus(), ZAVContentTransferComplete);
    EXPECT_EQ(part->eventClientID(), uuidNumber(7));
    EXPECT_EQ(part->eventSeq(), 5);
    EXPECT_EQ(part->streamUUID(), uuidNumber(9));
    EXPECT_EQ(part->external_url(), std::nullopt);
    EXPECT_EQ(part->externalContentURLExpiration(), std::nullopt);
    EXPECT_EQ(part->fileURL(), std::nullopt);
    EXPECT_EQ(part->lastAccessed(), std::nullopt);
    EXPECT_FALSE(part->isPurged());
}

TEST(ContentMapper, APartWithExternalContentIsReadWhole) {
    const CacheDirectory cache("/cache");
    const auto part = mapped(
        SelectedRow({"0", "8", "'image/png'", "NULL", "1500000000", "'https://content.example/a?b=c'", "4096",
                     "3", "'app/user/part-0'", "1400000000.25", "1", sixteenBytes, "6", sixteenBytes}));
    EXPECT_EQ(part->index(), 0);
    EXPECT_EQ(part->eventDatabaseIdentifier(), 8);
    EXPECT_EQ(part->media_type(), "image/png");
    EXPECT_EQ(part->body(), std::nullopt);
    EXPECT_EQ(part->externalContentURLExpiration(), ZAVDateFromSecondsSince1970(1500000000));
    EXPECT_EQ(part->external_url(), "https://content.example/a?b=c");
    EXPECT_EQ(part->size(), 4096);
    EXPECT_EQ(part->transferStatus(), ZAVContentTransferDownloading);
    ASSERT_TRUE(part->fileURL());
    EXPECT_EQ(part->fileURL()->absoluteString(), "file:///cache/app/user/part-0");
    EXPECT_EQ(part->lastAccessed(), ZAVDateFromSecondsSince1970(1400000000.25));
    EXPECT_TRUE(part->isPurged());
}

TEST(ContentMapper, ARowOfNullsReadsAsThePartOfNothing) {
    const auto part = mapped(SelectedRow(std::vector<std::string>(14, "NULL")));
    EXPECT_EQ(part->index(), 0);
    EXPECT_EQ(part->eventDatabaseIdentifier(), 0);
    EXPECT_EQ(part->media_type(), "application/octet-stream");
    EXPECT_EQ(part->body(), ZAVData());
    EXPECT_EQ(part->size(), 0);
    EXPECT_EQ(part->external_url(), std::nullopt);
    EXPECT_EQ(part->externalContentURLExpiration(), std::nullopt);
    EXPECT_EQ(part->transferStatus(), ZAVContentTransferAwaitingUpload);
    EXPECT_EQ(part->fileURL(), std::nullopt);
    EXPECT_EQ(part->lastAccessed(), std::nullopt);
    EXPECT_FALSE(part->isPurged());
    EXPECT_EQ(part->eventClientID(), std::nullopt);
    EXPECT_EQ(part->eventSeq(), 2147483647);
    EXPECT_EQ(part->streamUUID(), std::nullopt);
}

TEST(ContentMapper, IndexRowAndSizeKeepAll64Bits) {
    const std::vector<std::pair<std::string, std::int64_t>> cases = {
        {"0", 0},
        {"4294967296", 4294967296},
        {"9223372036854775807", 9223372036854775807},
        {"-1", -1},
        {"-9223372036854775807", -9223372036854775807},
    };
    expectColumn(ZAVEventMapperEventContentPartsColumnIndex, &ZAVEventContent::index, cases);
    expectColumn(ZAVEventMapperEventContentPartsColumnEventDatabaseIdentifier,
                 &ZAVEventContent::eventDatabaseIdentifier, cases);
    expectColumn(ZAVEventMapperEventContentPartsColumnSize, &ZAVEventContent::size, cases);
}

TEST(ContentMapper, AnIntegerThatIsStoredAsAnotherClassIsConvertedAsTheEngineDoes) {
    const std::vector<std::pair<std::string, std::int64_t>> cases = {
        {"'12'", 12}, {"'12 parts'", 12}, {"'parts'", 0}, {"2.9", 2},
        {"-2.9", -2}, {"x'3132'", 12},    {"x''", 0},
    };
    expectColumn(ZAVEventMapperEventContentPartsColumnIndex, &ZAVEventContent::index, cases);
    expectColumn(ZAVEventMapperEventContentPartsColumnSize, &ZAVEventContent::size, cases);
}

TEST(ContentMapper, AMissingMediaTypeReadsAsOctetStream) {
    expectColumn<std::optional<std::string>>(ZAVEventMapperEventContentPartsColumnType,
                                             &ZAVEventContent::media_type,
                                             {{"NULL", "application/octet-stream"},
                                              {"''", ""},
                                              {"'image/png'", "image/png"},
                                              {"12", "12"},
                                              {"x'612F62'", "a/b"}});
}

TEST(ContentMapper, APartWithoutUrlAlwaysHasInlineData) {
    expectColumn<std::optional<ZAVData>>(
        ZAVEventMapperEventContentPartsColumnValue, &ZAVEventContent::body,
        {{"NULL", ZAVData()},
         {"x''", ZAVData()},
         {"''", ZAVData()},
         {"x'00FF00'", ZAVData("\x00\xFF\x00", 3)},
         {"'text'", ZAVData::fromText("text")},
         {"12", ZAVData::fromText("12")},
         {"zeroblob(100000)", ZAVData::fromText(std::string(100000, '\0'))}});
}

TEST(ContentMapper, APartWithUrlTextHasNoInlineDataWhateverIsStoredBesideIt) {
    for (const char* url : {"'https://content.example/a'", "'no url at all'", "''", "12"}) {
        for (const char* value : {"NULL", "x''", "x'6869'", "'hi'"}) {
            const auto part = mapped(textPart.with(ZAVEventMapperEventContentPartsColumnURL, url)
                                         .with(ZAVEventMapperEventContentPartsColumnValue, value));
            EXPECT_EQ(part->body(), std::nullopt) << "url " << url << ", value " << value;
            EXPECT_FALSE(part->bodyIsSet()) << "url " << url << ", value " << value;
        }
    }
}

TEST(ContentMapper, UrlTextThatIsNoUrlReadsAsNoUrl) {
    expectColumn<std::optional<std::string>>(
        ZAVEventMapperEventContentPartsColumnURL, &ZAVEventContent::external_url,
        {{"NULL", std::nullopt},
         {"'https://content.example/a b'", std::nullopt},
         {"'https://content.example/\u00FC'", std::nullopt},
         {"'https://content.example/%4'", std::nullopt},
         {"'https://content.example/%zz'", std::nullopt},
         {"'https://[content.example/'", std::nullopt},
         {"'https://content.example/%C3%BC?x=%20#y'", "https://content.example/%C3%BC?x=%20#y"},
         {"'HTTPS://Content.Example/../A'", "HTTPS://Content.Example/../A"}});
}

TEST(ContentMapper, AnExpirationIsWholeSecondsAndZeroIsNone) {
    expectColumn<std::optional<ZAVDate>>(ZAVEventMapperEventContentPartsColumnAccessExpiration,
                                         &ZAVEventContent::externalContentURLExpiration,
                                         {{"NULL", std::nullopt},
                                          {"0", std::nullopt},
                                          {"0.0", std::nullopt},
                                          {"0.75", std::nullopt},
                                          {"'never'", std::nullopt},
                                          {"1", ZAVDateFromSecondsSince1970(1)},
                                          {"1.0", ZAVDateFromSecondsSince1970(1)},
                                          {"1500000000.75", ZAVDateFromSecondsSince1970(1500000000)},
                                          {"'1500000000'", ZAVDateFromSecondsSince1970(1500000000)}});
}

TEST(ContentMapper, ANegativeExpirationIsReadByItsUnsignedBits) {
    expectColumn<std::optional<ZAVDate>>(
        ZAVEventMapperEventContentPartsColumnAccessExpiration, &ZAVEventContent::externalContentURLExpiration,
        {{"-1", ZAVDateFromSecondsSince1970(18446744073709551616.0)},
         {"-1000000000000", ZAVDateFromSecondsSince1970(18446743073709551616.0)}});
}

TEST(ContentMapper, TheTransferStatusIsTheStoredNumber) {
    expectColumn<ZAVContentTransferStatus>(
        ZAVEventMapperEventContentPartsColumnTransferStatus, &ZAVEventContent::transferStatus,
        {{"NULL", ZAVContentTransferAwaitingUpload},
         {"0", ZAVContentTransferAwaitingUpload},
         {"1", ZAVContentTransferUploading},
         {"2", ZAVContentTransferReadyForDownload},
         {"3", ZAVContentTransferDownloading},
         {"4", ZAVContentTransferComplete},
         {"'3'", ZAVContentTransferDownloading},
         {"4294967297", ZAVContentTransferUploading},
         {"9", static_cast<ZAVContentTransferStatus>(9)},
         {"2147483647", static_cast<ZAVContentTransferStatus>(2147483647)},
         {"-1", static_cast<ZAVContentTransferStatus>(0xFFFFFFFFFFFFFFFFU)},
         {"-2147483648", static_cast<ZAVContentTransferStatus>(0xFFFFFFFF80000000U)}});
}

TEST(ContentMapper, AStoredPathIsAFileInTheContentCacheDirectory) {
    const CacheDirectory cache("/var/the cache");
    const auto part = mappedWith(ZAVEventMapperEventContentPartsColumnFilePath, "'app/user/event/part-2'");
    ASSERT_TRUE(part->fileURL());
    EXPECT_EQ(part->fileURL()->text(), "app/user/event/part-2");
    EXPECT_EQ(part->fileURL()->relativePath(), "app/user/event/part-2");
    EXPECT_EQ(part->fileURL()->baseURL(), ZAVURL::fileURLWithDirectoryPath("/var/the cache"));
    EXPECT_EQ(part->fileURL()->absoluteString(), "file:///var/the%20cache/app/user/event/part-2");
    EXPECT_EQ(part->fileURL()->filePath(), "/var/the cache/app/user/event/part-2");
}

TEST(ContentMapper, AStoredPathIsResolvedAsAReferenceNotEscaped) {
    const CacheDirectory cache("/var/cache");
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"'part-0'", "file:///var/cache/part-0"},
        {"'./a/../b'", "file:///var/cache/b"},
        {"'../part-0'", "file:///var/part-0"},
        {"'/elsewhere/part-0'", "file:///elsewhere/part-0"},
        {"'a%20b'", "file:///var/cache/a%20b"},
        {"'file:///elsewhere/part-0'", "file:///elsewhere/part-0"},
        {"''", "file:///var/cache/"},
        {"12", "file:///var/cache/12"},
    };
    for (const auto& [literal, absolute] : cases) {
        const auto part = mappedWith(ZAVEventMapperEventContentPartsColumnFilePath, literal);
        ASSERT_TRUE(part->fileURL()) << literal << " is a reference";
        EXPECT_EQ(part->fileURL()->absoluteString(), absolute) << "file_path holds " << literal;
    }
}

TEST(ContentMapper, APathThatIsNoUrlReadsAsNoFile) {
    for (const char* literal : {"'a b'", "'\u00FCber/part-0'", "'a%2'", "'a%zz'", "'[a'"}) {
        EXPECT_EQ(mappedWith(ZAVEventMapperEventContentPartsColumnFilePath, literal)->fileURL(), std::nullopt)
            << "file_path holds " << literal;
    }
}

TEST(ContentMapper, APartKeepsTheCacheDirectoryOfTheTimeItWasRead) {
    const CacheDirectory cache("/first");
    const auto early = mappedWith(ZAVEventMapperEventContentPartsColumnFilePath, "'part-0'");
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath("/second"));
    const auto late = mappedWith(ZAVEventMapperEventContentPartsColumnFilePath, "'part-0'");
    ASSERT_TRUE(early->fileURL());
    ASSERT_TRUE(late->fileURL());
    EXPECT_EQ(early->fileURL()->absoluteString(), "file:///first/part-0");
    EXPECT_EQ(late->fileURL()->absoluteString(), "file:///second/part-0");
}

TEST(ContentMapper, TheLastAccessKeepsItsFractionAndZeroIsADate) {
    expectColumn<std::optional<ZAVDate>>(ZAVEventMapperEventContentPartsColumnLastAccessed,
                                         &ZAVEventContent::lastAccessed,
                                         {{"NULL", std::nullopt},
                                          {"0", ZAVDateFromSecondsSince1970(0)},
                                          {"1400000000.125", ZAVDateFromSecondsSince1970(1400000000.125)},
                                          {"12", ZAVDateFromSecondsSince1970(12)},
                                          {"-1.5", ZAVDateFromSecondsSince1970(-1.5)},
                                          {"'1.25'", ZAVDateFromSecondsSince1970(1.25)},
                                          {"'yesterday'", ZAVDateFromSecondsSince1970(0)}});
}

TEST(ContentMapper, APartIsPurgedWhenTheColumnIsNotZero) {
    expectColumn<bool>(ZAVEventMapperEventContentPartsColumnPurged, &ZAVEventContent::isPurged,
                       {{"NULL", false},
                        {"0", false},
                        {"0.0", false},
                        {"'no'", false},
                        {"1", true},
                        {"2", true},
                        {"-1", true},
                        {"'1'", true},
                        {"0.5", true},
                        {"4294967296", true}});
}

TEST(ContentMapper, BytesThatAreNoUuidReadAsNone) {
    for (const char* literal : {"NULL", "x''", "''", "x'111111111111111111111111111111'",
                                "x'1111111111111111111111111111111111'", "'a'", "12"}) {
        EXPECT_EQ(mappedWith(ZAVEventMapperEventContentPartsColumnClientID, literal)->eventClientID(),
                  std::nullopt)
            << "client_id holds " << literal;
        EXPECT_EQ(mappedWith(ZAVEventMapperEventContentPartsColumnStreamID, literal)->streamUUID(),
                  std::nullopt)
            << "stream_id holds " << literal;
    }
}

TEST(ContentMapper, SixteenBytesReadAsAUuidOfEitherStorageClass) {
    EXPECT_EQ(mappedWith(ZAVEventMapperEventContentPartsColumnClientID, sixteenBytes)->eventClientID(),
              uuidNumber(7));
    const auto text = ZAVUUID::fromString("30313233-3435-3637-3839-414243444546");
    EXPECT_EQ(mappedWith(ZAVEventMapperEventContentPartsColumnStreamID, "'0123456789ABCDEF'")->streamUUID(),
              text);
}

TEST(ContentMapper, TheEventSequenceIsSetUnlessItIsNullOrTheMarker) {
    expectColumn<ZAVSequence>(ZAVEventMapperEventContentPartsColumnSeq, &ZAVEventContent::eventSeq,
                              {{"NULL", ZAVEventContent().eventSeq()},
                               {"2147483647", ZAVEventContent().eventSeq()},
                               {"2147483646", 2147483646},
                               {"0", 0},
                               {"-3", -3},
                               {"4294967301", 5},
                               {"'8'", 8}});
    EXPECT_EQ(ZAVEventContent().eventSeq(), 2147483647);
}

TEST(ContentMapper, FurtherColumnsAreNotRead) {
    const auto plain = mapped(textPart);
    for (const char* literal : {"NULL", "99", "'text'", "x'00'"}) {
        const auto part = mapped(textPart.andAlso(literal));
        EXPECT_EQ(part->description(), plain->description()) << "the fifteenth column holds " << literal;
        EXPECT_EQ(part->streamUUID(), uuidNumber(9)) << "the fifteenth column holds " << literal;
    }
}

TEST(ContentMapper, TheCursorStaysWhereItIs) {
    const TestStore store;
    FMResultSet rows =
        firstRow(store.database(), textPart.sql() + " UNION ALL " +
                                       textPart.with(ZAVEventMapperEventContentPartsColumnIndex, "3").sql());
    EXPECT_EQ(store.repository().eventContentFromResultSet(rows)->index(), 2);
    EXPECT_EQ(store.repository().eventContentFromResultSet(rows)->index(), 2) << "the same row once more";
    ASSERT_TRUE(rows.next());
    EXPECT_EQ(store.repository().eventContentFromResultSet(rows)->index(), 3);
    EXPECT_FALSE(rows.next());
}

TEST(ContentMapper, EachCallMakesARecordOfItsOwn) {
    const TestStore store;
    const FMResultSet rows = firstRow(store.database(), textPart.sql());
    const auto first = store.repository().eventContentFromResultSet(rows);
    const auto second = store.repository().eventContentFromResultSet(rows);
    first->setIndex(9);
    EXPECT_NE(first, second);
    EXPECT_EQ(second->index(), 2);
}

TEST(ContentMapper, NoStatementIsRunAndNothingIsLogged) {
    const TestStore store;
    const FMResultSet rows = firstRow(
        store.database(), textPart.with(ZAVEventMapperEventContentPartsColumnURL, "'no url at all'").sql());
    const LogCapture log;
    const StatementTrace trace(store.database());
    EXPECT_NE(store.repository().eventContentFromResultSet(rows), nullptr);
    EXPECT_EQ(trace.statements(), std::vector<std::string>{});
    EXPECT_EQ(log.records(), std::vector<LogRecord>{});
}

constexpr const char* storedParts =
    "SELECT event_content_parts.event_content_part_id, event_content_parts.event_database_identifier, "
    "event_content_parts.type, event_content_parts.value, event_content_parts.access_expiration, "
    "event_content_parts.url, event_content_parts.size, event_content_parts.transfer_status, "
    "event_content_parts.file_path, event_content_parts.last_accessed, event_content_parts.purged, "
    "events.client_id, events.seq, streams.stream_id FROM event_content_parts LEFT JOIN events ON "
    "(events.database_identifier = event_content_parts.event_database_identifier) LEFT JOIN streams ON "
    "(streams.database_identifier = events.stream_database_identifier)";

TEST(ContentMapper, APartWhoseEventIsGoneKeepsItsRowAndLosesWhatTheEventTold) {
    const TestStore store;
    store.execute(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, "
        "value) VALUES (1, 41, 'text/plain', x'6869')");
    const FMResultSet rows = firstRow(store.database(), storedParts);
    const auto part = store.repository().eventContentFromResultSet(rows);
    EXPECT_EQ(part->eventDatabaseIdentifier(), 41);
    EXPECT_EQ(part->index(), 1);
    EXPECT_EQ(part->body(), ZAVData::fromText("hi"));
    EXPECT_EQ(part->eventClientID(), std::nullopt);
    EXPECT_EQ(part->eventSeq(), ZAVSequenceNotSet);
    EXPECT_EQ(part->streamUUID(), std::nullopt);
}

TEST(ContentMapper, APartWhoseStreamIsGoneLosesOnlyTheStream) {
    const TestStore store;
    store.execute(
        "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id) "
        "VALUES (41, 4, 12, 99, x'11111111111111111111111111111107')");
    store.execute(
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier) "
        "VALUES (1, 41)");
    const FMResultSet rows = firstRow(store.database(), storedParts);
    const auto part = store.repository().eventContentFromResultSet(rows);
    EXPECT_EQ(part->eventClientID(), uuidNumber(7));
    EXPECT_EQ(part->eventSeq(), 12);
    EXPECT_EQ(part->streamUUID(), std::nullopt);
}

}  // namespace
}  // namespace zav::test
