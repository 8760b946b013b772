#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>

#include "Faults/FaultSweep.h"
#include "Faults/FaultyAllocator.h"
#include "Faults/FaultyFileSystem.h"
#include "Support/DatabaseHandles.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

/// Sweeps over the engine's requests for memory: over all of them at length, over some of them ordinarily.
template <class Sweep>
SweepTally sweepEveryRequest(const Sweep& sweep) {
    const FaultInjector memory{"memory", FaultyAllocator::fail, FaultyAllocator::heal,
                               FaultyAllocator::failures};
    const FaultyFileSystem files;  // none of its calls fail; it is used because it waits for no device
    FMDatabaseOptions options;
    options.vfs = FaultyFileSystem::name;
    options.busyTimeout = std::chrono::milliseconds(0);
    SweepTally tally;
    for (const bool fromThenOn : {false, true}) {
        tally += sweep(memory, options, fromThenOn, stride(4, 1));
    }
    EXPECT_GT(tally.faults, 0) << "no fault was ever met";
    return tally;
}

class MemoryFaults : public testing::TestWithParam<Operation> {};

TEST_P(MemoryFaults, AreReportedOrWithoutEffectAndNothingStoredIsLost) {
    const SweepTally tally =
        sweepEveryRequest([](const auto& memory, const auto& options, bool fromThenOn, int step) {
            return sweep(GetParam(), memory, options, fromThenOn, step);
        });
    reportSweep("memory faults in " + GetParam().name + ": " + tally.description());
}

INSTANTIATE_TEST_SUITE_P(In, MemoryFaults, testing::ValuesIn(everyOperation()),
                         [](const auto& parameter) { return parameter.param.name; });

TEST(MemoryFaultsInOpening, LeaveAStoreThatCanBeOpenedAndHoldsWhatItHeld) {
    const SweepTally tally =
        sweepEveryRequest([](const auto& memory, const auto& options, bool fromThenOn, int step) {
            return sweepOpening(true, memory, options, fromThenOn, step);
        });
    reportSweep("memory faults in opening a store: " + tally.description());
}

TEST(MemoryFaultsInOpening, LeaveAFileInWhichAStoreCanBeMade) {
    const SweepTally tally =
        sweepEveryRequest([](const auto& memory, const auto& options, bool fromThenOn, int step) {
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
