#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"

namespace zav::test {
namespace {

bool engineTellsOfTables() {
    return ZAVDatabaseEngine::hasCompileOption("ENABLE_DBSTAT_VTAB");
}

class DiskUsage : public testing::Test {
protected:
    /// A store with some rows, some of which were deleted again.
    [[nodiscard]] std::shared_ptr<FMDatabase> openStore() const {
        ZAVError error;
        auto database = ZAVDatabaseSchema::openDatabase(path(), {}, &error);
        EXPECT_TRUE(database) << error.description();
        run(*database,
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 2000)"
            "INSERT INTO streams (stream_id, seq) SELECT randomblob(16), i FROM n;"
            "CREATE TABLE own (a, b UNIQUE);"
            "WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 500)"
            "INSERT INTO own SELECT zeroblob(900), i FROM n;"
            "INSERT INTO own VALUES (zeroblob(100000), 501);"
            "CREATE TABLE gone AS SELECT * FROM own; DROP TABLE gone");
        return database;
    }

    [[nodiscard]] static ZAVDiskUsage measured(const std::shared_ptr<FMDatabase>& database,
                                               ZAVDiskUsageDetail detail = ZAVDiskUsageDetail::whole) {
        ZAVError error;
        const auto usage = ZAVDatabaseMaintenance(database).diskUsage(detail, &error);
        EXPECT_TRUE(usage) << error.description();
        return usage.value_or(ZAVDiskUsage{});
    }

    [[nodiscard]] static const ZAVTableDiskUsage* find(const ZAVDiskUsage& usage, const std::string& name) {
        const auto found = std::find_if(usage.tables->begin(), usage.tables->end(),
                                        [&](const ZAVTableDiskUsage& table) { return table.name == name; });
        return found == usage.tables->end() ? nullptr : &*found;
    }

    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }

    [[nodiscard]] std::int64_t sizeOf(const std::string& file) const {
        return static_cast<std::int64_t>(std::filesystem::file_size(file));
    }

private:
    TemporaryDirectory directory_;
};

TEST_F(DiskUsage, IsThatOfTheFileAndItsLog) {
    const auto database = openStore();
    const ZAVDiskUsage before = measured(database);
    EXPECT_EQ(before.fileBytes, sizeOf(path()));
    EXPECT_EQ(before.logBytes, sizeOf(path() + "-wal"));
    EXPECT_GT(before.logBytes, 0);
    EXPECT_EQ(std::to_string(before.pageSize), scalar(*database, "PRAGMA page_size"));
    EXPECT_GT(before.freePages, 100);
    EXPECT_EQ(std::to_string(before.freePages), scalar(*database, "PRAGMA freelist_count"));
    EXPECT_EQ(before.freeBytes, before.freePages * before.pageSize);
    EXPECT_FALSE(before.tables);

    ASSERT_FALSE(isHeldUpInTruncating(database));
    const ZAVDiskUsage after = measured(database);
    EXPECT_EQ(after.pages, before.pages);
    EXPECT_EQ(after.freePages, before.freePages);
    EXPECT_EQ(after.fileBytes, after.pages * after.pageSize);
    EXPECT_EQ(after.fileBytes, sizeOf(path()));
    EXPECT_EQ(after.logBytes, sizeOf(path() + "-wal"));
    EXPECT_EQ(database->openResultSets(), 0U);
}

TEST_F(DiskUsage, OfTheTablesAddsUpToAllPages) {
    if (!engineTellsOfTables()) {
        GTEST_SKIP() << "this engine has no dbstat";
    }
    const auto database = openStore();
    const ZAVDiskUsage usage = measured(database, ZAVDiskUsageDetail::tables);
    ASSERT_TRUE(usage.tables);
    std::int64_t pages = usage.freePages;
    std::int64_t bytes = usage.freeBytes;
    std::int64_t last = usage.pages * usage.pageSize;
    for (const ZAVTableDiskUsage& table : *usage.tables) {
        EXPECT_LE(table.bytes, last) << table.name << " stands before a larger one";
        EXPECT_EQ(table.bytes, table.pages * usage.pageSize) << table.name;
        EXPECT_GE(table.unusedBytes, 0) << table.name;
        EXPECT_LT(table.unusedBytes, table.bytes) << table.name;
        last = table.bytes;
        pages += table.pages;
        bytes += table.bytes;
    }
    EXPECT_EQ(pages, usage.pages);
    EXPECT_EQ(bytes, usage.pages * usage.pageSize);
    const std::string count =
        scalar(*database, "SELECT COUNT(*) FROM sqlite_master WHERE type IN ('table', 'index')");
    EXPECT_EQ(std::to_string(usage.tables->size()), std::to_string(std::stoi(count) + 1))
        << "each is told of, and the table of the schema";
}

TEST_F(DiskUsage, OfATableAndItsIndexIsToldApart) {
    if (!engineTellsOfTables()) {
        GTEST_SKIP() << "this engine has no dbstat";
    }
    const ZAVDiskUsage usage = measured(openStore(), ZAVDiskUsageDetail::tables);
    const ZAVTableDiskUsage* const table = find(usage, "own");
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(table->table, "own");
    EXPECT_FALSE(table->isIndex);
    EXPECT_GE(table->bytes, 500 * 900 + 100'000) << "long values are part of their table";
    EXPECT_LT(table->bytes, 2 * (500 * 900 + 100'000));
    const ZAVTableDiskUsage* const index = find(usage, "sqlite_autoindex_own_1");
    ASSERT_NE(index, nullptr);
    EXPECT_EQ(index->table, "own");
    EXPECT_TRUE(index->isIndex);
    EXPECT_LT(index->bytes, table->bytes);
    EXPECT_EQ(find(usage, "gone"), nullptr);
}

TEST_F(DiskUsage, OfTheTablesIsNotToldByAnEngineThatCannot) {
    if (engineTellsOfTables()) {
        GTEST_SKIP() << "this engine has dbstat";
    }
    const auto database = openStore();
    const ZAVDiskUsage usage = measured(database, ZAVDiskUsageDetail::tables);
    EXPECT_FALSE(usage.tables);
    EXPECT_EQ(usage.fileBytes, sizeOf(path()));
}

TEST_F(DiskUsage, IsNotTakenFromATableThatBearsTheNameOfTheEngines) {
    const auto database = openStore();
    run(*database, "CREATE TABLE DBStat (name, pgsize, unused); INSERT INTO DBStat VALUES ('forged', 1, 1)");
    EXPECT_FALSE(measured(database, ZAVDiskUsageDetail::tables).tables);
}

TEST_F(DiskUsage, IsThatOfOneMomentAndMayBeAskedForInATransaction) {
    const auto database = openStore();
    const ZAVDiskUsage before = measured(database);
    const auto other = openHandle(path());
    auto rows = other->executeQuery("SELECT stream_id FROM streams");
    ASSERT_TRUE(rows && rows->next());
    auto transaction = ZAVTransaction::begin(*database);
    ASSERT_TRUE(transaction);
    run(*database, "CREATE TABLE more AS SELECT zeroblob(3000000)");
    EXPECT_GT(measured(database, ZAVDiskUsageDetail::tables).pages, before.pages);
    EXPECT_EQ(measured(other).pages, before.pages);
    ASSERT_TRUE(transaction->commit());
    EXPECT_EQ(measured(other).pages, before.pages) << "the cursor sees what it saw";
}

TEST_F(DiskUsage, WithoutALogOrAFileIsThatOfThePages) {
    auto database = openHandle(path(), withoutWriteAheadLog());
    run(*database,
        "PRAGMA journal_mode=PERSIST; CREATE TABLE t (a); INSERT INTO t VALUES (zeroblob(100000))");
    EXPECT_EQ(measured(database).logBytes, 0) << "a journal is no log";
    EXPECT_EQ(measured(database).fileBytes, sizeOf(path()));
    database = openHandle(":memory:");
    run(*database, "CREATE TABLE t (a); INSERT INTO t VALUES (zeroblob(100000))");
    const ZAVDiskUsage usage = measured(database, ZAVDiskUsageDetail::tables);
    EXPECT_EQ(usage.fileBytes, 0);
    EXPECT_EQ(usage.logBytes, 0);
    EXPECT_GT(usage.pages, 20);
    EXPECT_EQ(usage.tables.has_value(), engineTellsOfTables());
}

TEST_F(DiskUsage, OfAnEmptyFileIsNothing) {
    const auto database = openHandle(path(), withoutWriteAheadLog());
    const ZAVDiskUsage usage = measured(database, ZAVDiskUsageDetail::tables);
    EXPECT_EQ(usage.pages, 0);
    EXPECT_EQ(usage.fileBytes, 0);
    EXPECT_EQ(usage.freeBytes, 0);
}

TEST_F(DiskUsage, OfADamagedTableIsThatOfThePagesThatCanBeFound) {
    auto writer = openStore();
    ASSERT_FALSE(isHeldUpInTruncating(writer));
    const std::int64_t root =
        std::stoll(scalar(*writer, "SELECT rootpage FROM sqlite_master WHERE name = 'own'"));
    const ZAVDiskUsage whole = measured(writer);
    writer.reset();
    {
        std::fstream file(path(), std::ios::in | std::ios::out | std::ios::binary);
        file.seekp((root - 1) * whole.pageSize);
        file << std::string(64, '\xFF');
    }
    const ZAVDiskUsage usage = measured(openHandle(path()), ZAVDiskUsageDetail::tables);
    EXPECT_EQ(usage.pages, whole.pages);
    EXPECT_EQ(usage.fileBytes, whole.fileBytes);
    if (engineTellsOfTables()) {
        ASSERT_TRUE(usage.tables && find(usage, "own") != nullptr);
        EXPECT_EQ(find(usage, "own")->pages, 1);
    }
}

TEST_F(DiskUsage, ThatCannotBeReadIsAFailure) {
    const auto holder = openHandle(path(), withoutWriteAheadLog());
    run(*holder, "CREATE TABLE t (a)");
    auto impatient = withoutWriteAheadLog();
    impatient.busyTimeout = std::chrono::milliseconds(0);
    const auto database = openHandle(path(), impatient);
    run(*holder, "BEGIN EXCLUSIVE");
    for (const auto detail : {ZAVDiskUsageDetail::whole, ZAVDiskUsageDetail::tables}) {
        ZAVError error;
        EXPECT_FALSE(ZAVDatabaseMaintenance(database).diskUsage(detail, &error));
        EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
        EXPECT_EQ(error, database->lastError());
    }
    EXPECT_EQ(database->openResultSets(), 0U);
}

}  // namespace
}  // namespace zav::test
