#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

#include "Faults/FaultSweep.h"
#include "Faults/FaultyAllocator.h"
#include "Faults/FaultyFileSystem.h"
#include "Operations/Catalogue.h"
#include "Operations/TestWithOperation.h"
#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

class MemoryFaults : public TestWithOperation {};

TEST_P(MemoryFaults, AreReportedOrWithoutEffectAndNothingStoredIsLost) {
    const SweepTally tally =
        sweepEveryRequestForMemory([](const auto& memory, const auto& options, bool fromThenOn, int step) {
            return sweep(operation(), memory, options, fromThenOn, step);
        });
    reportSweep("memory faults in " + operation().name + ": " + tally.description());
}

INSTANTIATE_TEST_SUITE_P(In, MemoryFaults, testing::ValuesIn(entriesOf(everyOperation())), nameOfParameter);

TEST(MemoryFaultsInOpening, LeaveAStoreThatCanBeOpenedAndHoldsWhatItHeld) {
    const SweepTally tally =
        sweepEveryRequestForMemory([](const auto& memory, const auto& options, bool fromThenOn, int step) {
            return sweepOpening(true, memory, options, fromThenOn, step);
        });
    reportSweep("memory faults in opening a store: " + tally.description());
}

TEST(MemoryFaultsInOpening, LeaveAFileInWhichAStoreCanBeMade) {
    const SweepTally tally =
        sweepEveryRequestForMemory([](const auto& memory, const auto& options, bool fromThenOn, int step) {
            return sweepOpening(false, memory, options, fromThenOn, step);
        });
    reportSweep("memory faults in making a store: " + tally.description());
}

/// Numbers stand where the library expects text and bytes: the engine needs memory to hand them out.
constexpr const char* numbersForTexts =
    "INSERT INTO streams (stream_id) VALUES (7);"
    "INSERT INTO events (type, client_id, stream_database_identifier, seq) VALUES (4, 12, 1, 1);"
    "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, value, file_path, "
    "last_accessed, transfer_status, size) VALUES (0, 1, 123456789, NULL, NULL, 4, 9);"
    "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, value, file_path, "
    "last_accessed, transfer_status, size) VALUES (1, 1, 987654321, 'file', 5, 4, 9)";

std::shared_ptr<FMDatabase> storeWithNumbersForTexts() {
    auto database = ZAVDatabaseSchema::openDatabase(":memory:");
    run(*database, numbersForTexts);
    return database;
}

TEST(MemoryFaultsInConversion, NeverPassAValueOffAsAnother) {
    struct Lookup {
        const char* name;
        const char* expected;
        std::shared_ptr<ZAVEventContent> (*find)(const ZAVEventRepository& repository, ZAVError* error);
    };
    const Lookup lookups[] = {
        {"a lookup of one part", "123456789",
         [](const ZAVEventRepository& repository, ZAVError* error) {
             return repository.eventContentDatabaseIdentifier(1, error);
         }},
        {"a choice to purge that ends before the last row", "987654321",
         [](const ZAVEventRepository& repository, ZAVError* error) -> std::shared_ptr<ZAVEventContent> {
             const auto chosen = repository.leastRecentlyAccessedEventContentPartsForSize(0, error);
             return chosen ? (*chosen)[0] : nullptr;
         }},
    };
    for (const Lookup& lookup : lookups) {
        for (int number = 1; number < 1000; ++number) {
            SCOPED_TRACE(std::string(lookup.name) + " with request " + std::to_string(number) + " failing");
            const ZAVEventRepository repository(storeWithNumbersForTexts());
            ZAVError error;
            FaultyAllocator::fail(number, false);
            const auto part = lookup.find(repository, &error);
            FaultyAllocator::heal();
            ASSERT_EQ(part == nullptr, static_cast<bool>(error)) << "the answer and the error do not agree";
            if (part) {
                ASSERT_EQ(part->body()->asText(), lookup.expected);
            }
            if (FaultyAllocator::failures() == 0) {
                ASSERT_GT(number, 10) << "the sweep ended before it began";
                break;
            }
        }
    }
}

TEST(MemoryFaultsInConversion, OfAStreamsIdentifierFailThePersisting) {
    int failures = 0;
    for (int number = 1; number < 1000; ++number) {
        const ZAVEventRepository repository(storeWithNumbersForTexts());
        const auto event = std::make_shared<ZAVEvent>(ZAVDatabaseIdentifierNotSet, 1);
        event->set_type(EventType_MESSAGE);
        event->set_client_id(ZAVDataFromUUID(uuidNumber(1)));
        ZAVError error;
        FaultyAllocator::fail(number, false);
        const bool succeeded = repository.persistEvents({event}, &error);
        FaultyAllocator::heal();
        ASSERT_NE(succeeded, static_cast<bool>(error)) << "the answer and the error do not agree";
        if (succeeded) {
            EXPECT_EQ(event->stream_id()->asText(), "7") << "after request " << number << " failed";
        } else {
            ++failures;
        }
        if (FaultyAllocator::failures() == 0) {
            break;
        }
    }
    EXPECT_GT(failures, 10) << "the sweep ended before it began";
}

/// A store in a file whose texts are UTF-16: the engine needs memory for each text that it hands out.
std::shared_ptr<FMDatabase> storeOfWideTexts(const std::string& path) {
    auto database = openHandle(path);
    run(*database, "PRAGMA encoding='UTF-16'");
    if (!ZAVDatabaseSchema::migrateDatabase(*database)) {
        throw std::runtime_error("cannot make the store: " + database->lastError().description());
    }
    run(*database,
        "INSERT INTO streams (stream_id) VALUES (x'11111111111111111111111111111101');"
        "INSERT INTO events (type, client_id, stream_database_identifier, creator_id, member_id, creator_name) "
        "VALUES (4, x'11111111111111111111111111111102', 1, 'the creator', 'the member', 'the name');"
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', 1, 0);"
        "INSERT INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, value) VALUES "
        "(1, 'event', 0, 'key', 'value');"
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, value, url, "
        "access_expiration, file_path, last_accessed, transfer_status, size) VALUES "
        "(0, 1, 'text/plain', x'AB', 'https://store.example/0', 1, 'file-0', 5, 4, 9), "
        "(1, 1, 'text/html', x'CD', 'https://store.example/1', 99999999999, 'file-1', 5, 3, 9), "
        "(2, 1, 'image/png', x'EF', 'https://store.example/2', 1, 'file-2', 5, 1, 9), "
        "(3, 1, 'image/gif', NULL, NULL, NULL, 'file-3', NULL, 0, 9)");
    return database;
}

/// What there is to read of a part.
std::string wholeTextOf(const ZAVEventContent& part) {
    return part.media_type().value_or("-") + " " + part.external_url().value_or("-") + " " +
           (part.fileURL() ? part.fileURL()->relativePath() : "-") + " " +
           (part.body() ? std::to_string(part.body()->size()) : "-");
}

/// The parts of the store as they are read while nothing fails.
std::string storedPart(std::int64_t index) {
    const char* const parts[] = {"text/plain https://store.example/0 file-0 -",
                                 "text/html https://store.example/1 file-1 -",
                                 "image/png https://store.example/2 file-2 -", "image/gif - file-3 0"};
    return parts[index];
}

/// Whether all that was read is as it is stored; parts and metadata of an event may be missing.
void expectSound(const ZAVEvent& event) {
    EXPECT_EQ(event.creator_id(), "the creator");
    EXPECT_EQ(event.member_id(), "the member");
    EXPECT_EQ(event.creator_name(), "the name");
    for (const auto& [key, value] : *event.transient_metadata()) {
        EXPECT_EQ(key, "key");
        EXPECT_EQ(value, ZAVDictionaryValue(ZAVData::fromText("value")));
    }
    for (const auto& part : event.contentParts()) {
        EXPECT_EQ(wholeTextOf(*part), storedPart(part->index())) << "half of a part was taken for the whole";
    }
}

void expectSound(const ZAVEventContent& part) {
    EXPECT_EQ(wholeTextOf(part), storedPart(part.index()));
}

template <class Record>
bool isSound(const std::shared_ptr<Record>& record) {
    if (record != nullptr) {
        expectSound(*record);
    }
    return record != nullptr;
}

template <class Record>
bool isSound(const std::optional<ZAVSet<Record>>& records) {
    if (records) {
        EXPECT_FALSE(records->empty());
        for (const auto& record : *records) {
            expectSound(*record);
        }
    }
    return records.has_value();
}

/// A reading operation; whether it answered, once its answer has been looked through.
struct Reading {
    const char* name;
    bool (*read)(const ZAVEventRepository& repository, ZAVError* error);
    bool tellsOfMetadata;  ///< the error may say why metadata are missing from an answer
};

const Reading readings[] = {
    {"allEvents", [](const auto& r, ZAVError* e) { return isSound(r.allEvents(e)); }, true},
    {"unprocessedEvents", [](const auto& r, ZAVError* e) { return isSound(r.unprocessedEvents(e)); }, true},
    {"eventForDatabaseIdentifier",
     [](const auto& r, ZAVError* e) { return isSound(r.eventForDatabaseIdentifier(1, e)); }, true},
    {"eventContentDatabaseIdentifier",
     [](const auto& r, ZAVError* e) { return isSound(r.eventContentDatabaseIdentifier(1, e)); }, false},
    {"eventContentForExternalContentURL",
     [](const auto& r, ZAVError* e) {
         return isSound(
             r.eventContentForExternalContentURL(*ZAVURL::URLWithString("https://store.example/1"), e));
     },
     false},
    {"unassignedURLs",
     [](const auto& r, ZAVError* e) { return isSound(r.eventContentsHavingUnassignedURLsWithError(e)); },
     false},
    {"incompleteUploads",
     [](const auto& r, ZAVError* e) {
         return isSound(r.eventContentsHavingIncompleteUploadsWithLimit(9, e));
     },
     false},
    {"incompleteDownloads",
     [](const auto& r, ZAVError* e) {
         return isSound(r.eventContentsHavingIncompleteDownloadsWithLimit(9, e));
     },
     false},
    {"leastRecentlyAccessed",
     [](const auto& r, ZAVError* e) {
         return isSound(r.leastRecentlyAccessedEventContentPartsForSize(100, e));
     },
     false},
    {"the least recently accessed one",
     [](const auto& r, ZAVError* e) {
         return isSound(r.leastRecentlyAccessedEventContentPartsForSize(0, e));
     },
     false},
};

TEST(MemoryFaultsInConversion, OfWideTextsNeverLeaveHalfARecord) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("wide.db");
    storeOfWideTexts(path);
    ASSERT_TRUE(scalar(*openHandle(path), "PRAGMA encoding").starts_with("UTF-16"));
    const LogCapture quiet;
    for (const Reading& reading : readings) {
        int failures = 0;
        for (int number = 1; number < 2000; ++number) {
            SCOPED_TRACE(std::string(reading.name) + " with request " + std::to_string(number) + " failing");
            const ZAVEventRepository repository(openHandle(path));
            ASSERT_TRUE(repository.database().prepare("SELECT 1"));
            ZAVError error;
            FaultyAllocator::fail(number, false);
            const bool answered = reading.read(repository, &error);
            FaultyAllocator::heal();
            ASSERT_TRUE(answered || error) << "nothing came back, and nothing says why";
            ASSERT_TRUE(!answered || !error || reading.tellsOfMetadata) << "an answer came with an error";
            failures += answered ? 0 : 1;
            if (HasFailure() || FaultyAllocator::failures() == 0) {
                break;
            }
        }
        EXPECT_GT(failures, 3) << reading.name << ": the sweep ended before it began";
    }
}

TEST(MemoryFaultsInConversion, OfAPartLeaveItOutOfItsEvent) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("wide.db");
    storeOfWideTexts(path);
    const LogCapture quiet;
    int eventsWithFewerParts = 0;
    for (int number = 1; number < 2000; ++number) {
        const ZAVEventRepository repository(openHandle(path));
        ASSERT_TRUE(repository.eventForDatabaseIdentifier(1)) << "the statements are not ready";
        FaultyAllocator::fail(number, false);
        const auto event = repository.eventForDatabaseIdentifier(1);
        FaultyAllocator::heal();
        if (event != nullptr) {
            expectSound(*event);
            eventsWithFewerParts += event->contentParts().size() < 4 ? 1 : 0;
        }
        if (HasFailure() || FaultyAllocator::failures() == 0) {
            break;
        }
    }
    EXPECT_GT(eventsWithFewerParts, 3) << "no request for a part's text ever failed";
}

TEST(AnAbandonedTransaction, IsUndoneBeforeAnythingElseRunsOnTheHandle) {
    const TemporaryDirectory directory;
    FMDatabaseOptions options;
    options.statementCacheCapacity = 0;  // so that the statement that undoes it cannot be kept ready
    const auto database = openHandle(directory.file("store.db"), options);
    run(*database, "CREATE TABLE t (a)");
    auto transaction = ZAVTransaction::begin(*database);
    ASSERT_TRUE(transaction);
    ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (1)"));

    FaultyAllocator::fail(1, true);
    transaction->rollback();
    EXPECT_TRUE(database->inTransaction()) << "there was no memory to undo it";
    EXPECT_FALSE(database->executeUpdate("INSERT INTO t VALUES (2)"))
        << "a row was taken that the transaction takes away with it";
    EXPECT_FALSE(database->executeStatements("INSERT INTO t VALUES (3)"));
    EXPECT_FALSE(database->executeQuery("SELECT a FROM t"));
    EXPECT_EQ(database->lastError(), ZAVError("SQLite", 7, "out of memory"));
    FaultyAllocator::heal();

    ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (4)")) << database->lastError().description();
    EXPECT_FALSE(database->inTransaction());
    EXPECT_EQ(scalar(*openHandle(directory.file("store.db")), "SELECT group_concat(a) FROM t"), "4");
}

}  // namespace
}  // namespace zav::test
