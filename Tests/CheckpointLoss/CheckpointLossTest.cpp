#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <set>
#include <string>
#include <utility>

/// Called by a checkpoint between its look at what the log holds and its look at what of it was copied.
extern "C" void (*zavPauseInCheckpoint)(void);

namespace zav::test {
namespace {

/// A database that two connections use, and the rows of which the writer was told that they are stored.
class PausedCheckpoint : public testing::Test {
protected:
    PausedCheckpoint() {
        std::string pattern = (std::filesystem::temp_directory_path() / "loss-XXXXXX").string();
        directory_ = ::mkdtemp(pattern.data());
        current_ = this;
        zavPauseInCheckpoint = [] { current_->pause(); };
    }
    ~PausedCheckpoint() override {
        zavPauseInCheckpoint = nullptr;
        std::filesystem::remove_all(directory_);
    }
    PausedCheckpoint(const PausedCheckpoint&) = delete;
    PausedCheckpoint& operator=(const PausedCheckpoint&) = delete;

    [[nodiscard]] std::string path() const { return directory_ + "/chat.db"; }

    /// Folds the log whole, so that the next commit may begin it anew, and folds it again; this time somebody
    /// commits at the worst moment, and goes on afterwards.
    void commitWithinACheckpoint(std::function<bool(int)> insert, const std::function<void()>& checkpoint) {
        insert_ = std::move(insert);
        insertMany(1, 100);
        checkpoint();
        waits_ = true;
        checkpoint();
        EXPECT_FALSE(waits_) << "this engine cannot be paused";
        checkpoint();
    }

    /// Whether everything is there that was acknowledged, once all connections are closed.
    [[nodiscard]] bool isWhole() const {
        sqlite3* connection = nullptr;
        EXPECT_EQ(sqlite3_open(path().c_str(), &connection), SQLITE_OK);
        std::set<int> stored;
        const auto note = [](void* rows, int, char** values, char**) {
            static_cast<std::set<int>*>(rows)->insert(std::atoi(values[0]));
            return 0;
        };
        const bool isReadable =
            sqlite3_exec(connection, "SELECT number FROM t", note, &stored, nullptr) == SQLITE_OK;
        std::string integrity;
        const auto noteText = [](void* text, int, char** values, char**) {
            *static_cast<std::string*>(text) += values[0];
            return 0;
        };
        sqlite3_exec(connection, "PRAGMA integrity_check", noteText, &integrity, nullptr);
        sqlite3_close(connection);
        std::cout << acknowledged_.size() << " rows were acknowledged, " << stored.size()
                  << " are stored; the file is " << (integrity == "ok" ? "sound" : "damaged") << std::endl;
        return isReadable && stored == acknowledged_ && integrity == "ok";
    }

    [[nodiscard]] const std::set<int>& acknowledged() const { return acknowledged_; }

private:
    void insertMany(int first, int last) {
        for (int number = first; number <= last; ++number) {
            if (insert_(number)) {
                acknowledged_.insert(number);
            }
        }
    }
    void pause() {
        if (std::exchange(waits_, false)) {
            insertMany(101, 120);
        }
    }

    inline static PausedCheckpoint* current_ = nullptr;

    std::string directory_;
    std::function<bool(int)> insert_;
    bool waits_ = false;  ///< for the next pause of a checkpoint
    std::set<int> acknowledged_;
};

constexpr const char* table = "CREATE TABLE t (number UNIQUE, filling)";

std::string insertion(int number) {
    return "INSERT INTO t VALUES (" + std::to_string(number) + ", randomblob(1500))";
}

TEST_F(PausedCheckpoint, OfForeignConnectionsLosesCommitsUnlessTheEngineIsMended) {
    sqlite3* writer = nullptr;
    sqlite3* checkpointer = nullptr;
    ASSERT_EQ(sqlite3_open(path().c_str(), &writer), SQLITE_OK);
    sqlite3_exec(writer, "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0", nullptr, nullptr, nullptr);
    ASSERT_EQ(sqlite3_exec(writer, table, nullptr, nullptr, nullptr), SQLITE_OK);
    ASSERT_EQ(sqlite3_open(path().c_str(), &checkpointer), SQLITE_OK);
    // The engine opens the log when it first reads.
    ASSERT_EQ(sqlite3_exec(checkpointer, "SELECT * FROM t", nullptr, nullptr, nullptr), SQLITE_OK);
    commitWithinACheckpoint(
        [&](int number) {
            return sqlite3_exec(writer, insertion(number).c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
        },
        [&] {
            sqlite3_wal_checkpoint_v2(checkpointer, nullptr, SQLITE_CHECKPOINT_PASSIVE, nullptr, nullptr);
        });
    sqlite3_close(writer);
    sqlite3_close(checkpointer);
    EXPECT_EQ(acknowledged().size(), 120U);
    EXPECT_EQ(isWhole(), ZAVDatabaseEngine::hasSafeCheckpoints());
}

TEST_F(PausedCheckpoint, OfHandlesLosesNothing) {
    FMDatabaseOptions options;
    options.busyTimeout = std::chrono::milliseconds(0);
    options.writeAheadLogPages = 0;
    auto writer = FMDatabase::databaseWithPath(path(), options);
    ASSERT_NE(writer, nullptr);
    ASSERT_TRUE(writer->executeUpdate(table));
    auto checkpointer = FMDatabase::databaseWithPath(path(), options);
    ASSERT_NE(checkpointer, nullptr);
    int refusals = 0;
    commitWithinACheckpoint(
        [&](int number) {
            const bool isStored = writer->executeUpdate(insertion(number));
            refusals += isStored ? 0 : 1;
            return isStored;
        },
        [&] { EXPECT_TRUE(ZAVDatabaseMaintenance(checkpointer).checkpoint()); });
    EXPECT_EQ(refusals, ZAVDatabaseEngine::hasSafeCheckpoints() ? 0 : 20)
        << "a commit beside a checkpoint of such an engine has to wait";
    EXPECT_TRUE(writer->executeUpdate(insertion(121))) << "and goes through afterwards";
    EXPECT_TRUE(writer->executeUpdate("DELETE FROM t WHERE number = 121"));
    writer.reset();
    checkpointer.reset();
    EXPECT_TRUE(isWhole());
}

}  // namespace
}  // namespace zav::test
