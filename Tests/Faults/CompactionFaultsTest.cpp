#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Faults/FaultSweep.h"
#include "Support/DatabaseHandles.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;

const ZAVError errorFromBefore("Caller", 5, "from before");

/// A small database most of whose pages are free, closed in good order, which each round copies.
class FewRowsInManyPages {
public:
    explicit FewRowsInManyPages(FMDatabaseOptions options) : path_(directory_.file("template.db")) {
        options.vfs.clear();
        run(*openHandle(path_, options),
            "CREATE TABLE t (id INTEGER PRIMARY KEY, bytes); CREATE INDEX t_by_bytes ON t (substr(bytes, 1, 40));"
            "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 80) "
            "INSERT INTO t SELECT i, randomblob(1500) FROM n;"
            "DELETE FROM t WHERE id % 4 <> 0");
    }

    [[nodiscard]] const std::string& path() const { return path_; }

private:
    TemporaryDirectory directory_;
    std::string path_;
};

std::vector<std::string> contentOf(FMDatabase& database) {
    return rowsOf(database, "SELECT id, hex(bytes) FROM t ORDER BY id");
}

void expectSoundWith(const std::vector<std::string>& content, const std::string& path,
                     const FMDatabaseOptions& options, const char* when) {
    const auto database = openHandle(path, options);
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok") << when;
    EXPECT_EQ(contentOf(*database), content) << "another connection sees other rows " << when;
}

/// One compaction that meets a fault, and what is left of it. Answers whether the fault was met.
bool survives(const std::string& source, const FaultInjector& injector, const FMDatabaseOptions& options,
              int number, bool fromThenOn, SweepTally& tally) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    fs::copy_file(source, path);
    auto database = openHandle(path, options);
    const std::vector<std::string> content = contentOf(*database);

    ZAVError error = errorFromBefore;
    injector.fail(number, fromThenOn);
    const auto result = ZAVDatabaseMaintenance(database).compact({}, {}, &error);
    injector.heal();
    if (injector.failures() == 0) {
        EXPECT_TRUE(result && !result->isHeldUp) << error.description();
        return false;
    }
    ++tally.faults;
    ++(result ? tally.absorbed : tally.reported);
    EXPECT_EQ(error == errorFromBefore, result.has_value()) << "the answer and the error do not agree";
    EXPECT_NE(error, ZAVError()) << "it failed with an empty error";
    EXPECT_FALSE(fs::exists(path + "-compacting")) << "the mark of a compaction stayed behind";
    EXPECT_EQ(database->openResultSets(), 0U) << "a cursor stayed open";
    EXPECT_EQ(busyStatements(*database), 0) << "a statement was not reset";
    EXPECT_FALSE(database->inTransaction()) << "a transaction stayed open";
    EXPECT_EQ(contentOf(*database), content) << "a compaction changes no row";
    expectSoundWith(content, path, options, "after the fault");

    error = errorFromBefore;
    const auto again = ZAVDatabaseMaintenance(database).compact({}, {}, &error);
    EXPECT_TRUE(again) << "the fault is gone, and it fails: " << error.description();
    EXPECT_EQ(scalar(*database, "PRAGMA freelist_count"), "0") << "the free pages are still there";
    database.reset();
    expectSoundWith(content, path, options, "after the handle was closed");
    return true;
}

SweepTally sweepCompaction(const FaultInjector& injector, const FMDatabaseOptions& options, bool fromThenOn,
                           int step) {
    const FewRowsInManyPages source(options);
    SweepTally tally;
    forEachFault("compacting", injector, options, fromThenOn, step, [&](int number) {
        return survives(source.path(), injector, options, number, fromThenOn, tally);
    });
    return tally;
}

TEST(FaultsInACompaction, OfTheFileSystemLeaveEveryRowAndAStoreThatCanBeCompacted) {
    reportSweep("file faults in compacting: " + sweepEveryFileCall(sweepCompaction).description());
}

TEST(FaultsInACompaction, OfMemoryLeaveEveryRowAndAStoreThatCanBeCompacted) {
    reportSweep("memory faults in compacting: " + sweepEveryRequestForMemory(sweepCompaction).description());
}

}  // namespace
}  // namespace zav::test
