#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "Checkpoints/LockRecorder.h"
#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

/// A database whose locks are watched.
class WatchedLog : public testing::Test {
protected:
    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }

    [[nodiscard]] static FMDatabaseOptions options(int pagesOfLog) {
        FMDatabaseOptions options;
        options.vfs = LockRecorder::name;
        options.synchronous = FMDatabaseOptions::Synchronous::normal;
        options.writeAheadLogPages = pagesOfLog;
        return options;
    }

    /// A handle, on a database with a table `t`.
    [[nodiscard]] std::shared_ptr<FMDatabase> open(int pagesOfLog = 4000) const {
        auto database = openHandle(path(), options(pagesOfLog));
        run(*database, "CREATE TABLE IF NOT EXISTS t (writer, number, filling)");
        return database;
    }

    /// A connection past the library, as other programs have it.
    [[nodiscard]] sqlite3* openForeign() const {
        sqlite3* connection = nullptr;
        EXPECT_EQ(sqlite3_open_v2(path().c_str(), &connection, SQLITE_OPEN_READWRITE, LockRecorder::name),
                  SQLITE_OK);
        sqlite3_busy_timeout(connection, 5000);
        // The engine opens the log when it first reads.
        EXPECT_EQ(sqlite3_exec(connection, "SELECT * FROM t", nullptr, nullptr, nullptr), SQLITE_OK);
        return connection;
    }

    [[nodiscard]] std::uintmax_t sizeOfLog() const { return std::filesystem::file_size(path() + "-wal"); }
    [[nodiscard]] std::uintmax_t sizeOfFile() const { return std::filesystem::file_size(path()); }

    void expectGuarded() const {
        const auto counts = recorder.counts();
        EXPECT_GT(counts.checkpoints, 0U) << "nothing was proved";
        EXPECT_EQ(counts.overlaps, 0U) << "a checkpoint ran while another connection could commit";
        EXPECT_EQ(counts.unguarded, 0U) << "a checkpoint ran without the writer's lock";
    }

    LockRecorder recorder;

private:
    TemporaryDirectory directory_;
};

/// What only engines need whose checkpoints are not safe by themselves.
class GuardedLog : public WatchedLog {
protected:
    void SetUp() override {
        if (ZAVDatabaseEngine::hasSafeCheckpoints()) {
            GTEST_SKIP() << "this engine needs no guard";
        }
    }
};

void insert(FMDatabase& database, int writer, int number) {
    ASSERT_TRUE(database.executeUpdate("INSERT INTO t VALUES (?, ?, zeroblob(2000))", writer, number))
        << database.lastError().description();
}

// Nobody commits beside a checkpoint

TEST_F(WatchedLog, OfForeignConnectionsIsCopiedWhileOthersCommit) {
    open().reset();
    sqlite3* const writer = openForeign();
    sqlite3* const checkpointer = openForeign();
    sqlite3_exec(writer, "PRAGMA synchronous=NORMAL; PRAGMA wal_autocheckpoint=0", nullptr, nullptr, nullptr);
    std::thread checkpoints([&] {
        const auto end = Clock::now() + 60s;
        while (recorder.counts().overlaps == 0 && Clock::now() < end) {
            sqlite3_wal_checkpoint_v2(checkpointer, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
        }
    });
    const auto end = Clock::now() + 60s;
    while (recorder.counts().overlaps == 0 && Clock::now() < end) {
        sqlite3_exec(writer, "INSERT INTO t VALUES (1, 1, zeroblob(2000))", nullptr, nullptr, nullptr);
    }
    checkpoints.join();
    EXPECT_GT(recorder.counts().overlaps, 0U) << "the recorder would not notice what the guard prevents";
    EXPECT_GT(recorder.counts().unguarded, 0U);
    sqlite3_close(writer);
    sqlite3_close(checkpointer);
}

/// Runs some work in a process of its own, which ends with 0 when the test goes on well there.
pid_t inProcess(const std::function<void()>& work) {
    const pid_t process = ::fork();
    if (process == 0) {
        try {
            work();
        } catch (const std::exception& failure) {
            std::cerr << failure.what() << std::endl;
            ::_exit(1);
        }
        ::_exit(testing::Test::HasFailure() ? 1 : 0);
    }
    return process;
}

TEST_F(GuardedLog, IsNeverCopiedWhileAnotherProcessMayCommit) {
    open().reset();
    const auto end = Clock::now() + std::chrono::seconds(rounds(3, 180));
    const std::string acknowledged = path() + ".acknowledged";
    std::vector<pid_t> processes;
    for (int writer = 0; writer < 2; ++writer) {
        processes.push_back(inProcess([&, writer] {
            // Both copy the log after their own commits, one of them nearly after each.
            const auto database = openHandle(path(), options(writer == 0 ? 10 : 200));
            int number = 0;
            while (Clock::now() < end && !testing::Test::HasFailure()) {
                insert(*database, writer, ++number);
            }
            const int file = ::open(acknowledged.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            const std::string line = std::to_string(writer) + "|" + std::to_string(number) + "\n";
            ASSERT_EQ(::write(file, line.data(), line.size()), static_cast<ssize_t>(line.size()));
        }));
    }
    for (const auto mode : {ZAVCheckpointMode::passive, ZAVCheckpointMode::truncate}) {
        processes.push_back(inProcess([&, mode] {
            const auto database = openHandle(path(), options(0));
            const ZAVDatabaseMaintenance maintenance(database);
            while (Clock::now() < end) {
                ZAVError error;
                ASSERT_TRUE(maintenance.checkpoint(mode, &error)) << error.description();
                std::this_thread::sleep_for(1ms);
            }
        }));
    }
    for (const pid_t process : processes) {
        int status = 0;
        ::waitpid(process, &status, 0);
        EXPECT_EQ(status, 0) << "a process failed";
    }
    expectGuarded();
    const auto database = open();
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
    const std::string lines = bytesOfFile(acknowledged);
    for (const char* const writer : {"0", "1"}) {
        const std::string stored =
            scalar(*database, std::string("SELECT count(*) || '|' || max(number) FROM t"
                                          " WHERE writer = ") +
                                  writer);
        const std::string count = stored.substr(0, stored.find('|'));
        EXPECT_EQ(stored, count + "|" + count) << "rows are missing in between";
        EXPECT_NE(("\n" + lines).find(std::string("\n") + writer + "|" + count + "\n"), std::string::npos)
            << "stored are " << count << " rows of writer " << writer << ", acknowledged were\n"
            << lines;
    }
    const auto counts = recorder.counts();
    reportSweep(std::to_string(counts.checkpoints) + " checkpoints beside " + std::to_string(counts.writes) +
                " writes of other processes, none at once");
}

TEST_F(GuardedLog, OfADatabaseThatIsCompactedIsNeverCopiedWhileAnotherMayCommit) {
    const auto database = open();
    for (int number = 0; number < 500; ++number) {
        insert(*database, 0, number);
    }
    const int compactions = rounds(5, 50);
    std::atomic<bool> isOver = false;
    int written = 0;
    std::thread writer([&] {
        const auto other = open(10);
        for (; !isOver; ++written) {
            insert(*other, 1, written);
            run(*other, "DELETE FROM t WHERE writer = 0 AND number = " + std::to_string(written));
        }
    });
    for (int count = 0; count < compactions; ++count) {
        ZAVError error;
        EXPECT_TRUE(ZAVDatabaseMaintenance(database).compact({}, {}, &error)) << error.description();
    }
    isOver = true;
    writer.join();
    expectGuarded();
    EXPECT_GT(written, 0);
    EXPECT_EQ(scalar(*database, "SELECT count(*) FROM t WHERE writer = 1"), std::to_string(written))
        << "what was committed beside a compaction is there";
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
}

TEST_F(GuardedLog, IsNotCopiedWhileAnotherConnectionWrites) {
    const auto database = open(0);
    const auto other = open(0);
    insert(*database, 1, 1);
    const std::uint64_t before = recorder.counts().checkpoints;
    const ZAVDatabaseMaintenance maintenance(database);
    {
        const auto transaction = ZAVTransaction::begin(*other);
        const auto outcome = maintenance.checkpoint();
        ASSERT_TRUE(outcome) << database->lastError().description();
        EXPECT_TRUE(outcome->isHeldUp);
        EXPECT_GT(outcome->frames, 0);
        EXPECT_EQ(recorder.counts().checkpoints, before);
    }
    const auto outcome = maintenance.checkpoint();
    ASSERT_TRUE(outcome) << database->lastError().description();
    EXPECT_FALSE(outcome->isHeldUp);
    expectGuarded();
}

TEST_F(GuardedLog, IsNotCopiedByMeansOfAnIndexThatACrashLeftHalfWritten) {
    const auto database = open(0);
    insert(*database, 1, 1);
    const std::uint64_t before = recorder.counts().checkpoints;
    const ZAVDatabaseMaintenance maintenance(database);
    recorder.onWritersLock([&] {
        const int index = ::open((path() + "-shm").c_str(), O_WRONLY | O_CLOEXEC);
        const char changed = 'x';
        EXPECT_EQ(::pwrite(index, &changed, 1, 8), 1);
        ::close(index);
    });
    const auto outcome = maintenance.checkpoint();
    recorder.onWritersLock(nullptr);
    ASSERT_TRUE(outcome) << database->lastError().description();
    EXPECT_TRUE(outcome->isHeldUp) << "to restore the index takes the lock, and gives it back";
    EXPECT_EQ(recorder.counts().checkpoints, before);
    const auto second = maintenance.checkpoint();
    ASSERT_TRUE(second) << database->lastError().description();
    EXPECT_FALSE(second->isHeldUp) << "the next look into the file has restored it";
    EXPECT_EQ(scalar(*database, "SELECT count(*) FROM t"), "1");
    expectGuarded();
}

// What would have the engine copy it by itself

TEST_F(GuardedLog, IsNotCopiedByStatements) {
    const auto database = open();
    insert(*database, 1, 1);
    const std::uint64_t before = recorder.counts().checkpoints;
    const std::string reason = "checkpoints of SQLite " + std::string(sqlite3_libversion()) +
                               " may lose what another connection commits meanwhile; use ";
    for (const char* const statement : {"PRAGMA wal_checkpoint", "PRAGMA wal_checkpoint(TRUNCATE)",
                                        "pragma /* now */ main . WAL_Checkpoint = full",
                                        "EXPLAIN PRAGMA wal_checkpoint", "PRAGMA \"wal_checkpoint\""}) {
        EXPECT_FALSE(database->executeQuery(statement)) << statement;
        EXPECT_EQ(database->lastError(), ZAVError("ZAVDatabase", 15,
                                                  "PRAGMA wal_checkpoint is refused: " + reason +
                                                      "ZAVDatabaseMaintenance::checkpoint"))
            << statement;
        EXPECT_FALSE(database->executeUpdate(statement)) << statement;
        EXPECT_FALSE(database->prepare(statement)) << statement;
        EXPECT_FALSE(database->executeStatements(std::string("SELECT 1;") + statement)) << statement;
        EXPECT_EQ(database->lastError().code(), 15) << statement;
    }
    for (const char* const statement : {"PRAGMA wal_autocheckpoint=1", "PRAGMA main.wal_autocheckpoint(1)",
                                        "EXPLAIN PRAGMA wal_autocheckpoint=1"}) {
        EXPECT_FALSE(database->executeStatements(statement)) << statement;
        EXPECT_EQ(database->lastError(), ZAVError("ZAVDatabase", 15,
                                                  "PRAGMA wal_autocheckpoint is refused: " + reason +
                                                      "FMDatabaseOptions::writeAheadLogPages"))
            << statement;
    }
    EXPECT_NE(sqlite3_exec(database->sqliteHandle(), "PRAGMA wal_checkpoint", nullptr, nullptr, nullptr),
              SQLITE_OK);
    EXPECT_FALSE(database->executeQuery("SELECT nothing"));
    EXPECT_EQ(database->lastError().code(), SQLITE_ERROR) << "another mistake is told as what it is";
    insert(*database, 1, 2);
    EXPECT_EQ(recorder.counts().checkpoints, before) << "the log was copied";
}

TEST_F(WatchedLog, IsLeftBySQLByTheLastConnectionAlone) {
    const auto database = open(0);
    insert(*database, 1, 1);
    {
        auto impatient = options(0);
        impatient.busyTimeout = 0ms;
        const auto other = openHandle(path(), impatient);
        EXPECT_EQ(scalar(*other, "SELECT count(*) FROM t"), "1");
        EXPECT_FALSE(other->executeStatements("PRAGMA journal_mode=DELETE"))
            << "another connection uses the log";
        EXPECT_EQ(other->lastError().code() & 0xFF, SQLITE_BUSY);
    }
    run(*database, "PRAGMA journal_mode=DELETE");
    EXPECT_FALSE(std::filesystem::exists(path() + "-wal"));
    EXPECT_EQ(scalar(*database, "SELECT count(*) FROM t"), "1");
    expectGuarded();
}

TEST_F(WatchedLog, OfAnExclusiveConnectionIsCopiedByItsCommits) {
    open().reset();
    auto chosen = options(3);
    chosen.writeAheadLog = false;
    const auto database = openHandle(path(), chosen);
    run(*database, "PRAGMA locking_mode=EXCLUSIVE");
    for (int number = 1; number <= 20; ++number) {
        insert(*database, 1, number);
    }
    EXPECT_LT(sizeOfLog(), 10 * 4120U) << "the log was never begun anew";
    EXPECT_EQ(recorder.counts().overlaps, 0U);
}

// Copying goes on as it did

TEST_F(WatchedLog, IsCopiedByTheCommitThatFillsIt) {
    for (const int pages : {1, 77}) {
        const auto database = open(pages);
        ASSERT_TRUE(ZAVDatabaseMaintenance(database).checkpoint(ZAVCheckpointMode::truncate));
        const std::uint64_t before = recorder.counts().checkpoints;
        int number = 0;
        while (recorder.counts().checkpoints == before && number < 1000) {
            insert(*database, 1, ++number);
        }
        EXPECT_LE(number, pages) << "each commit writes a page at least";
        EXPECT_GE(number, pages / 4) << "each commit writes a few pages";
    }
}

TEST_F(WatchedLog, IsLeftAloneWhenTheApplicationFoldsIt) {
    const auto database = open(0);
    const std::uintmax_t before = sizeOfFile();
    for (int number = 1; number <= 200; ++number) {
        insert(*database, 1, number);
    }
    EXPECT_EQ(sizeOfFile(), before);
}

TEST_F(WatchedLog, StaysAsLongAsACursorOfTheCommittingHandleIsOpen) {
    const auto database = open(1);
    insert(*database, 1, 1);
    insert(*database, 1, 2);
    auto rows = database->executeQuery("SELECT number FROM t");
    ASSERT_TRUE(rows && rows->next());
    insert(*database, 1, 3);
    EXPECT_EQ(rows->longLongIntForColumnIndex(0), 1);
    EXPECT_TRUE(rows->next());
    rows->close();
    insert(*database, 1, 4);
    const auto outcome = ZAVDatabaseMaintenance(database).checkpoint();
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->copied, outcome->frames);
}

// Upkeep

TEST_F(WatchedLog, IsFoldedOnRequestAndSaysHowFar) {
    const auto database = open(0);
    insert(*database, 1, 1);
    insert(*database, 1, 2);
    const ZAVDatabaseMaintenance maintenance(database);
    const auto outcome = maintenance.checkpoint();
    ASSERT_TRUE(outcome) << database->lastError().description();
    EXPECT_GT(outcome->frames, 2);
    EXPECT_EQ(outcome->copied, outcome->frames);
    EXPECT_FALSE(outcome->isHeldUp);
}

TEST_F(WatchedLog, TakesNoMoreThanAPageOnceItIsTruncated) {
    const auto database = open(0);
    for (int number = 1; number <= 100; ++number) {
        insert(*database, 1, number);
    }
    ASSERT_GT(sizeOfLog(), 100 * 4096U);
    const auto outcome = ZAVDatabaseMaintenance(database).checkpoint(ZAVCheckpointMode::truncate);
    ASSERT_TRUE(outcome) << database->lastError().description();
    EXPECT_FALSE(outcome->isHeldUp);
    EXPECT_LE(sizeOfLog(), 32 + 24 + 4096U);
    EXPECT_EQ(scalar(*database, "SELECT count(*) FROM t"), "100");
    EXPECT_EQ(scalar(*database, "PRAGMA journal_size_limit"), "-1") << "the limit is as it was";
}

TEST_F(WatchedLog, IsHeldUpByAReaderForNoLongerThanTheHandleWaits) {
    auto chosen = options(0);
    chosen.busyTimeout = 50ms;
    open().reset();
    const auto database = openHandle(path(), chosen);
    const auto reader = open(0);
    auto rows = reader->executeQuery("SELECT * FROM sqlite_master");
    ASSERT_TRUE(rows && rows->next());
    insert(*database, 1, 1);
    const ZAVDatabaseMaintenance maintenance(database);
    for (const auto mode :
         {ZAVCheckpointMode::passive, ZAVCheckpointMode::complete, ZAVCheckpointMode::truncate}) {
        const auto outcome = maintenance.checkpoint(mode);
        ASSERT_TRUE(outcome) << database->lastError().description();
        EXPECT_TRUE(outcome->isHeldUp);
        EXPECT_LT(outcome->copied, outcome->frames);
    }
    insert(*database, 1, 2);  // nobody waits for the reader
    rows->close();
    const auto outcome = maintenance.checkpoint(ZAVCheckpointMode::truncate);
    ASSERT_TRUE(outcome);
    EXPECT_FALSE(outcome->isHeldUp);
}

TEST_F(WatchedLog, IsNotFoldedByAHandleThatIsInTheMiddleOfSomethingAndKeepsItsLock) {
    const auto database = open(0);
    auto chosen = options(0);
    chosen.busyTimeout = 0ms;
    const auto other = openHandle(path(), chosen);
    const ZAVDatabaseMaintenance maintenance(database);
    const ZAVError inUse("SQLite", SQLITE_LOCKED, "this handle has an open cursor or transaction");
    ZAVError error;
    {
        auto transaction = ZAVTransaction::begin(*database);
        insert(*database, 1, 1);
        EXPECT_FALSE(maintenance.checkpoint(ZAVCheckpointMode::passive, &error));
        EXPECT_EQ(error, inUse);
        EXPECT_EQ(database->lastError(), inUse);
        EXPECT_FALSE(other->executeUpdate("DELETE FROM t")) << "the transaction has lost its lock";
        EXPECT_TRUE(transaction->commit());
    }
    {
        auto rows = database->executeQuery("SELECT number FROM t");
        ASSERT_TRUE(rows && rows->next());
        EXPECT_FALSE(maintenance.checkpoint(ZAVCheckpointMode::complete, &error));
        EXPECT_EQ(error, inUse);
        EXPECT_EQ(rows->longLongIntForColumnIndex(0), 1);
    }
    EXPECT_TRUE(maintenance.checkpoint(ZAVCheckpointMode::complete, &error)) << error.description();
    EXPECT_EQ(recorder.counts().overlaps, 0U);
}

TEST_F(WatchedLog, ThatIsNotThereHasNothingToFold) {
    auto chosen = options(0);
    chosen.writeAheadLog = false;
    const auto database = openHandle(path(), chosen);
    run(*database, "CREATE TABLE t (a)");
    for (const auto& handle : {database, openHandle(":memory:")}) {
        const auto outcome = ZAVDatabaseMaintenance(handle).checkpoint(ZAVCheckpointMode::truncate);
        ASSERT_TRUE(outcome) << handle->lastError().description();
        EXPECT_EQ(outcome->frames, 0);
        EXPECT_EQ(outcome->copied, 0);
        EXPECT_FALSE(outcome->isHeldUp);
    }
}

TEST_F(WatchedLog, OfAFileThatIsOnlyReadIsNotBegunAnew) {
    const auto writer = open(0);
    insert(*writer, 1, 1);
    auto chosen = options(0);
    chosen.access = FMDatabaseOptions::Access::readOnly;
    const auto reader = openHandle(path(), chosen);
    ZAVError error;
    EXPECT_FALSE(ZAVDatabaseMaintenance(reader).checkpoint(ZAVCheckpointMode::truncate, &error));
    EXPECT_EQ(error.code() & 0xFF, SQLITE_READONLY) << error.description();
}

}  // namespace
}  // namespace zav::test
