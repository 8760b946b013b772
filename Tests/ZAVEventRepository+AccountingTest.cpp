#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Support/ContentParts.h"
#include "Support/LogCapture.h"
#include "Support/StatementInterruption.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

// The update of a part.

/// A part at index 3 of the event in row 7, with every field that an update writes.
class FilledPart final : public ZAVEventContent {
public:
    FilledPart()
        : ZAVEventContent(7, std::nullopt, 3, "image/png", std::nullopt, 42,
                          ZAVURL::URLWithString("a/b", *ZAVURL::URLWithString("file:///cache/")),
                          ZAVURL::URLWithString("https://store.example/1"),
                          ZAVDateFromSecondsSince1970(1700000000.5)) {
        setTransferStatus(ZAVContentTransferComplete);
        setLastAccessed(ZAVDateFromSecondsSince1970(1600000000.25));
        setIsPurged(true);
    }
};

/// The statements that the engine starts for an update.
std::vector<std::string> statementsOfUpdate(const TestStore& store, const ZAVEventContent& part) {
    const StatementTrace trace(store.database());
    EXPECT_TRUE(store.repository().persistEventContentUpdate(part)) << "the update failed";
    return trace.statements();
}

LogRecord updateLine(const ZAVEventContent& part) {
    return verboseLine("-[ZAVEventRepository persistEventContentUpdate:error:]",
                       "persisting event content update for eventContent=%@",
                       "persisting event content update for eventContent=" + part.description());
}

/// What the tables hold for the part that `FilledPart` updates, and for its neighbours.
class StoredPartStore : public TestStore {
public:
    StoredPartStore() {
        const std::string values = "'text/plain', x'ABCD', 5.5, 'old:url', 6, 2, 'old/file', 8.5, 0";
        addPart(*this, 3, allColumns, values, 7);
        addPart(*this, 4, allColumns, values, 7);
        addPart(*this, 3, allColumns, values, 8);
    }

    [[nodiscard]] std::string part(int event, int index, const std::string& columns = allColumns) const {
        const auto parts =
            rows("SELECT " + columns + " FROM event_content_parts WHERE event_database_identifier = " +
                 std::to_string(event) + " AND event_content_part_id = " + std::to_string(index));
        EXPECT_EQ(parts.size(), 1U);
        return parts.empty() ? "" : parts[0];
    }

    [[nodiscard]] std::string updatedPart(const std::string& columns = allColumns) const {
        return part(7, 3, columns);
    }

private:
    static constexpr const char* allColumns =
        "type, value, access_expiration, url, size, transfer_status, file_path, last_accessed, purged";
};

constexpr const char* untouchedPart = "text/plain|X'ABCD'|5.5|old:url|6|2|old/file|8.5|0";

TEST(ContentUpdate, BindsNullForWhatTheRecordHasNot) {
    const TestStore store;
    ZAVEventContent part;
    part.setEventDatabaseIdentifier(7);
    EXPECT_EQ(
        statementsOfUpdate(store, part),
        std::vector<std::string>{"UPDATE event_content_parts SET access_expiration = NULL, url = NULL, size "
                                 "= 0, transfer_status = 0, file_path = NULL, last_accessed = NULL, purged = "
                                 "0 WHERE event_content_part_id = 0 AND event_database_identifier = 7"});
}

TEST(ContentUpdate, BindsItsNumbersWithTheirSignAndAllTheirBits) {
    const TestStore store;
    ZAVEventContent part;
    part.setEventDatabaseIdentifier(std::numeric_limits<ZAVDatabaseIdentifier>::min());
    part.setIndex(-1);
    part.set_size(9223372036854775807);
    part.setTransferStatus(static_cast<ZAVContentTransferStatus>(4294967295U));
    EXPECT_EQ(
        statementsOfUpdate(store, part),
        std::vector<std::string>{
            "UPDATE event_content_parts SET access_expiration = NULL, url = NULL, size = 9223372036854775807,"
            " transfer_status = 4294967295, file_path = NULL, last_accessed = NULL, purged = 0 WHERE "
            "event_content_part_id = -1 AND event_database_identifier = -9223372036854775808"});
    part.set_size(-5);
    EXPECT_TRUE(statementsOfUpdate(store, part).at(0).find(" size = -5, ") != std::string::npos);
}

TEST(ContentUpdate, WritesThePartOfItsEventAndIndexAndNoOther) {
    const StoredPartStore store;
    ASSERT_TRUE(store.repository().persistEventContentUpdate(FilledPart()));
    EXPECT_EQ(store.updatedPart(),
              "text/plain|X'ABCD'|1700000000.5|https://store.example/1|42|4|a/b|1600000000.25|1");
    EXPECT_EQ(store.part(7, 4), untouchedPart) << "the next part of the event";
    EXPECT_EQ(store.part(8, 3), untouchedPart) << "the part of another event";
}

TEST(ContentUpdate, StoresDatesAsRealNumbersTextsAsTextAndNumbersAsIntegers) {
    const StoredPartStore store;
    ASSERT_TRUE(store.repository().persistEventContentUpdate(FilledPart()));
    EXPECT_EQ(store.updatedPart(
                  "typeof(access_expiration), typeof(url), typeof(size),"
                  " typeof(transfer_status), typeof(file_path), typeof(last_accessed), typeof(purged)"),
              "real|text|integer|integer|text|real|integer");
}

TEST(ContentUpdate, NeverChangesTheTypeAndTheInlineData) {
    const StoredPartStore store;
    FilledPart part;
    part.set_media_type("video/mp4");
    part.set_body(ZAVData::fromText("another body"));
    ASSERT_TRUE(store.repository().persistEventContentUpdate(part));
    part.set_media_type(std::nullopt);
    part.set_body(std::nullopt);
    ASSERT_TRUE(store.repository().persistEventContentUpdate(part));
    EXPECT_EQ(store.updatedPart("type, value"), "text/plain|X'ABCD'");
}

TEST(ContentUpdate, ErasesTheFileAndTheAccessTimeThatTheRecordHasNot) {
    const StoredPartStore store;
    FilledPart part;
    part.setFileURL(std::nullopt);
    part.setLastAccessed(std::nullopt);
    part.set_external_url(std::nullopt);
    part.setExternalContentURLExpiration(std::nullopt);
    ASSERT_TRUE(store.repository().persistEventContentUpdate(part));
    EXPECT_EQ(store.updatedPart(), "text/plain|X'ABCD'|NULL|NULL|42|4|NULL|NULL|1");
}

TEST(ContentUpdate, StoresThePathOfAFileAsItStandsRelativeToItsBase) {
    const std::vector<std::pair<std::optional<ZAVURL>, std::string>> files{
        {ZAVURL::URLWithString("a/../b%20c", *ZAVURL::URLWithString("file:///cache/")), "a/../b%20c"},
        {ZAVURL::URLWithString("", *ZAVURL::URLWithString("file:///cache/")), ""},
        {ZAVURL::URLWithString("file:///cache/a/b"), "/cache/a/b"}};
    for (const auto& [file, path] : files) {
        const StoredPartStore store;
        FilledPart part;
        ASSERT_TRUE(file);
        part.setFileURL(file);
        ASSERT_TRUE(store.repository().persistEventContentUpdate(part));
        EXPECT_EQ(store.updatedPart("file_path"), path) << "for " << file->absoluteString();
    }
}

TEST(ContentUpdate, StoresAnEmptyURLAsEmptyText) {
    const StoredPartStore store;
    FilledPart part;
    part.set_external_url("");
    ASSERT_TRUE(store.repository().persistEventContentUpdate(part));
    EXPECT_EQ(store.updatedPart("url, url IS NULL"), "|0");
}

TEST(ContentUpdate, WhatIsWrittenIsReadBack) {
    const StoredPartStore store;
    const FilledPart part;
    ASSERT_TRUE(store.repository().persistEventContentUpdate(part));
    const auto stored = store.repository().eventContentForEventDatabaseIdentifier(7, 3);
    ASSERT_NE(stored, nullptr);
    EXPECT_EQ(stored->external_url(), "https://store.example/1");
    EXPECT_EQ(stored->externalContentURLExpiration(), ZAVDateFromSecondsSince1970(1700000000))
        << "an expiration is read in whole seconds";
    EXPECT_EQ(stored->size(), 42);
    EXPECT_EQ(stored->transferStatus(), ZAVContentTransferComplete);
    ASSERT_TRUE(stored->fileURL());
    EXPECT_EQ(stored->fileURL()->relativePath(), "a/b");
    EXPECT_EQ(stored->lastAccessed(), ZAVDateFromSecondsSince1970(1600000000.25));
    EXPECT_TRUE(stored->isPurged());
}

TEST(ContentUpdate, WritesATransferStatusWithoutANameAsItWasRead) {
    for (const char* const status : {"-1", "-2147483648", "2147483647", "5"}) {
        const StoredPartStore store;
        store.execute(std::string("UPDATE event_content_parts SET transfer_status = ") + status);
        const auto part = store.repository().eventContentForEventDatabaseIdentifier(7, 3);
        ASSERT_NE(part, nullptr);
        EXPECT_TRUE(store.repository().persistEventContentUpdate(*part));
        EXPECT_EQ(store.updatedPart("transfer_status"), status);
    }
}

TEST(ContentUpdate, SucceedsWhenThereIsNoSuchPart) {
    const StoredPartStore store;
    const auto before = store.rows("SELECT * FROM event_content_parts");
    for (const auto& [event, index] : {std::pair(7, 99), std::pair(99, 3), std::pair(0, 0)}) {
        FilledPart part;
        part.setEventDatabaseIdentifier(event);
        part.setIndex(index);
        const LogCapture log;
        ZAVError error = errorOfSomebodyElse();
        EXPECT_TRUE(store.repository().persistEventContentUpdate(part, &error));
        EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
        EXPECT_EQ(log.records(), std::vector{updateLine(part)});
    }
    EXPECT_EQ(store.rows("SELECT * FROM event_content_parts"), before);
}

TEST(ContentUpdate, APartThatWasNeverStoredIsAProgrammingError) {
    const StoredPartStore store;
    const auto before = store.rows("SELECT * FROM event_content_parts");
    FilledPart part;
    part.setEventDatabaseIdentifier(ZAVDatabaseIdentifierNotSet);
    const LogCapture log;
    const StatementTrace trace(store.database());
    ZAVError error = errorOfSomebodyElse();
    try {
        store.repository().persistEventContentUpdate(part, &error);
        ADD_FAILURE() << "the update accepted a part without an event";
    } catch (const NSInternalInconsistencyException& exception) {
        EXPECT_EQ(exception.reason(),
                  "Failed to persist event content update for event content that hasn't been persisted "
                  "before; eventContent=" +
                      part.description());
    }
    EXPECT_EQ(log.records(), std::vector{updateLine(part)}) << "the verbose line comes before the guard";
    EXPECT_EQ(error, errorOfSomebodyElse()) << "a programming error is no database error";
    EXPECT_EQ(trace.statements(), std::vector<std::string>());
    EXPECT_EQ(store.rows("SELECT * FROM event_content_parts"), before);
}

TEST(ContentUpdate, ZeroAndNegativeNumbersAreRowsOfEvents) {
    const TestStore store;
    for (const int event : {0, -1}) {
        addPart(store, 3, "transfer_status", "0", event);
        FilledPart part;
        part.setEventDatabaseIdentifier(event);
        EXPECT_TRUE(store.repository().persistEventContentUpdate(part));
    }
    EXPECT_EQ(store.rows("SELECT transfer_status FROM event_content_parts"),
              (std::vector<std::string>{"4", "4"}));
}

// The total.

constexpr ZAVSize noTotal = 18446744073709551615U;

LogRecord totalLine() {
    return verboseLine("-[ZAVEventRepository totalDiskUtilizationOfEventContentPartsWithError:]",
                       "Calculating total disk utilization of all the event content parts.",
                       "Calculating total disk utilization of all the event content parts.");
}

ZAVSize totalOf(const TestStore& store) {
    ZAVError error;
    const ZAVSize total = store.repository().totalDiskUtilizationOfEventContentPartsWithError(&error);
    EXPECT_FALSE(error) << error.description();
    return total;
}

/// The total of parts that have files of these sizes.
ZAVSize totalOfSizes(const std::vector<std::string>& sizes) {
    const TestStore store;
    int index = 0;
    for (const std::string& size : sizes) {
        addPart(store, index++, "transfer_status, file_path, size", "4, 'f', " + size);
    }
    return totalOf(store);
}

TEST(DiskUtilization, IsTheSumOfTheSizes) {
    EXPECT_EQ(totalOfSizes({"10", "20", "30"}), 60U);
}

TEST(DiskUtilization, CountsPartsThatAreHereInFullAndNoOthers) {
    const TestStore store;
    for (const std::string status : {"0", "1", "2", "3", "4", "5", "NULL"}) {
        const int index = status == "NULL" ? 6 : std::stoi(status);
        addPart(store, index, "transfer_status, file_path, size",
                status + ", 'f', " + std::to_string(1 << index));
    }
    EXPECT_EQ(totalOf(store), 1U + 2U + 16U) << "of the parts awaiting upload, uploading and complete";
}

TEST(DiskUtilization, CountsPartsThatHaveAFileAndASizeAndAreNotPurged) {
    const TestStore store;
    addPart(store, 0, "transfer_status, file_path, size, purged", "4, 'f', 1, 0");
    addPart(store, 1, "transfer_status, file_path, size, purged", "4, 'f', 2, NULL");
    addPart(store, 2, "transfer_status, file_path, size, purged", "4, 'f', 4, 1");
    addPart(store, 3, "transfer_status, file_path, size, purged", "4, NULL, 8, 0");
    addPart(store, 4, "transfer_status, file_path, size, purged", "4, 'f', NULL, 0");
    addPart(store, 5, "transfer_status, file_path, size, purged", "4, '', 32, 0", 99);
    EXPECT_EQ(totalOf(store), 1U + 2U + 32U);
}

TEST(DiskUtilization, IsExactUpTo2147483647Bytes) {
    EXPECT_EQ(totalOfSizes({"2147483646", "1"}), 2147483647U);
}

TEST(DiskUtilization, IsReadThroughItsLow32BitsBeyond) {
    EXPECT_EQ(totalOfSizes({"2147483647", "1"}), 18446744071562067968U);
    EXPECT_EQ(totalOfSizes({"3000000000"}), 18446744072414584320U);
    EXPECT_EQ(totalOfSizes({"1000000000", "2000000000"}), 18446744072414584320U);
    EXPECT_EQ(totalOfSizes({"4294967295"}), 18446744073709551615U);
    EXPECT_EQ(totalOfSizes({"4294967296"}), 0U);
    EXPECT_EQ(totalOfSizes({"4294967296", "5"}), 5U);
    EXPECT_EQ(totalOfSizes({"-1"}), 18446744073709551615U);
}

TEST(DiskUtilization, LosesAPartThatIsRecordedAsPurged) {
    const TestStore store;
    addPart(store, 0, "transfer_status, file_path, size, last_accessed", "4, 'f', 10, 1");
    addPart(store, 1, "transfer_status, file_path, size, last_accessed", "4, 'f', 5, 2");
    const auto part = store.repository().eventContentForEventDatabaseIdentifier(1, 0);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(totalOf(store), 15U);
    part->setIsPurged(true);
    ASSERT_TRUE(store.repository().persistEventContentUpdate(*part));
    EXPECT_EQ(totalOf(store), 5U);
    EXPECT_EQ(indexesOf(store.repository().leastRecentlyAccessedEventContentPartsForSize(1000)), Indexes{1})
        << "a purged part is chosen no more";
}

/// The total's only step fails: the operation does not ask why, so that it neither reports nor logs it.
void expectTheStepsFailureUnreported(const TestStore& store) {
    const LogCapture log;
    ZAVError error = errorOfSomebodyElse();
    EXPECT_EQ(store.repository().totalDiskUtilizationOfEventContentPartsWithError(&error), noTotal);
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    EXPECT_EQ(log.records(), std::vector{totalLine()});
    expectHandleIsAtRest(store);
}

TEST(DiskUtilization, HasAllBitsSetAndNoErrorWhenItsStepIsInterrupted) {
    const TestStore store;
    const StatementInterruption interruption(store.database(), "SELECT SUM");
    expectTheStepsFailureUnreported(store);
    EXPECT_EQ(store.database().lastError(), ZAVError("SQLite", SQLITE_INTERRUPT, "interrupted"));
}

TEST(DiskUtilization, HasAllBitsSetAndNoErrorWhenTheSumOverflows) {
    const TestStore store;
    addPart(store, 0, "transfer_status, file_path, size", "4, 'f', 9223372036854775807");
    addPart(store, 1, "transfer_status, file_path, size", "4, 'f', 1");
    expectTheStepsFailureUnreported(store);
    EXPECT_EQ(store.database().lastError(), ZAVError("SQLite", SQLITE_ERROR, "integer overflow"));
}

// The choice.

/// Complete parts of these sizes, the one at index 0 least recently accessed. They are stored in the opposite
/// order.
class SizesStore : public TestStore {
public:
    explicit SizesStore(const std::vector<std::string>& sizes) {
        for (std::size_t count = sizes.size(); count > 0; --count) {
            addPart(*this, static_cast<int>(count - 1), "transfer_status, file_path, last_accessed, size",
                    "4, 'f', " + std::to_string(1000 + count) + ", " + sizes[count - 1]);
        }
    }
};

/// How many parts are chosen for a request. They are the first ones of the store.
std::size_t chosen(const TestStore& store, ZAVSize request) {
    const Indexes indexes =
        sortedIndexesOf(store.repository().leastRecentlyAccessedEventContentPartsForSize(request));
    for (std::size_t position = 0; position < indexes.size(); ++position) {
        EXPECT_EQ(indexes[position], static_cast<std::int64_t>(position))
            << "a part was chosen before one whose last access is older";
    }
    return indexes.size();
}

TEST(LeastRecentlyAccessedParts, AreTakenUntilTheirSizesExceedTheRequest) {
    const SizesStore store({"10", "20", "30", "40"});
    EXPECT_EQ(chosen(store, 9), 1U);
    EXPECT_EQ(chosen(store, 10), 2U) << "a sum equal to the request takes one more";
    EXPECT_EQ(chosen(store, 25), 2U);
    EXPECT_EQ(chosen(store, 29), 2U);
    EXPECT_EQ(chosen(store, 30), 3U) << "a sum equal to the request takes one more";
    EXPECT_EQ(chosen(store, 59), 3U);
    EXPECT_EQ(chosen(store, 60), 4U);
    EXPECT_EQ(chosen(store, 1000), 4U) << "all, when they do not suffice";
    EXPECT_EQ(chosen(store, std::numeric_limits<ZAVSize>::max()), 4U);
}

TEST(LeastRecentlyAccessedParts, ForNoBytesGoOnToTheFirstThatHasAny) {
    EXPECT_EQ(chosen(SizesStore({"0", "NULL", "0", "1", "0"}), 0), 4U);
    EXPECT_EQ(chosen(SizesStore({"5", "5"}), 0), 1U);
    EXPECT_EQ(chosen(SizesStore({"0", "0", "NULL"}), 0), 3U) << "every part, when all are empty";
}

TEST(LeastRecentlyAccessedParts, ANegativeSizeCountsAsAHugeOne) {
    EXPECT_EQ(chosen(SizesStore({"-1", "10"}), 100), 1U);
    EXPECT_EQ(chosen(SizesStore({"-1", "10"}), 18446744073709551614U), 1U);
    EXPECT_EQ(chosen(SizesStore({"-1", "10"}), 18446744073709551615U), 2U);
}

TEST(LeastRecentlyAccessedParts, TheSumOfTheirSizesWrapsAround) {
    EXPECT_EQ(chosen(SizesStore({"10", "-5", "3", "100", "100"}), 50), 4U)
        << "10, then 5, then 8, then 108 bytes";
    EXPECT_EQ(chosen(SizesStore({"9223372036854775807", "9223372036854775807", "2", "1", "1"}),
                     18446744073709551614U),
              5U)
        << "the third part brings the sum back to 0";
}

TEST(LeastRecentlyAccessedParts, SizesBeyond32BitsCountInFull) {
    EXPECT_EQ(chosen(SizesStore({"4294967296", "4294967296", "1"}), 4294967296U), 2U);
    EXPECT_EQ(chosen(SizesStore({"4294967296", "4294967296", "1"}), 100), 1U);
}

TEST(LeastRecentlyAccessedParts, AreOnlyThoseThatWereEverAccessedAndHaveAFileAndAreNotPurged) {
    const TestStore store;
    const std::string columns = "transfer_status, size, file_path, last_accessed, purged";
    addPart(store, 0, columns, "4, 1, 'f', 5.5, 0");
    addPart(store, 1, columns, "4, 1, 'f', 6.5, NULL");
    addPart(store, 2, columns, "4, 1, 'f', 4.5, 1");
    addPart(store, 3, columns, "4, 1, NULL, 3.5, 0");
    addPart(store, 4, columns, "4, 1, 'f', NULL, 0");
    addPart(store, 5, columns, "4, 1, 'f', 0, 0");
    EXPECT_EQ(sortedIndexesOf(store.repository().leastRecentlyAccessedEventContentPartsForSize(1000)),
              (Indexes{0, 1, 5}));
}

TEST(LeastRecentlyAccessedParts, AreNeverThoseThatAreStillToBeUploaded) {
    const TestStore store;
    for (int status = 0; status <= 5; ++status) {
        addPart(store, status, "transfer_status, size, file_path, last_accessed",
                std::to_string(status) + ", 1, 'f', 1");
    }
    addPart(store, 6, "transfer_status, size, file_path, last_accessed", "NULL, 1, 'f', 1");
    EXPECT_EQ(sortedIndexesOf(store.repository().leastRecentlyAccessedEventContentPartsForSize(1000)),
              (Indexes{2, 3, 4, 5}));
}

TEST(LeastRecentlyAccessedParts, AreEachChosenOnceAsWholeRecords) {
    const TestStore store;
    store.execute(
        "INSERT INTO streams (database_identifier, stream_id) VALUES"
        " (1, x'11111111111111111111111111111101');"
        "INSERT INTO events (database_identifier, type, seq, stream_database_identifier, client_id) VALUES"
        " (1, 4, 3, 1, x'11111111111111111111111111111102')");
    for (const int index : {0, 1}) {
        addPart(store, index, "type, transfer_status, size, file_path, last_accessed",
                "'image/png', 4, 10, 'a/b', " + std::to_string(index + 0.5));
    }
    const auto parts = store.repository().leastRecentlyAccessedEventContentPartsForSize(1000);
    ASSERT_EQ(sortedIndexesOf(parts), (Indexes{0, 1})) << "each row is one element of the set";
    for (const auto& part : *parts) {
        EXPECT_EQ(part->eventDatabaseIdentifier(), 1);
        EXPECT_EQ(part->eventClientID(), uuidNumber(2));
        EXPECT_EQ(part->streamUUID(), uuidNumber(1));
        EXPECT_EQ(part->eventSeq(), 3);
        EXPECT_EQ(part->media_type(), "image/png");
        EXPECT_EQ(part->size(), 10);
        ASSERT_TRUE(part->fileURL());
        EXPECT_EQ(part->fileURL()->relativePath(), "a/b");
        EXPECT_EQ(part->lastAccessed(),
                  ZAVDateFromSecondsSince1970(static_cast<double>(part->index()) + 0.5));
    }
}

TEST(LeastRecentlyAccessedParts, AreNoLongerReadOnceTheRequestIsExceeded) {
    const SizesStore store({"10", "20", "30"});
    const InterruptionAfterRow interruption(store.database(), 2);
    ZAVError error;
    const auto parts = store.repository().leastRecentlyAccessedEventContentPartsForSize(25, &error);
    EXPECT_FALSE(error) << "a third step was taken: " << error.description();
    EXPECT_EQ(indexesOf(parts).size(), 2U);
    EXPECT_EQ(interruption.rows(), 2);
    expectHandleIsAtRest(store);
}

TEST(LeastRecentlyAccessedParts, AreAnnouncedWithAllBitsOfTheRequestAndLeaveTheCallersError) {
    const SizesStore store({"10", "20", "30"});
    const LogCapture log;
    ZAVError error = errorOfSomebodyElse();
    ASSERT_TRUE(
        store.repository().leastRecentlyAccessedEventContentPartsForSize(18446744073709551615U, &error));
    EXPECT_EQ(error, errorOfSomebodyElse()) << error.description();
    EXPECT_EQ(log.records(),
              std::vector{verboseLine(
                  "-[ZAVEventRepository leastRecentlyAccessedEventContentPartsForSize:error:]",
                  "Collecting least recently accessed event content parts with external content with "
                  "total size summing up to %lu byte(s).",
                  "Collecting least recently accessed event content parts with external content with "
                  "total size summing up to 18446744073709551615 byte(s).")});
    expectHandleIsAtRest(store);
}

}  // namespace
}  // namespace zav::test
