#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "Faults/ImportedBatch.h"
#include "Faults/StoredState.h"
#include "Support/DatabaseHandles.h"
#include "Support/Process.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using CompactionClock = std::chrono::steady_clock;

/// A store, three quarters of whose pages are free.
class SpongyStore {
public:
    static constexpr int batches = 3;

    SpongyStore() {
        const auto database = ZAVDatabaseSchema::openDatabase(path());
        for (int number = 0; number < batches; ++number) {
            ZAVError error;
            EXPECT_TRUE(ImportedBatch(number).store(database, &error)) << error.description();
        }
        run(*database,
            "CREATE TABLE filling (id INTEGER PRIMARY KEY, bytes);"
            "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < 8000) "
            "INSERT INTO filling SELECT i, randomblob(2000) FROM n;"
            "DELETE FROM filling WHERE id % 4 <> 0");
    }

    [[nodiscard]] std::string path() const { return directory_.file("spongy.db"); }

    /// A copy, at a path.
    void copyTo(const std::string& target) const {
        for (const char* const suffix : {"", "-wal", "-shm", "-compacting"}) {
            fs::remove(target + suffix);
        }
        fs::copy_file(path(), target);
    }

private:
    TemporaryDirectory directory_;
};

std::int64_t freePagesIn(FMDatabase& database) {
    return std::stoll(scalar(database, "PRAGMA freelist_count"));
}

/// Has the tool compact a store, and kills it at a share of the time that it takes: 0 for at once. Answers
/// whether it was under way.
bool killCompaction(const std::string& path, CompactionClock::duration usual, double moment) {
    Process tool({ZAV_TOOL_PATH, "compact", path});
    std::this_thread::sleep_for(usual * moment);
    if (tool.kill() == SIGKILL) {
        return true;
    }
    EXPECT_EQ(tool.exitStatus(), 0) << "a compaction after a kill goes through";
    return false;
}

/// How long the tool takes when nobody kills it.
CompactionClock::duration timeToCompact(const std::string& path) {
    const auto before = CompactionClock::now();
    Process tool({ZAV_TOOL_PATH, "compact", path});
    EXPECT_EQ(tool.wait(), 0);
    EXPECT_EQ(tool.exitStatus(), 0);
    return CompactionClock::now() - before;
}

TEST(KilledCompaction, LosesNothing) {
    const SpongyStore store;
    const TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    store.copyTo(path);
    auto usual = timeToCompact(path);
    store.copyTo(path);
    const StoredState before(*ZAVDatabaseSchema::openDatabase(path));
    const int kills = rounds(20, 500);
    int killed = 0;
    int markers = 0;
    int compacted = 0;
    // Some come to their end before they are killed: how long one takes depends on what else the machine
    // does.
    for (int count = 0; killed < kills && count < 4 * kills && !HasFailure(); ++count) {
        SCOPED_TRACE("kill " + std::to_string(killed));
        store.copyTo(path);
        // Not always is the log left to the one who opens the file next.
        const auto beside = count % 2 == 0 ? ZAVDatabaseSchema::openDatabase(path) : nullptr;
        if (killCompaction(path, usual, (killed + 0.5) / kills)) {
            ++killed;
        } else {
            usual = usual * 9 / 10;
        }
        if (count % 50 == 49) {
            const TemporaryDirectory elsewhere;
            store.copyTo(elsewhere.file("store.db"));
            usual = timeToCompact(elsewhere.file("store.db"));
        }
        markers += fs::exists(path + "-compacting") ? 1 : 0;
        ZAVError error;
        const auto database = beside ? beside : ZAVDatabaseSchema::openDatabase(path, {}, &error);
        ASSERT_TRUE(database) << "after a kill the store opens; " << error.description();
        EXPECT_EQ(integrityOf(*database), "ok");
        EXPECT_EQ(StoredState(*database), before) << "all rows are as before";
        compacted += freePagesIn(*database) == 0 ? 1 : 0;
        if (count % 5 == 0) {
            EXPECT_TRUE(ZAVDatabaseMaintenance(database).compact({}, {}, &error)) << error.description();
            EXPECT_EQ(freePagesIn(*database), 0);
            EXPECT_EQ(StoredState(*database), before);
            EXPECT_FALSE(fs::exists(path + "-compacting"));
        }
    }
    EXPECT_EQ(killed, kills);
    EXPECT_GT(markers, 0) << "none was killed in the middle";
    if (!HasFailure()) {
        reportSweep("killed a compaction " + std::to_string(killed) + " times, " + std::to_string(markers) +
                    " of them in the middle: " + std::to_string(compacted) +
                    " stores were compacted, the others as before, and no row was lost");
    }
}

TEST(KilledCompaction, LosesNothingOfWhatIsWrittenBesideIt) {
    const SpongyStore store;
    const TemporaryDirectory directory;
    const std::string path = directory.file("store.db");
    const int kills = rounds(20, 200);
    const int killsOfOneStore = 10;
    int markers = 0;
    int acknowledged = 0;
    for (int killed = 0; killed < kills && !HasFailure(); killed += killsOfOneStore) {
        store.copyTo(path);
        const auto usual = timeToCompact(path);
        store.copyTo(path);
        Process writer({ZAV_IMPORTING_WRITER_PATH, path, std::to_string(SpongyStore::batches), "log"});
        ASSERT_EQ(writer.line(), "opening");
        ASSERT_EQ(writer.line(), "open");
        for (int count = 0; count < killsOfOneStore; ++count) {
            killCompaction(path, usual, 1.3 * (count + 0.5) / killsOfOneStore);
            markers += fs::exists(path + "-compacting") ? 1 : 0;
        }
        EXPECT_EQ(writer.kill(), SIGKILL) << "the writer ended by itself";
        int stored = SpongyStore::batches;
        while (const auto line = writer.line()) {
            EXPECT_EQ(*line, std::to_string(stored)) << "one batch after the other";
            ++stored;
        }
        acknowledged += stored - SpongyStore::batches;
        ZAVError error;
        const auto database = ZAVDatabaseSchema::openDatabase(path, {}, &error);
        ASSERT_TRUE(database) << error.description();
        EXPECT_EQ(integrityOf(*database), "ok");
        for (int number = 0; number < stored; ++number) {
            EXPECT_EQ(ImportedBatch(number).presenceIn(database), ImportedBatch::whole)
                << "batch " << number << " was acknowledged";
        }
        EXPECT_EQ(scalar(*database, "SELECT count(*) FROM filling"), "2000");
    }
    EXPECT_GT(acknowledged, 0) << "nothing was written beside a compaction";
    EXPECT_GT(markers, 0) << "none was killed in the middle";
    if (!HasFailure()) {
        reportSweep("killed a compaction " + std::to_string(kills) + " times beside a writer, " +
                    std::to_string(markers) + " of them in the middle: " + std::to_string(acknowledged) +
                    " batches acknowledged meanwhile, all of them found");
    }
}

}  // namespace
}  // namespace zav::test
