#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "Compaction/LooseStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr std::int64_t logOfOnePage = 32 + 24 + 4096;

/// What nobody has to wait for.
constexpr std::chrono::seconds shortTime(2);

FMDatabaseOptions waitingFor(std::chrono::milliseconds timeout) {
    FMDatabaseOptions options;
    options.busyTimeout = timeout;
    return options;
}

TEST(Compaction, GivesTheFreePagesBackToTheFileSystem) {
    const LooseStore store;
    const std::string content = store.content();
    ASSERT_GT(store.freePages(), 500) << "there is something to give back";
    const std::int64_t before = store.bytesOfDatabase() + store.bytesOfLog();
    const ZAVCompaction result = store.compactWell();
    EXPECT_EQ(result.bytesBefore, before);
    EXPECT_EQ(result.bytesAfter, store.bytesOfDatabase() + store.bytesOfLog());
    EXPECT_EQ(result.logBytes, store.bytesOfLog());
    EXPECT_FALSE(result.isHeldUp);
    EXPECT_EQ(store.freePages(), 0);
    EXPECT_LT(result.bytesAfter, 1500000) << "a thousand rows of a kilobyte are left";
    EXPECT_LE(result.logBytes, logOfOnePage) << "the log is cut off";
    EXPECT_EQ(store.content(), content);
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA integrity_check"), "ok");
    EXPECT_FALSE(fs::exists(store.marker()));
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA journal_mode"), "wal");
    run(*store.handle(), "INSERT INTO t VALUES (1, 'after')");
}

TEST(Compaction, DoesTheSameWithAJournal) {
    const LooseStore store(withoutWriteAheadLog());
    const std::string content = store.content();
    ASSERT_GT(store.freePages(), 500);
    const ZAVCompaction result = store.compactWell();
    EXPECT_LT(result.bytesAfter, 1500000);
    EXPECT_EQ(result.bytesAfter, store.bytesOfDatabase());
    EXPECT_EQ(result.logBytes, 0);
    EXPECT_FALSE(result.isHeldUp);
    EXPECT_EQ(store.freePages(), 0);
    EXPECT_EQ(store.content(), content);
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA journal_mode"), "delete");
}

TEST(Compaction, LeavesNothingOfWhatWasDeleted) {
    FMDatabaseOptions options;
    options.secureDelete = false;
    const LooseStore store(options);
    ASSERT_TRUE(store.holds(LooseStore::deletedText)) << "without secureDelete it stays in free pages";
    ASSERT_TRUE(store.holds(LooseStore::keptText));
    static_cast<void>(store.compactWell());
    EXPECT_FALSE(store.holds(LooseStore::deletedText));
    EXPECT_TRUE(store.holds(LooseStore::keptText));
}

TEST(Compaction, KeepsWhatTheFileIs) {
    const LooseStore store;
    run(*store.handle(),
        "PRAGMA user_version=7; PRAGMA application_id=42; CREATE TABLE k (a PRIMARY KEY, b) "
        "WITHOUT ROWID; INSERT INTO k VALUES ('x', 1)");
    const auto inode = [&] {
        struct stat file {};
        ::stat(store.path().c_str(), &file);
        return file.st_ino;
    };
    const auto before = inode();
    static_cast<void>(store.compactWell());
    EXPECT_EQ(inode(), before) << "other handles have this file open";
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA user_version"), "7");
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA application_id"), "42");
    EXPECT_EQ(scalar(*store.handle(), "SELECT b FROM k WHERE a = 'x'"), "1");
}

TEST(Compaction, TellsHowFarItIs) {
    const LooseStore store({}, 40000);
    std::vector<double> shares;
    static_cast<void>(store.compactWell([&](double share) { shares.push_back(share); }));
    ASSERT_GT(shares.size(), 100U);
    EXPECT_TRUE(std::is_sorted(shares.begin(), shares.end())) << "it never goes back";
    EXPECT_GE(shares.front(), 0.0);
    EXPECT_LT(shares.front(), 0.4);
    EXPECT_GT(shares[shares.size() - 2], 0.9) << "what is expected is what is done";
    EXPECT_EQ(shares.back(), 1.0);
}

// Who cannot

TEST(Compaction, IsRefusedToAHandleThatIsInUse) {
    const LooseStore store;
    const std::int64_t freePages = store.freePages();
    {
        auto cursor = store.handle()->executeQuery("SELECT * FROM t");
        ASSERT_TRUE(cursor && cursor->next());
        const ZAVError error = store.failureToCompact();
        EXPECT_EQ(error.domain(), ZAVErrorDomainDatabase);
        EXPECT_EQ(error.code(), ZAVDatabaseErrorCannotCompact);
        EXPECT_NE(error.description().find("this handle has an open cursor or transaction"),
                  std::string::npos)
            << error.description();
    }
    run(*store.handle(), "BEGIN; INSERT INTO t VALUES (1, 'mine')");
    EXPECT_EQ(store.failureToCompact().code(), ZAVDatabaseErrorCannotCompact);
    EXPECT_TRUE(store.handle()->inTransaction()) << "the transaction is left alone";
    run(*store.handle(), "COMMIT");
    EXPECT_EQ(store.freePages(), freePages);
    static_cast<void>(store.compactWell());
}

TEST(Compaction, IsRefusedToAHandleThatOnlyReadsAndToOneWithoutAFile) {
    const LooseStore store;
    const auto reader = openHandle(store.path(), withAccess(FMDatabaseOptions::Access::readOnly));
    ZAVError error;
    EXPECT_FALSE(ZAVDatabaseMaintenance(reader).compact({}, {}, &error));
    EXPECT_EQ(error.code(), ZAVDatabaseErrorCannotCompact);
    EXPECT_NE(error.description().find("only reads"), std::string::npos) << error.description();
    EXPECT_FALSE(ZAVDatabaseMaintenance(openHandle()).compact({}, {}, &error));
    EXPECT_EQ(error.code(), ZAVDatabaseErrorCannotCompact);
    EXPECT_NE(error.description().find("no file of its own"), std::string::npos) << error.description();
}

TEST(Compaction, DoesNotTouchAFileThatWasPutInItsPlace) {
    const LooseStore store;
    const LooseStore other;
    fs::rename(store.path(), store.path() + ".old");
    fs::copy(other.path(), store.path());
    const std::string bytes = bytesOfFile(store.path());
    const ZAVError error = store.failureToCompact();
    EXPECT_EQ(error.code(), ZAVDatabaseErrorCannotCompact);
    EXPECT_NE(error.description().find("another file stands in its place"), std::string::npos)
        << error.description();
    EXPECT_TRUE(bytesOfFile(store.path()) == bytes);
}

// Beside others

TEST(CompactionBesideOthers, LetsAReaderGoOnWithWhatItHasBegunToRead) {
    const LooseStore store(waitingFor(std::chrono::milliseconds(50)));
    const std::string content = store.content();
    const auto other = store.anotherHandle();
    auto cursor = other->executeQuery("SELECT id FROM t ORDER BY id");
    int rows = 0;
    for (; rows < 10; ++rows) {
        ASSERT_TRUE(cursor->next());
    }
    const ZAVCompaction result = store.compactWell();
    EXPECT_TRUE(result.isHeldUp) << "what the reader may still read stays where it is";
    EXPECT_GT(result.logBytes, 1000000) << "the log cannot be cut off";
    run(*store.handle(), "DELETE FROM t WHERE id > 400");
    while (cursor->next()) {
        EXPECT_EQ(cursor->longLongIntForColumnIndex(0), 4 * ++rows);
    }
    EXPECT_EQ(rows, 1000) << "the reader has read on in its own moment";
    cursor->close();
    EXPECT_FALSE(isHeldUpInTruncating(store.handle()));
    EXPECT_LT(store.bytesOfDatabase(), 1500000) << "the space is given back when the log is folded";
    EXPECT_EQ(scalar(*other, "SELECT count(*) FROM t"), "100");
    EXPECT_NE(content, store.content());
}

TEST(CompactionBesideOthers, LetsThemReadAndTellsThemWhyTheyCannotWrite) {
    const LooseStore store;
    const auto other = store.anotherHandle();
    int failures = 0;
    int successes = 0;
    static_cast<void>(store.compactWell([&](double share) {
        if (share >= 1) {
            return;
        }
        EXPECT_EQ(scalar(*other, "SELECT count(*) FROM t"), std::to_string(1000 + successes))
            << "who reads does not wait";
        if (other->executeUpdate("INSERT INTO t (text) VALUES ('beside')")) {
            ++successes;  // when all is rewritten and the log is being folded
        } else {
            ++failures;
            EXPECT_EQ(other->lastError().code(), SQLITE_BUSY);
            EXPECT_EQ(other->lastError().domain(), ZAVErrorDomainSQLite);
            EXPECT_NE(other->lastError().description().find("the database is being compacted"),
                      std::string::npos)
                << other->lastError().description();
        }
    }));
    EXPECT_GT(failures, 10);
    EXPECT_TRUE(successes == 0 || ZAVDatabaseEngine::hasSafeCheckpoints())
        << "the guard keeps writers out while the log is folded";
    EXPECT_TRUE(other->executeUpdate("INSERT INTO t (text) VALUES ('after')"));
    run(*store.handle(), "BEGIN IMMEDIATE");
    EXPECT_FALSE(other->executeUpdate("INSERT INTO t (text) VALUES ('beside')"));
    EXPECT_EQ(other->lastError().description().find("compacted"), std::string::npos)
        << "another writer is no compaction: " << other->lastError().description();
    run(*store.handle(), "ROLLBACK");
}

/// A process that tries to write into a database when it is told to, and says how that went.
class WriterInAnotherProcess {
public:
    explicit WriterInAnotherProcess(const std::string& path) {
        if (::pipe(toWriter_.data()) != 0 || ::pipe(fromWriter_.data()) != 0) {
            throw std::runtime_error("no pipe");
        }
        process_ = ::fork();
        if (process_ == 0) {
            write(path);
        }
    }
    ~WriterInAnotherProcess() {
        ::close(toWriter_[1]);
        ::waitpid(process_, nullptr, 0);
    }

    [[nodiscard]] std::string answer() const {
        std::string answer(1000, '\0');
        if (::write(toWriter_[1], "!", 1) != 1) {
            return "nobody listens";
        }
        const auto size = ::read(fromWriter_[0], answer.data(), answer.size());
        answer.resize(size < 0 ? 0 : static_cast<std::size_t>(size));
        return answer;
    }

private:
    [[noreturn]] void write(const std::string& path) const {
        char byte = 0;
        std::string answer = "written";
        if (::read(toWriter_[0], &byte, 1) == 1) {
            FMDatabaseOptions options;
            options.busyTimeout = std::chrono::milliseconds(0);
            const auto database = FMDatabase::databaseWithPath(path, options);
            if (!database || !database->executeUpdate("INSERT INTO t (text) VALUES ('beside')")) {
                answer = database ? database->lastError().description() : "not opened";
            }
            static_cast<void>(::write(fromWriter_[1], answer.data(), answer.size()) == 0);
        }
        ::_exit(0);
    }

    std::array<int, 2> toWriter_{};
    std::array<int, 2> fromWriter_{};
    pid_t process_ = -1;
};

TEST(CompactionBesideOthers, TellsAnotherProcessToo) {
    const TemporaryDirectory place;
    std::unique_ptr<WriterInAnotherProcess> writer;
    // It must not inherit an open database.
    std::unique_ptr<LooseStore> store;
    const std::string link = place.file("store");
    writer = std::make_unique<WriterInAnotherProcess>(link + "/loose.db");
    store = std::make_unique<LooseStore>();
    fs::create_directory_symlink(store->directory(), link);
    std::string answer;
    static_cast<void>(store->compactWell([&](double) {
        if (answer.empty()) {
            answer = writer->answer();
        }
    }));
    EXPECT_NE(answer.find("the database is being compacted"), std::string::npos) << answer;
    EXPECT_NE(answer.find("database is locked"), std::string::npos) << answer;
}

TEST(CompactionBesideOthers, WaitsForAWriterNoLongerThanItsHandle) {
    const LooseStore store(waitingFor(std::chrono::milliseconds(50)));
    const auto other = store.anotherHandle();
    run(*other, "BEGIN IMMEDIATE");
    const ZAVError error = store.failureToCompact();
    EXPECT_EQ(error.domain(), ZAVErrorDomainSQLite);
    EXPECT_EQ(error.code(), SQLITE_BUSY);
    EXPECT_NE(error.description().find("while another connection writes"), std::string::npos)
        << error.description();
    EXPECT_FALSE(fs::exists(store.marker()));
    run(*other, "INSERT INTO t VALUES (1, 'mine'); COMMIT");
    static_cast<void>(store.compactWell());
    EXPECT_EQ(scalar(*store.handle(), "SELECT text FROM t WHERE id = 1"), "mine");
}

TEST(CompactionBesideOthers, IsNotBegunTwice) {
    const LooseStore store;
    const auto other = store.anotherHandle();
    ZAVError error;
    static_cast<void>(store.compactWell([&](double share) {
        if (share < 1 && !error) {
            EXPECT_FALSE(ZAVDatabaseMaintenance(other).compact({}, {}, &error));
        }
    }));
    EXPECT_EQ(error.code(), SQLITE_BUSY);
    EXPECT_NE(error.description().find("the database is being compacted already"), std::string::npos)
        << error.description();
    EXPECT_TRUE(ZAVDatabaseMaintenance(other).compact());
}

// Ended by its caller

TEST(CancelledCompaction, LeavesTheStoreAsItWas) {
    FMDatabaseOptions options;
    options.pageCacheKiB = 512;  // so that the copy is written to its file as it grows
    const LooseStore store(options, 40000);
    const std::string content = store.content();
    const std::int64_t freePages = store.freePages();
    ASSERT_FALSE(isHeldUpInTruncating(store.handle()));
    const std::int64_t bytes = store.bytesOfDatabase();
    for (const double moment : {-1.0, 0.0, 0.1, 0.3, 0.35, 0.5, 0.6}) {
        SCOPED_TRACE("cancelled at " + std::to_string(moment));
        double reached = -1;
        Clock::time_point cancelled;
        const ZAVError error = store.failureToCompact([&](double share) { reached = share; },
                                                      [&] {
                                                          cancelled = Clock::now();
                                                          return reached >= moment;
                                                      });
        EXPECT_LT(Clock::now() - cancelled, shortTime);
        EXPECT_EQ(error.domain(), ZAVErrorDomainDatabase);
        EXPECT_EQ(error.code(), ZAVDatabaseErrorCancelled);
        EXPECT_NE(error.description().find("cancelled"), std::string::npos) << error.description();
        EXPECT_LT(reached, moment + 0.05) << "it ends at once";
        EXPECT_EQ(store.freePages(), freePages);
        EXPECT_TRUE(store.content() == content);
        EXPECT_EQ(store.bytesOfDatabase(), bytes);
        EXPECT_LE(store.bytesOfLog(), logOfOnePage) << "what it had written to the log is cut off";
        EXPECT_FALSE(fs::exists(store.marker()));
    }
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA integrity_check"), "ok");
    EXPECT_TRUE(store.anotherHandle()->executeUpdate("INSERT INTO t VALUES (1, 'after')"));
    static_cast<void>(store.compactWell());
}

TEST(CancelledCompaction, LeavesAStoreWithAJournalAsItWas) {
    const LooseStore store(withoutWriteAheadLog(), 40000);
    const std::string content = store.content();
    const std::int64_t freePages = store.freePages();
    for (const double moment : {0.1, 0.35, 0.5, 0.7}) {
        SCOPED_TRACE("cancelled at " + std::to_string(moment));
        double reached = -1;
        const ZAVError error =
            store.failureToCompact([&](double share) { reached = share; }, [&] { return reached >= moment; });
        EXPECT_EQ(error.code(), ZAVDatabaseErrorCancelled) << error.description();
        EXPECT_EQ(store.freePages(), freePages);
        EXPECT_TRUE(store.content() == content);
        EXPECT_EQ(scalar(*store.handle(), "PRAGMA integrity_check"), "ok");
    }
    EXPECT_TRUE(store.anotherHandle()->executeUpdate("INSERT INTO t VALUES (1, 'after')"));
}

TEST(CancelledCompaction, IsDoneWhenOnlyTheLogIsLeft) {
    const LooseStore store({}, 40000);
    const std::string content = store.content();
    double reached = -1;
    ZAVError error;
    const auto result =
        ZAVDatabaseMaintenance(store.handle())
            .compact([&](double share) { reached = share; }, [&] { return reached >= 0.8; }, &error);
    ASSERT_TRUE(result) << error.description();
    EXPECT_TRUE(result->isHeldUp);
    EXPECT_LT(reached, 0.9) << "folding the log ends at once";
    EXPECT_EQ(store.freePages(), 0);
    EXPECT_TRUE(store.content() == content);
    EXPECT_FALSE(isHeldUpInTruncating(store.handle()));
    EXPECT_LT(store.bytesOfDatabase(), 15000000);
    EXPECT_TRUE(store.content() == content);
    EXPECT_EQ(scalar(*store.handle(), "PRAGMA integrity_check"), "ok");
}

TEST(CancelledCompaction, DoesNotGoOnWaitingForOthers) {
    const LooseStore store(waitingFor(std::chrono::seconds(60)));
    const auto other = store.anotherHandle();
    run(*other, "BEGIN IMMEDIATE");
    const auto begin = Clock::now();
    const ZAVError error =
        store.failureToCompact({}, [&] { return Clock::now() - begin > std::chrono::milliseconds(100); });
    EXPECT_EQ(error.code(), ZAVDatabaseErrorCancelled) << error.description();
    run(*other, "ROLLBACK");
    auto cursor = other->executeQuery("SELECT * FROM t");
    ASSERT_TRUE(cursor->next());
    const auto secondBegin = Clock::now();
    const auto result = ZAVDatabaseMaintenance(store.handle()).compact({}, [&] {
        return store.freePages() == 0 && Clock::now() - secondBegin > std::chrono::milliseconds(100);
    });
    EXPECT_TRUE(result && result->isHeldUp) << "a reader keeps the log, and nobody waits for it any more";
    EXPECT_LT(Clock::now() - begin, std::chrono::seconds(30));
}

TEST(CancelledCompaction, ThrowsOnWhatACallerThrows) {
    const LooseStore store;
    const std::string content = store.content();
    const std::int64_t freePages = store.freePages();
    const ZAVDatabaseMaintenance maintenance(store.handle());
    const auto compactAndThrow = [&](bool fromProgress) {
        return maintenance.compact(
            [&](double) {
                if (fromProgress) {
                    throw std::runtime_error("from progress");
                }
            },
            [&]() -> bool { throw std::runtime_error("from cancel"); });
    };
    EXPECT_THROW(static_cast<void>(compactAndThrow(true)), std::runtime_error);
    EXPECT_THROW(static_cast<void>(compactAndThrow(false)), std::runtime_error);
    EXPECT_EQ(store.freePages(), freePages);
    EXPECT_EQ(store.content(), content);
    EXPECT_FALSE(fs::exists(store.marker()));
    static_cast<void>(store.compactWell());
}

}  // namespace
}  // namespace zav::test
