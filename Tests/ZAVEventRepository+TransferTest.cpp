#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Support/ContentParts.h"
#include "Support/LogCapture.h"
#include "Support/StatementInterruption.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Parts = std::optional<ZAVSet<ZAVEventContent>>;
using MIMETypes = std::optional<std::set<std::string>>;

/// A queue to read with different limits; what else there is to say of it, the catalogue says.
struct TransferQueue {
    const char* name;
    Parts (*run)(const ZAVEventRepository& repository, ZAVSize limit, ZAVError* error);
    Indexes fromTheOneEventAndItsParts;
};

void PrintTo(const TransferQueue& queue, std::ostream* stream) {
    *stream << queue.name;
}

const TransferQueue unassignedURLs{"unassignedURLs",
                                   [](const ZAVEventRepository& repository, ZAVSize, ZAVError* error) {
                                       return repository.eventContentsHavingUnassignedURLsWithError(error);
                                   },
                                   {0, 1}};

const TransferQueue incompleteUploads{
    "incompleteUploads",
    [](const ZAVEventRepository& repository, ZAVSize limit, ZAVError* error) {
        return repository.eventContentsHavingIncompleteUploadsWithLimit(limit, error);
    },
    {2, 3}};

const TransferQueue expiredDownloadsOfTypes{
    "expiredDownloadsOfTypes",
    [](const ZAVEventRepository& repository, ZAVSize limit, ZAVError* error) {
        return repository.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
            std::set<std::string>{"text/plain", "image/png"}, 1000, limit, error);
    },
    {4, 5}};

const TransferQueue expiredDownloadsOfAnyType{
    "expiredDownloadsOfAnyType",
    [](const ZAVEventRepository& repository, ZAVSize limit, ZAVError* error) {
        return repository.eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(std::nullopt, 1000,
                                                                                          limit, error);
    },
    {4, 5, 8}};

const TransferQueue incompleteDownloads{
    "incompleteDownloads",
    [](const ZAVEventRepository& repository, ZAVSize limit, ZAVError* error) {
        return repository.eventContentsHavingIncompleteDownloadsWithLimit(limit, error);
    },
    {6, 7}};

std::string nameOf(const testing::TestParamInfo<TransferQueue>& info) {
    return info.param.name;
}

/// A store with one event in a stream that the service knows.
class OneEventStore : public TestStore {
public:
    OneEventStore() {
        execute(
            "INSERT INTO streams (database_identifier, stream_id, seq)"
            " VALUES (1, x'11111111111111111111111111111101', 10);"
            "INSERT INTO events (database_identifier, type, seq, preceding_seq, stream_database_identifier,"
            " client_id) VALUES (1, 4, 3, 2, 1, x'11111111111111111111111111111102');");
    }
};

/// At least two parts for each queue, and some for none.
class OneEventAndItsParts : public OneEventStore {
public:
    OneEventAndItsParts() {
        const auto add = [this](int index, const std::string& values) {
            addPart(*this, index, "transfer_status, file_path, url, access_expiration, type, size", values);
        };
        add(0, "0, 'f', NULL, NULL, 'text/plain', 10");
        add(1, "1, 'f', NULL, NULL, 'text/plain', 10");
        add(2, "1, 'f', 'https://a', NULL, 'text/plain', 10");
        add(3, "1, 'f', 'https://a', 99999999999, 'text/plain', 10");
        add(4, "2, 'f', NULL, NULL, 'text/plain', 5000");
        add(5, "3, 'f', 'https://a', 1, 'video/mp4', 5000");
        add(6, "3, 'f', 'https://a', 99999999999, 'video/mp4', 5000");
        add(7, "3, 'f', 'https://a', 99999999999, 'text/plain', 10");
        add(8, "2, 'f', NULL, NULL, 'video/mp4', 5000");
        add(9, "4, 'f', 'https://a', NULL, 'text/plain', 10");
        add(10, "NULL, 'f', 'https://a', NULL, 'text/plain', 10");
    }
};

/// A statement with NOW in the place of the time that it was bound to, and that time as the engine prints it.
struct DatedStatement {
    std::string text;
    std::string now;
};

DatedStatement withoutItsTime(const std::string& statement) {
    for (const std::string comparison : {"access_expiration <= ", "access_expiration > "}) {
        if (const auto place = statement.find(comparison); place != std::string::npos) {
            const auto begin = place + comparison.size();
            const auto end = statement.find(')', begin);
            return {statement.substr(0, begin) + "NOW" + statement.substr(end),
                    statement.substr(begin, end - begin)};
        }
    }
    return {statement, ""};
}

/// The only statement that a call runs.
template <class Call>
std::string statementOf(const TestStore& store, const Call& call) {
    const StatementTrace trace(store.database());
    EXPECT_TRUE(call()) << "the operation failed";
    EXPECT_EQ(trace.statements().size(), 1U) << "a queue is read with one statement";
    return trace.statements().empty() ? "" : trace.statements().front();
}

// What all queues have in common.

class EveryTransferQueue : public testing::TestWithParam<TransferQueue> {};

INSTANTIATE_TEST_SUITE_P(Of, EveryTransferQueue,
                         testing::Values(unassignedURLs, incompleteUploads, expiredDownloadsOfTypes,
                                         expiredDownloadsOfAnyType, incompleteDownloads),
                         nameOf);

TEST_P(EveryTransferQueue, AnswersItsParts) {
    const OneEventAndItsParts store;
    EXPECT_EQ(sortedIndexesOf(GetParam().run(store.repository(), 7, nullptr)),
              GetParam().fromTheOneEventAndItsParts);
}

TEST_P(EveryTransferQueue, AnswersWholeRecords) {
    const OneEventAndItsParts store;
    const Parts parts = GetParam().run(store.repository(), 7, nullptr);
    ASSERT_TRUE(parts);
    for (const auto& part : *parts) {
        EXPECT_EQ(part->eventDatabaseIdentifier(), 1);
        EXPECT_EQ(part->eventClientID(), uuidNumber(2));
        EXPECT_EQ(part->streamUUID(), uuidNumber(1));
        EXPECT_EQ(part->eventSeq(), 3);
        ASSERT_TRUE(part->fileURL());
        EXPECT_EQ(part->fileURL()->relativePath(), "f");
    }
}

TEST_P(EveryTransferQueue, PassesOverPartsWithoutAFile) {
    const OneEventAndItsParts store;
    store.execute("UPDATE event_content_parts SET file_path = NULL");
    EXPECT_EQ(indexesOf(GetParam().run(store.repository(), 7, nullptr)), Indexes());
}

// What the queues with a limit have in common.

class EveryLimitedQueue : public testing::TestWithParam<TransferQueue> {};

INSTANTIATE_TEST_SUITE_P(Of, EveryLimitedQueue,
                         testing::Values(incompleteUploads, expiredDownloadsOfTypes,
                                         expiredDownloadsOfAnyType, incompleteDownloads),
                         nameOf);

TEST_P(EveryLimitedQueue, AnswersAnEmptySetForALimitOfZero) {
    const OneEventAndItsParts store;
    const Parts parts = GetParam().run(store.repository(), 0, nullptr);
    ASSERT_TRUE(parts) << "a limit of 0 is no failure";
    EXPECT_TRUE(parts->empty());
}

TEST_P(EveryLimitedQueue, AnswersNoMoreThanItsLimit) {
    const OneEventAndItsParts store;
    EXPECT_EQ(indexesOf(GetParam().run(store.repository(), 1, nullptr)).size(), 1U);
}

TEST_P(EveryLimitedQueue, AnswersEveryPartForTheGreatestLimit) {
    const OneEventAndItsParts store;
    EXPECT_EQ(
        sortedIndexesOf(GetParam().run(store.repository(), std::numeric_limits<ZAVSize>::max(), nullptr)),
        GetParam().fromTheOneEventAndItsParts);
}

TEST_P(EveryLimitedQueue, BindsItsLimitWithAllItsBits) {
    const OneEventAndItsParts store;
    const std::string statement =
        statementOf(store, [&] { return GetParam().run(store.repository(), 4294967303U, nullptr); });
    EXPECT_TRUE(statement.ends_with(" LIMIT 4294967303")) << statement;
}

// Downloads.

class EveryDownloadQueue : public testing::TestWithParam<TransferQueue> {};

INSTANTIATE_TEST_SUITE_P(Of, EveryDownloadQueue,
                         testing::Values(expiredDownloadsOfTypes, expiredDownloadsOfAnyType,
                                         incompleteDownloads),
                         nameOf);

/// The values of a part that each of them, at its own time, answers: it is being downloaded.
std::string downloadingUntil(const std::string& expiration) {
    return "3, 'f', 'https://a', " + expiration;
}

constexpr const char* downloadColumns = "transfer_status, file_path, url, access_expiration";

/// An expiration at which a part belongs to the queue.
std::string expirationFor(const TransferQueue& queue) {
    return queue.name == std::string_view("incompleteDownloads") ? "99999999999" : "1";
}

TEST_P(EveryDownloadQueue, BindsTheCurrentTimeAsARealNumber) {
    const OneEventAndItsParts store;
    const double before = ZAVSecondsSince1970(ZAVNow());
    const std::string statement =
        statementOf(store, [&] { return GetParam().run(store.repository(), 7, nullptr); });
    const double after = ZAVSecondsSince1970(ZAVNow());
    const std::string now = withoutItsTime(statement).now;
    EXPECT_NE(now.find('.'), std::string::npos) << "the time is no real number: " << now;
    const double bound = std::strtod(now.c_str(), nullptr);
    EXPECT_GE(bound, before - 0.001) << "the time is earlier than the call";
    EXPECT_LE(bound, after + 0.001) << "the time is later than the call";
}

TEST_P(EveryDownloadQueue, TakesTheTimeAnewWithEachCall) {
    const OneEventAndItsParts store;
    const auto boundTime = [&] {
        return std::strtod(
            withoutItsTime(statementOf(store, [&] { return GetParam().run(store.repository(), 7, nullptr); }))
                .now.c_str(),
            nullptr);
    };
    const double first = boundTime();
    while (ZAVSecondsSince1970(ZAVNow()) < first + 0.002) {
    }
    EXPECT_GT(boundTime(), first);
}

/// Does something as each log line arrives, while it lives.
class DoingAtEachLine {
public:
    explicit DoingAtEachLine(std::function<void()> work) : sink_(std::make_shared<Sink>()) {
        sink_->work = std::move(work);
        DDLog::setSink(sink_);
    }

private:
    struct Sink final : DDLogSink {
        void write(const DDLogMessage&) override { work(); }
        std::function<void()> work;
    };

    LogCapture openGuards_;  ///< puts the default sink back in the end
    std::shared_ptr<Sink> sink_;
};

TEST_P(EveryDownloadQueue, TakesTheTimeAfterItsVerboseLine) {
    const OneEventAndItsParts store;
    double whenTheLineWasWritten = 0;
    const DoingAtEachLine slowSink([&] {
        const double start = ZAVSecondsSince1970(ZAVNow());
        do {
            whenTheLineWasWritten = ZAVSecondsSince1970(ZAVNow());
        } while (whenTheLineWasWritten < start + 0.05);
    });
    const std::string statement =
        statementOf(store, [&] { return GetParam().run(store.repository(), 7, nullptr); });
    ASSERT_GT(whenTheLineWasWritten, 0) << "no line was written";
    EXPECT_GE(std::strtod(withoutItsTime(statement).now.c_str(), nullptr), whenTheLineWasWritten - 0.001)
        << "the time is that of the call, not of the query";
}

TEST_P(EveryDownloadQueue, KeepsThePartsNearestTheEndOfTheirStreamAndThenTheLatestOfTheirCreator) {
    const TestStore store;
    store.execute(
        "INSERT INTO streams (database_identifier, stream_id, seq) VALUES (1, x'01', 10);"
        "INSERT INTO events (database_identifier, type, stream_database_identifier, client_id,"
        " preceding_seq, client_seq, creator_id) VALUES"
        " (1, 4, 77, x'AA', 1, 5, 'a'), (2, 4, 1, x'AA', NULL, 4, 'a'), (3, 4, 1, x'AA', 12, 1, 'a'),"
        " (4, 4, 1, x'AA', 9, 3, 'a'), (5, 4, 1, x'AA', 9, 3, 'b'), (6, 4, 1, x'AA', 9, 7, 'a'),"
        " (7, 4, 1, x'AA', 2, 99, 'z')");
    for (const int event : {7, 4, 0, 3, 5, 2, 6, 1}) {
        addPart(store, event, downloadColumns, downloadingUntil(expirationFor(GetParam())), event);
    }
    // The parts at 1, 2 and 0 have no rank: their stream, preceding sequence or event is missing.
    const Indexes ranking{1, 2, 0, 3, 6, 5, 4, 7};
    for (std::size_t limit = 0; limit <= ranking.size(); ++limit) {
        const Indexes kept(ranking.begin(), ranking.begin() + static_cast<std::ptrdiff_t>(limit));
        EXPECT_EQ(sortedIndexesOf(GetParam().run(store.repository(), limit, nullptr)), sorted(kept))
            << "with a limit of " << limit;
    }
}

TEST_P(EveryDownloadQueue, TakesThePartsOfAStreamWhoseLengthIsUnknownFirst) {
    const TestStore store;
    store.execute(
        "INSERT INTO streams (database_identifier, stream_id, seq) VALUES (1, x'01', 10), (2, x'02', NULL);"
        "INSERT INTO events (database_identifier, type, stream_database_identifier, client_id,"
        " preceding_seq) VALUES (1, 4, 1, x'AA', 10), (2, 4, 2, x'AA', 1)");
    for (const int event : {1, 2}) {
        addPart(store, event, downloadColumns, downloadingUntil(expirationFor(GetParam())), event);
    }
    EXPECT_EQ(indexesOf(GetParam().run(store.repository(), 1, nullptr)), Indexes{2});
}

TEST_P(EveryDownloadQueue, CountsAnUnknownPurgeMarkAsNotPurged) {
    const TestStore store;
    const std::string columns = std::string(downloadColumns) + ", purged";
    const std::string values = downloadingUntil(expirationFor(GetParam()));
    addPart(store, 0, columns, values + ", NULL");
    addPart(store, 1, columns, values + ", 0");
    addPart(store, 2, columns, values + ", 1");
    EXPECT_EQ(sortedIndexesOf(GetParam().run(store.repository(), 7, nullptr)), (Indexes{0, 1}));
}

TEST_P(EveryDownloadQueue, ToleratesMissingEvents) {
    const TestStore store;
    addPart(store, 5, downloadColumns, downloadingUntil(expirationFor(GetParam())), 99);
    const Parts parts = GetParam().run(store.repository(), 7, nullptr);
    ASSERT_TRUE(parts);
    ASSERT_EQ(parts->size(), 1U);
    EXPECT_EQ((*parts)[0]->eventDatabaseIdentifier(), 99);
    EXPECT_EQ((*parts)[0]->eventClientID(), std::nullopt);
    EXPECT_EQ((*parts)[0]->streamUUID(), std::nullopt);
    EXPECT_EQ((*parts)[0]->eventSeq(), ZAVSequenceNotSet);
}

TEST(TransferQueues, APartWhoseURLHasExpiredNeedsANewOneAndOneWhoseURLStillWorksDoesNot) {
    const OneEventStore store;
    const double now = ZAVSecondsSince1970(ZAVNow());
    addPart(store, 0, downloadColumns, downloadingUntil(std::to_string(now - 100)));
    addPart(store, 1, downloadColumns, downloadingUntil(std::to_string(now + 1000)));
    EXPECT_EQ(indexesOf(expiredDownloadsOfAnyType.run(store.repository(), 7, nullptr)), Indexes{0});
    EXPECT_EQ(indexesOf(expiredDownloadsOfTypes.run(store.repository(), 7, nullptr)), Indexes{0});
    EXPECT_EQ(indexesOf(incompleteDownloads.run(store.repository(), 7, nullptr)), Indexes{1});
}

TEST(TransferQueues, APartWhoseURLExpiresNowIsExpiredAndNoIncompleteDownload) {
    const OneEventStore store;
    addPart(store, 0, downloadColumns, downloadingUntil("1000.5"));
    // The same statements that the queues run, at the very moment of expiration.
    const auto countAt = [&](const TransferQueue& queue, const std::string& time) {
        std::string text = withoutItsTime(statementOf(store, [&] {
                               return queue.run(store.repository(), 7, nullptr);
                           })).text;
        text.replace(text.find("NOW"), 3, time);
        return store.rows(text).size();
    };
    for (const TransferQueue& expired : {expiredDownloadsOfTypes, expiredDownloadsOfAnyType}) {
        EXPECT_EQ(countAt(expired, "1000.25"), 0U) << expired.name << " before the expiration";
        EXPECT_EQ(countAt(expired, "1000.5"), 1U) << expired.name << " at the expiration";
        EXPECT_EQ(countAt(expired, "1000.75"), 1U) << expired.name << " after the expiration";
    }
    EXPECT_EQ(countAt(incompleteDownloads, "1000.25"), 1U) << "before the expiration";
    EXPECT_EQ(countAt(incompleteDownloads, "1000.5"), 0U) << "at the expiration";
    EXPECT_EQ(countAt(incompleteDownloads, "1000.75"), 0U) << "after the expiration";
}

TEST(TransferQueues, ADownloadWithoutURLOrExpirationNeedsANewOneAndIsNoIncompleteDownload) {
    const OneEventStore store;
    addPart(store, 0, downloadColumns, "3, 'f', NULL, 99999999999");
    addPart(store, 1, downloadColumns, "3, 'f', 'https://a', NULL");
    addPart(store, 2, downloadColumns, "3, 'f', NULL, NULL");
    EXPECT_EQ(sortedIndexesOf(expiredDownloadsOfAnyType.run(store.repository(), 7, nullptr)),
              (Indexes{0, 1, 2}));
    EXPECT_EQ(sortedIndexesOf(expiredDownloadsOfTypes.run(store.repository(), 7, nullptr)),
              (Indexes{0, 1, 2}));
    EXPECT_EQ(indexesOf(incompleteDownloads.run(store.repository(), 7, nullptr)), Indexes());
}

TEST(TransferQueues, OnlyDownloadsInFlightAreIncompleteDownloads) {
    const OneEventStore store;
    for (int status = 0; status <= 5; ++status) {
        addPart(store, status, downloadColumns, std::to_string(status) + ", 'f', 'https://a', 99999999999");
    }
    EXPECT_EQ(indexesOf(incompleteDownloads.run(store.repository(), 7, nullptr)), Indexes{3});
}

/// The parts that need a download URL, for one set of wishes.
Indexes expiredDownloads(const TestStore& store, const MIMETypes& types, ZAVSize maxSize) {
    return sortedIndexesOf(store.repository().eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
        types, maxSize, 100));
}

std::string expiredDownloadsStatement(const TestStore& store, const MIMETypes& types, ZAVSize maxSize) {
    return statementOf(store, [&] {
        return store.repository().eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
            types, maxSize, 100);
    });
}

/// Parts that have no URL: ready for download and small, ready and large, ready without a size, and being
/// downloaded, of two types.
class DownloadsStore : public OneEventStore {
public:
    DownloadsStore() {
        int index = 0;
        for (const std::string type : {"'image/png'", "'video/mp4'"}) {
            for (const std::string statusAndSize : {"2, 10", "2, 5000", "2, NULL", "3, 5000"}) {
                addPart(*this, index++, "file_path, type, transfer_status, size",
                        "'f', " + type + ", " + statusAndSize);
            }
        }
    }
};

TEST(TransferQueues, WithoutTypesEveryReadyPartIsWantedWhateverItsSize) {
    const DownloadsStore store;
    EXPECT_EQ(expiredDownloads(store, std::nullopt, 0), (Indexes{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(TransferQueues, WithTypesAReadyPartIsWantedForItsTypeOrForItsSize) {
    const DownloadsStore store;
    EXPECT_EQ(expiredDownloads(store, {{"image/png"}}, 9), (Indexes{0, 1, 2, 3, 7}));
    EXPECT_EQ(expiredDownloads(store, {{"image/png"}}, 10), (Indexes{0, 1, 2, 3, 4, 7}));
    EXPECT_EQ(expiredDownloads(store, {{"image/png", "video/mp4"}}, 0), (Indexes{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(TransferQueues, TypesAreComparedLetterByLetter) {
    const DownloadsStore store;
    EXPECT_EQ(expiredDownloads(store, {{"IMAGE/PNG", "image/", "image/png "}}, 0), (Indexes{3, 7}));
}

/// Expects the statement for these types to list them so.
void expectTypesListed(const TestStore& store, const MIMETypes& types, const std::string& list) {
    const std::string statement = expiredDownloadsStatement(store, types, 10);
    EXPECT_NE(statement.find("(transfer_status = 2 AND event_content_parts.type IN " + list + ") OR "),
              std::string::npos)
        << statement;
}

TEST(TransferQueues, WithAnEmptySetOfTypesOnlyDownloadsAndSmallPartsAreWanted) {
    const DownloadsStore store;
    const MIMETypes none = std::set<std::string>();
    EXPECT_EQ(expiredDownloads(store, none, 9), (Indexes{3, 7}));
    EXPECT_EQ(expiredDownloads(store, none, 10), (Indexes{0, 3, 4, 7}));
    expectTypesListed(store, none, "()");
}

TEST(TransferQueues, TypesAreListedInTheOrderOfTheSetEachInQuotes) {
    expectTypesListed(DownloadsStore(), {{"video/mp4", "image/png", "image/*"}},
                      "('image/*', 'image/png', 'video/mp4')");
}

TEST(TransferQueues, ATypeOfOneKindIsListedWithoutAComma) {
    expectTypesListed(DownloadsStore(), {{"image/png"}}, "('image/png')");
}

TEST(TransferQueues, ATypeThatLooksLikeAPlaceholderIsListedAsItIs) {
    expectTypesListed(DownloadsStore(), {{"", "%@", "100%", "?"}}, "('', '%@', '100%', '?')");
}

TEST(TransferQueues, TypesAreReadAfterTheVerboseLine) {
    const DownloadsStore store;
    MIMETypes types{{"text/plain"}};
    const DoingAtEachLine sink([&] { types->insert("image/png"); });
    expectTypesListed(store, types, "('image/png', 'text/plain')");
}

TEST(TransferQueues, ATypeWithAQuoteMakesTheStatementFail) {
    const DownloadsStore store;
    ZAVError error;
    const LogCapture log;
    EXPECT_FALSE(store.repository().eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
        std::set<std::string>{"it's"}, 10, 7, &error))
        << "the quote must not be escaped";
    EXPECT_EQ(error, ZAVError("SQLite", SQLITE_ERROR, "near \"s\": syntax error")) << error.description();
    ASSERT_EQ(log.records().size(), 2U);
    EXPECT_EQ(log.records()[1].message,
              "failed to fetch event content parts awaiting uploads " + error.description());
    expectHandleIsAtRest(store);
}

TEST(TransferQueues, ATypeIsTextOfTheStatement) {
    const DownloadsStore store;
    EXPECT_EQ(expiredDownloads(store, {{"x', 'image/png"}}, 0), (Indexes{0, 1, 2, 3, 7}));
}

TEST(TransferQueues, OnlyTheLowHalfOfTheGreatestSizeCounts) {
    const DownloadsStore store;
    const auto boundSize = [&](const MIMETypes& types, ZAVSize maxSize) {
        const std::string statement = expiredDownloadsStatement(store, types, maxSize);
        const auto begin = statement.find("size <= ") + 8;
        return statement.substr(begin, statement.find(')', begin) - begin);
    };
    for (const MIMETypes& types : {MIMETypes(), MIMETypes(std::set<std::string>{"image/png"})}) {
        EXPECT_EQ(boundSize(types, 0), "0");
        EXPECT_EQ(boundSize(types, 2147483648U), "2147483648");
        EXPECT_EQ(boundSize(types, 4294967295U), "4294967295");
        EXPECT_EQ(boundSize(types, 4294967296U), "0");
        EXPECT_EQ(boundSize(types, 4294967301U), "5");
        EXPECT_EQ(boundSize(types, std::numeric_limits<ZAVSize>::max()), "4294967295");
    }
}

TEST(TransferQueues, AGreatestSizeOfTwoToTheThirtySecondLetsOnlyEmptyPartsPass) {
    const OneEventStore store;
    addPart(store, 0, "file_path, transfer_status, size", "'f', 2, 0");
    addPart(store, 1, "file_path, transfer_status, size", "'f', 2, 1");
    addPart(store, 2, "file_path, transfer_status, size", "'f', 2, 4294967295");
    addPart(store, 3, "file_path, transfer_status, size", "'f', 2, 4294967296");
    EXPECT_EQ(expiredDownloads(store, std::set<std::string>(), 4294967296U), Indexes{0});
    EXPECT_EQ(expiredDownloads(store, std::set<std::string>(), 4294967295U), (Indexes{0, 1, 2}));
}

TEST(TransferQueues, AReadyPartWhoseURLStillWorksNeedsNoNewOne) {
    const OneEventStore store;
    addPart(store, 0, downloadColumns, "2, 'f', 'https://a', 99999999999");
    addPart(store, 1, downloadColumns, "2, 'f', 'https://a', 1");
    EXPECT_EQ(expiredDownloads(store, std::nullopt, 0), Indexes{1});
}

TEST(TransferQueues, OnlyReadyPartsAndDownloadsNeedADownloadURL) {
    const OneEventStore store;
    for (int status = 0; status <= 5; ++status) {
        addPart(store, status, "transfer_status, file_path, size", std::to_string(status) + ", 'f', 1");
    }
    EXPECT_EQ(expiredDownloads(store, std::nullopt, 10), (Indexes{2, 3}));
    EXPECT_EQ(expiredDownloads(store, std::set<std::string>(), 10), (Indexes{2, 3}));
}

// Uploads.

TEST(TransferQueues, APartAwaitsAnUploadURLOnlyInAStreamThatTheServiceKnows) {
    const OneEventStore store;
    store.execute(
        "INSERT INTO streams (database_identifier, stream_id) VALUES (2, NULL);"
        "INSERT INTO events (database_identifier, type, stream_database_identifier, client_id)"
        " VALUES (2, 4, 2, x'AA'), (3, 4, 99, x'AA'), (4, 4, NULL, x'AA')");
    for (const int event : {1, 2, 3, 4, 5}) {
        addPart(store, event, "transfer_status, file_path", "0, 'f'", event);
    }
    EXPECT_EQ(indexesOf(store.repository().eventContentsHavingUnassignedURLsWithError()), Indexes{1});
    store.execute("UPDATE streams SET stream_id = x'02' WHERE database_identifier = 2");
    EXPECT_EQ(sortedIndexesOf(store.repository().eventContentsHavingUnassignedURLsWithError()),
              (Indexes{1, 2}))
        << "the stream is known now";
}

TEST(TransferQueues, APartWithoutURLAwaitsOneInTwoStatesAndOneWithAURLIsIncompleteInFlightOnly) {
    const OneEventStore store;
    for (int status = 0; status <= 5; ++status) {
        addPart(store, status, "transfer_status, file_path", std::to_string(status) + ", 'f'");
        addPart(store, status + 10, "transfer_status, file_path, url", std::to_string(status) + ", 'f', ''");
    }
    EXPECT_EQ(sortedIndexesOf(store.repository().eventContentsHavingUnassignedURLsWithError()),
              (Indexes{0, 1}));
    EXPECT_EQ(indexesOf(store.repository().eventContentsHavingIncompleteUploadsWithLimit(100)), Indexes{11});
}

TEST(TransferQueues, AnIncompleteUploadIsFoundWithoutItsEventAndItsStream) {
    const TestStore store;
    addPart(store, 3, "transfer_status, file_path, url", "1, 'f', 'https://a'", 99);
    EXPECT_EQ(indexesOf(store.repository().eventContentsHavingIncompleteUploadsWithLimit(100)), Indexes{3});
}

TEST(TransferQueues, UploadsDoNotLookAtThePurgeMark) {
    const OneEventStore store;
    addPart(store, 0, "transfer_status, file_path, purged", "0, 'f', 1");
    addPart(store, 1, "transfer_status, file_path, url, purged", "1, 'f', 'https://a', 1");
    EXPECT_EQ(indexesOf(store.repository().eventContentsHavingUnassignedURLsWithError()), Indexes{0});
    EXPECT_EQ(indexesOf(store.repository().eventContentsHavingIncompleteUploadsWithLimit(100)), Indexes{1});
}

TEST(TransferQueues, APartPassesThroughTheQueuesAsItsProgressIsRecorded) {
    const OneEventStore store;
    addPart(store, 0, "transfer_status, file_path", "0, 'f'");
    const auto& repository = store.repository();
    const auto part = repository.eventContentForEventDatabaseIdentifier(1, 0);
    ASSERT_NE(part, nullptr);
    EXPECT_EQ(indexesOf(repository.eventContentsHavingUnassignedURLsWithError()), Indexes{0});

    part->set_external_url("https://store.example/1");
    part->setTransferStatus(ZAVContentTransferUploading);
    ASSERT_TRUE(repository.persistEventContentUpdate(*part));
    EXPECT_EQ(indexesOf(repository.eventContentsHavingUnassignedURLsWithError()), Indexes());
    EXPECT_EQ(indexesOf(repository.eventContentsHavingIncompleteUploadsWithLimit(7)), Indexes{0});

    part->setTransferStatus(ZAVContentTransferDownloading);
    part->setExternalContentURLExpiration(ZAVNow() + std::chrono::hours(1));
    ASSERT_TRUE(repository.persistEventContentUpdate(*part));
    EXPECT_EQ(indexesOf(repository.eventContentsHavingIncompleteUploadsWithLimit(7)), Indexes());
    EXPECT_EQ(indexesOf(repository.eventContentsHavingIncompleteDownloadsWithLimit(7)), Indexes{0});

    part->setTransferStatus(ZAVContentTransferComplete);
    ASSERT_TRUE(repository.persistEventContentUpdate(*part));
    EXPECT_EQ(indexesOf(repository.eventContentsHavingIncompleteDownloadsWithLimit(7)), Indexes());
    EXPECT_EQ(expiredDownloads(store, std::nullopt, 0), Indexes());
}

// Preparing a received event.

/// An event with one part for each URL, an absent one included.
class ReceivedEvent final : public ZAVEvent {
public:
    explicit ReceivedEvent(const std::vector<std::optional<std::string>>& urls) {
        set_client_id(ZAVDataFromUUID(uuidNumber(5)));
        std::vector<std::shared_ptr<ZAVTContent>> content;
        for (const auto& url : urls) {
            auto part = std::make_shared<ZAVEventContent>();
            if (url) {
                part->set_external_url(*url);
            }
            part->setTransferStatus(ZAVContentTransferComplete);
            content.push_back(part);
        }
        set_content(std::move(content));
    }
};

/// The path, below the cache directory, of the part at a position of an event that `prepare` has prepared.
std::string preparedPath(std::size_t position, const std::string& user = "alice") {
    return "11111111-1111-1111-1111-111111111109/" + user + "/11111111-1111-1111-1111-111111111105/part-" +
           std::to_string(position);
}

/// Prepares an event for the application with the UUID 11111111-1111-1111-1111-111111111109.
void prepare(ZAVEvent& event, std::string_view user = "alice") {
    ZAVPrepareEventContentsForDownload(event, uuidNumber(9), user);
}

/// The file of a part as its path below the cache directory; "none" when the part has none.
std::string fileOf(const ZAVEvent& event, std::size_t position) {
    const auto part = event.contentParts().at(position);
    return part->fileURL() ? part->fileURL()->relativePath() : "none";
}

ZAVContentTransferStatus statusOf(const ZAVEvent& event, std::size_t position) {
    return event.contentParts().at(position)->transferStatus();
}

TEST(PreparingForDownload, APartWithAURLBecomesReadyAndGetsItsFile) {
    ReceivedEvent event({"https://store.example/1"});
    prepare(event);
    EXPECT_EQ(statusOf(event, 0), ZAVContentTransferReadyForDownload);
    const auto file = event.contentParts()[0]->fileURL();
    ASSERT_TRUE(file);
    EXPECT_EQ(file->relativePath(), preparedPath(0));
    EXPECT_EQ(file->baseURL(), ZAVMessageRepositoryCacheBaseDirectoryURL());
    EXPECT_EQ(file->absoluteString(),
              ZAVMessageRepositoryCacheBaseDirectoryURL().absoluteString() + preparedPath(0));
    EXPECT_EQ(event.contentParts()[0]->external_url(), "https://store.example/1");
}

TEST(PreparingForDownload, PartsWithoutAURLStayAsTheyAreAndCountAllTheSame) {
    ReceivedEvent event({std::nullopt, "", "https://store.example/1", "not a URL"});
    prepare(event);
    for (const std::size_t untouched : {0U, 1U}) {
        EXPECT_EQ(statusOf(event, untouched), ZAVContentTransferComplete) << "of the part at " << untouched;
        EXPECT_EQ(fileOf(event, untouched), "none") << "of the part at " << untouched;
    }
    for (const std::size_t prepared : {2U, 3U}) {
        EXPECT_EQ(statusOf(event, prepared), ZAVContentTransferReadyForDownload)
            << "of the part at " << prepared;
        EXPECT_EQ(fileOf(event, prepared), preparedPath(prepared));
    }
}

TEST(PreparingForDownload, ThePositionCountsNotTheIndexOfThePart) {
    ReceivedEvent event({"https://store.example/1"});
    event.contentParts()[0]->setIndex(41);
    prepare(event);
    EXPECT_EQ(fileOf(event, 0), preparedPath(0));
    EXPECT_EQ(event.contentParts()[0]->index(), 41);
}

TEST(PreparingForDownload, AnEventWithoutContentStaysAsItIs) {
    ZAVEvent none;
    prepare(none);
    EXPECT_EQ(none.content(), std::nullopt);
    ReceivedEvent empty({});
    prepare(empty);
    ASSERT_TRUE(empty.content());
    EXPECT_TRUE(empty.content()->empty());
}

TEST(PreparingForDownload, ThePartsOfAnEventWithoutAUUIDBecomeReadyWithoutAFile) {
    for (const std::optional<ZAVData>& clientID :
         {std::optional<ZAVData>(), std::optional(ZAVData()), std::optional(ZAVData::fromText("short"))}) {
        ReceivedEvent event({"https://store.example/1"});
        event.set_client_id(clientID);
        event.contentParts()[0]->setFileURL(ZAVURL::URLWithString("old"));
        prepare(event);
        EXPECT_EQ(statusOf(event, 0), ZAVContentTransferReadyForDownload);
        EXPECT_EQ(fileOf(event, 0), "none") << "the missing file is stored as well";
    }
}

TEST(PreparingForDownload, AUsersNameNamesOneDirectoryWhateverItHolds) {
    const std::vector<std::pair<std::string, std::string>> names{
        {"alice", "alice"}, {"A-z_0~9.b", "A-z_0~9.b"}, {"a/b", "a=2Fb"},
        {"../x", "..=2Fx"}, {"..", "=2E=2E"},           {".", "=2E"},
        {"", "="},          {"a=b", "a=3Db"},           {"100% \xC3\xA9", "100=25=20=C3=A9"}};
    for (const auto& [user, directory] : names) {
        ReceivedEvent event({"https://store.example/1"});
        prepare(event, user);
        EXPECT_EQ(fileOf(event, 0), preparedPath(0, directory));
    }
}

TEST(PreparingForDownload, DifferentUsersApplicationsEventsAndPartsHaveDifferentFiles) {
    std::set<std::string> files;
    for (const int application : {1, 2}) {
        for (const char* user : {"a", "b"}) {
            for (const int number : {3, 4}) {
                ReceivedEvent event({"https://a", "https://b"});
                event.set_client_id(ZAVDataFromUUID(uuidNumber(number)));
                ZAVPrepareEventContentsForDownload(event, uuidNumber(application), user);
                files.insert(fileOf(event, 0));
                files.insert(fileOf(event, 1));
            }
        }
    }
    EXPECT_EQ(files.size(), 16U);
}

TEST(PreparingForDownload, ContentThatIsNoStoredPartIsPassedOver) {
    ReceivedEvent event({});
    const auto foreign = std::make_shared<ZAVTContent>();
    foreign->set_external_url("https://store.example/0");
    const auto part = std::make_shared<ZAVEventContent>();
    part->set_external_url("https://store.example/1");
    event.set_content(std::vector<std::shared_ptr<ZAVTContent>>{foreign, nullptr, part});
    prepare(event);
    EXPECT_EQ(fileOf(event, 2), preparedPath(2));
}

TEST(PreparingForDownload, LogsNothing) {
    const LogCapture log;
    ReceivedEvent event({"https://store.example/1", ""});
    prepare(event);
    EXPECT_EQ(log.records(), std::vector<LogRecord>());
}

TEST(PreparingForDownload, TheFilesAreBelowTheDirectoryThatTheApplicationSets) {
    struct RestoredDirectory {
        ZAVURL directory = ZAVMessageRepositoryCacheBaseDirectoryURL();
        ~RestoredDirectory() { ZAVSetMessageRepositoryCacheBaseDirectoryURL(directory); }
    } const restored;
    ZAVSetMessageRepositoryCacheBaseDirectoryURL(ZAVURL::fileURLWithDirectoryPath("/somewhere else"));
    ReceivedEvent event({"https://store.example/1"});
    prepare(event);
    ASSERT_TRUE(event.contentParts()[0]->fileURL());
    EXPECT_EQ(event.contentParts()[0]->fileURL()->filePath(), "/somewhere else/" + preparedPath(0));
}

TEST(PreparingForDownload, APreparedPartIsReadBackWithItsFileAndWaitsForDownload) {
    const OneEventStore store;
    addPart(store, 0, "type", "'text/plain'");
    ReceivedEvent event({"https://store.example/1"});
    prepare(event);
    const auto part = event.contentParts()[0];
    part->setEventDatabaseIdentifier(1);
    ASSERT_TRUE(store.repository().persistEventContentUpdate(*part));
    const Parts waiting = expiredDownloadsOfAnyType.run(store.repository(), 7, nullptr);
    ASSERT_EQ(indexesOf(waiting), Indexes{0});
    EXPECT_EQ((*waiting)[0]->fileURL(), part->fileURL());
}

}  // namespace
}  // namespace zav::test
