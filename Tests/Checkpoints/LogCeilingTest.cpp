#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <random>
#include <regex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestEffort.h"

namespace zav::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

class LogWithACeiling : public testing::Test {
protected:
    static constexpr std::int32_t ceiling = 60;

    [[nodiscard]] static FMDatabaseOptions options(std::int32_t pages, std::chrono::milliseconds wait) {
        FMDatabaseOptions options;
        options.synchronous = FMDatabaseOptions::Synchronous::normal;
        options.writeAheadLogPages = 30;
        options.writeAheadLogCeiling = pages;
        options.writeAheadLogWait = wait;
        return options;
    }

    /// A handle on a database with a table `t` that has a few rows.
    [[nodiscard]] std::shared_ptr<FMDatabase> open(std::int32_t pages, std::chrono::milliseconds wait) const {
        auto database = openHandle(path(), options(pages, wait));
        run(*database,
            "CREATE TABLE IF NOT EXISTS t (id INTEGER PRIMARY KEY, filling);"
            "INSERT OR IGNORE INTO t (id) VALUES (1), (2), (3)");
        return database;
    }

    [[nodiscard]] std::string path() const { return directory_.file("chat.db"); }

    /// How many pages the log has, as its index tells.
    [[nodiscard]] std::int64_t pagesInLog() const {
        constexpr off_t place = 16;
        std::uint32_t pages = 0;
        const int index = ::open((path() + "-shm").c_str(), O_RDONLY | O_CLOEXEC);
        const ssize_t size = ::pread(index, &pages, sizeof pages, place);
        ::close(index);
        if (size != static_cast<ssize_t>(sizeof pages)) {
            throw std::runtime_error("the log has no index");
        }
        return pages;
    }

    /// Writes until the log has so many pages; answers how long the last statement took.
    Clock::duration fill(FMDatabase& database, std::int64_t pages) const {
        auto last = Clock::duration::zero();
        for (int count = 0; pagesInLog() < pages; ++count) {
            if (count == 10'000) {
                throw std::runtime_error("the log does not grow");
            }
            const auto start = Clock::now();
            insert(database);
            last = Clock::now() - start;
        }
        return last;
    }

    static void insert(FMDatabase& database) {
        ASSERT_TRUE(database.executeUpdate("INSERT INTO t (filling) VALUES (zeroblob(2000))"))
            << database.lastError().description();
    }

    [[nodiscard]] static std::vector<std::string> linesIn(const LogCapture& capture) {
        std::vector<std::string> lines;
        for (const LogRecord& record : capture.records()) {
            EXPECT_FALSE(record.asynchronous);
            EXPECT_EQ(record.flag, static_cast<std::uint32_t>(DDLogFlagError));
            EXPECT_EQ(record.function, "-[FMDatabase commit]");
            lines.push_back(record.message);
        }
        return lines;
    }

    /// What a crowd of readers left.
    struct Crowd {
        std::int64_t largestLog = 0;
        std::int64_t largestTransaction = 0;
        std::int64_t commits = 0;
        std::int64_t beginnings = 0;  ///< of the log
        std::int64_t readings = 0;
        Clock::duration longestCommit{0};
    };

    /// One writes without a pause, and four read, each beginning anew at once when it has read for a while.
    [[nodiscard]] Crowd crowd(std::int32_t pages, std::chrono::milliseconds wait, Clock::duration duration) {
        const auto writer = open(pages, wait);
        const auto end = Clock::now() + duration;
        std::atomic<std::int64_t> readings{0};
        std::vector<std::thread> readers;
        for (unsigned reader = 0; reader < 4; ++reader) {
            readers.emplace_back([&, reader] {
                const auto database = openHandle(path(), options(pages, wait));
                std::minstd_rand random(reader + 1);
                while (Clock::now() < end && !HasFailure()) {
                    auto rows = database->executeQuery("SELECT id FROM t ORDER BY id");
                    ZAVError error;
                    const bool hasBegun = rows && rows->nextWithError(&error);
                    std::this_thread::sleep_for(std::chrono::milliseconds(5 + random() % 30));
                    EXPECT_TRUE(hasBegun && rows->nextWithError(&error))
                        << error.description() << database->lastError().description();
                    ++readings;
                }
            });
        }
        Crowd crowd;
        std::int64_t before = pagesInLog();
        while (Clock::now() < end && !HasFailure()) {
            const auto start = Clock::now();
            auto transaction = ZAVTransaction::begin(*writer);
            EXPECT_TRUE(transaction) << writer->lastError().description();
            for (int row = 0; row < 4; ++row) {
                constexpr std::int64_t rowsInAll = 4000;
                EXPECT_TRUE(writer->executeUpdate(
                    "INSERT OR REPLACE INTO t (id, filling) VALUES (10 + ?, zeroblob(2000))",
                    (4 * crowd.commits + row) % rowsInAll))
                    << writer->lastError().description();
            }
            EXPECT_TRUE(transaction && transaction->commit()) << writer->lastError().description();
            crowd.longestCommit = std::max(crowd.longestCommit, Clock::now() - start);
            const std::int64_t now = pagesInLog();
            crowd.largestLog = std::max(crowd.largestLog, now);
            crowd.largestTransaction = std::max(crowd.largestTransaction, now > before ? now - before : now);
            crowd.beginnings += now <= before ? 1 : 0;
            crowd.commits += 1;
            before = now;
        }
        for (std::thread& reader : readers) {
            reader.join();
        }
        crowd.readings = readings;
        return crowd;
    }

private:
    TemporaryDirectory directory_;
};

// Readers that take turns

TEST_F(LogWithACeiling, ExceedsItByOneTransactionAtMostBesideReadersThatTakeTurns) {
    constexpr std::int32_t pages = 400;
    const LogCapture capture;
    const Crowd free = crowd(0, 0ms, 3s);
    EXPECT_GT(free.largestLog, pages + free.largestTransaction)
        << "the readers would not keep the log from being begun anew";
    const int seconds = rounds(6, 600);
    const Crowd bounded = crowd(pages, 10s, std::chrono::seconds(seconds));
    EXPECT_LT(bounded.largestLog, pages + bounded.largestTransaction);
    EXPECT_GT(bounded.beginnings, seconds) << "nothing was proved";
    EXPECT_GT(bounded.readings, 40 * seconds) << "the readers were kept from reading";
    EXPECT_LT(bounded.longestCommit, 10s);
    EXPECT_EQ(linesIn(capture), std::vector<std::string>());
    const auto database = open(0, 0ms);
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
    reportSweep(std::to_string(bounded.commits) + " commits beside " + std::to_string(bounded.readings) +
                " readings in " + std::to_string(seconds) + " s: the log had " +
                std::to_string(bounded.largestLog) + " pages at most, its ceiling is " +
                std::to_string(pages) + "; the longest commit took " +
                std::to_string(bounded.longestCommit / 1ms) + " ms; without a ceiling it had " +
                std::to_string(free.largestLog) + " pages after 3 s");
}

TEST_F(LogWithACeiling, IsBegunAnewAfterATransactionThatIsLargerAndNobodyWaits) {
    const LogCapture capture;
    const auto database = open(ceiling, 10s);
    auto transaction = ZAVTransaction::begin(*database);
    for (int row = 0; row < 4 * ceiling; ++row) {
        insert(*database);
    }
    const auto start = Clock::now();
    ASSERT_TRUE(transaction && transaction->commit());
    EXPECT_LT(Clock::now() - start, 5s);
    EXPECT_GT(pagesInLog(), ceiling);
    insert(*database);
    EXPECT_LT(pagesInLog(), 10);
    EXPECT_EQ(linesIn(capture), std::vector<std::string>());
}

// A reader that never pauses

TEST_F(LogWithACeiling, GrowsOnWhenAReaderDoesNotPauseAndWaitsAgainOnceItHasGrownByAQuarter) {
    const LogCapture capture;
    constexpr auto wait = 300ms;
    const auto database = open(ceiling, wait);
    const auto reader = open(ceiling, wait);
    auto rows = reader->executeQuery("SELECT id FROM t");
    ASSERT_TRUE(rows && rows->next());
    EXPECT_GE(fill(*database, ceiling), wait);
    const std::int64_t pages = pagesInLog();
    EXPECT_LT(pages, ceiling + 10);
    const std::string line =
        " pages and grows beyond its ceiling of 60: other connections hold on to it for "
        "longer than the 300 ms that a commit waits.";
    std::vector<std::string> expected{"The write-ahead log has " + std::to_string(pages) + line};
    EXPECT_EQ(linesIn(capture), expected);
    EXPECT_LT(fill(*database, pages + ceiling / 4 - 5), wait) << "each commit waits";
    EXPECT_EQ(linesIn(capture), expected);
    EXPECT_GE(fill(*database, pages + ceiling / 4), wait);
    expected.push_back("The write-ahead log has " + std::to_string(pagesInLog()) + line);
    EXPECT_EQ(linesIn(capture), expected);
    EXPECT_TRUE(rows->next());
    rows->close();
    insert(*database);
    insert(*database);
    EXPECT_LT(pagesInLog(), 10) << "the log was not begun anew";
    rows = reader->executeQuery("SELECT id FROM t");
    ASSERT_TRUE(rows && rows->next());
    EXPECT_GE(fill(*database, ceiling), wait) << "a log that was begun anew has its whole ceiling again";
}

TEST_F(LogWithACeiling, IsWaitedForWithoutALock) {
    const LogCapture capture;
    const auto database = open(ceiling, 1500ms);
    const auto reader = open(ceiling, 0ms);
    auto rows = reader->executeQuery("SELECT id FROM t");
    ASSERT_TRUE(rows && rows->next());
    static_cast<void>(fill(*database, ceiling - 10));
    auto chosen = options(0, 0ms);
    chosen.busyTimeout = 500ms;
    const auto other = openHandle(path(), chosen);
    std::atomic<bool> isWaiting{true};
    Clock::duration waited{0};
    std::thread waiting([&] {
        waited = fill(*database, ceiling);
        isWaiting = false;
    });
    int commits = 0;
    auto longest = Clock::duration::zero();
    while (isWaiting) {
        const auto start = Clock::now();
        insert(*other);
        longest = std::max(longest, Clock::now() - start);
        ++commits;
        std::this_thread::sleep_for(2ms);
    }
    waiting.join();
    EXPECT_GE(waited, 1500ms);
    EXPECT_GT(commits, 50);
    EXPECT_LT(longest, 500ms);
    EXPECT_TRUE(rows->next());
}

TEST_F(LogWithACeiling, MayBeBegunAnewBySomebodyElseMeanwhile) {
    const LogCapture capture;
    const auto database = open(ceiling, 20s);
    const auto reader = open(ceiling, 0ms);
    const auto other = openHandle(path(), options(0, 0ms));
    auto rows = reader->executeQuery("SELECT id FROM t");
    ASSERT_TRUE(rows && rows->next());
    static_cast<void>(fill(*database, ceiling - 10));
    std::atomic<bool> isWaiting{true};
    std::thread waiting([&] {
        EXPECT_TRUE(database->executeUpdate("INSERT INTO t (filling) VALUES (zeroblob(100000))"));
        isWaiting = false;
    });
    while (pagesInLog() < ceiling) {
        std::this_thread::sleep_for(1ms);
    }
    EXPECT_TRUE(isWaiting);
    rows->close();
    const auto end = Clock::now() + 10s;
    while (isWaiting && Clock::now() < end) {
        insert(*other);
    }
    EXPECT_FALSE(isWaiting) << "it waits for the readers of a log that is gone";
    waiting.join();
    EXPECT_EQ(linesIn(capture), std::vector<std::string>());
}

// A reader of the handle itself

TEST_F(LogWithACeiling, IsNotWaitedForWhenAnOwnCursorReadsFromIt) {
    const LogCapture capture;
    const auto database = open(ceiling, 20s);
    auto unused = database->executeQuery("SELECT 'not begun' FROM t");
    std::this_thread::sleep_for(50ms);
    auto oldest = database->executeQuery("SELECT id FROM t WHERE id > ?", 0);
    ASSERT_TRUE(unused && oldest && oldest->next());
    auto moved = std::move(*oldest);
    std::this_thread::sleep_for(200ms);
    auto younger = database->executeQuery("SELECT id FROM t");
    ASSERT_TRUE(younger && younger->next());
    const auto start = Clock::now();
    static_cast<void>(fill(*database, ceiling + 5));
    EXPECT_LT(Clock::now() - start, 15s);
    const auto lines = linesIn(capture);
    ASSERT_EQ(lines.size(), 1U);
    std::smatch match;
    ASSERT_TRUE(std::regex_match(
        lines[0], match,
        std::regex("The write-ahead log has (\\d+) pages and grows beyond its ceiling of 60: a cursor of "
                   "this handle, open for (\\d+) ms, reads from it: SELECT id FROM t WHERE id > \\?")))
        << lines[0];
    EXPECT_GE(std::stoi(match[1]), ceiling);
    EXPECT_GE(std::stoi(match[2]), 180);
    EXPECT_LT(std::stoi(match[2]), 15'000);
    EXPECT_TRUE(moved.next());
    static_cast<void>(fill(*database, ceiling + 5 + ceiling / 4 + 5));
    EXPECT_EQ(linesIn(capture).size(), 2U);
    moved.close();
    younger->close();
    insert(*database);
    insert(*database);
    EXPECT_LT(pagesInLog(), 10) << "the log was not begun anew";
}

TEST_F(LogWithACeiling, IsNotWaitedForWhenAStatementPastTheHandleReadsFromIt) {
    const LogCapture capture;
    const auto database = open(ceiling, 20s);
    sqlite3_stmt* statement = nullptr;
    ASSERT_EQ(sqlite3_prepare_v2(database->sqliteHandle(), "SELECT id FROM t", -1, &statement, nullptr),
              SQLITE_OK);
    ASSERT_EQ(sqlite3_step(statement), SQLITE_ROW);
    const auto start = Clock::now();
    static_cast<void>(fill(*database, ceiling));
    EXPECT_LT(Clock::now() - start, 15s);
    EXPECT_EQ(linesIn(capture),
              std::vector<std::string>{"The write-ahead log has " + std::to_string(pagesInLog()) +
                                       " pages and grows beyond its ceiling of 60: a statement that the "
                                       "application runs past this handle reads from it: SELECT id FROM t"});
    sqlite3_finalize(statement);
}

// A file that cannot take it

/// No file grows beyond a size while this lives.
class LimitOfFiles {
public:
    explicit LimitOfFiles(rlim_t size) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{size, before_.rlim_max};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
    }
    ~LimitOfFiles() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        static_cast<void>(std::signal(SIGXFSZ, handler_));
    }
    LimitOfFiles(const LimitOfFiles&) = delete;
    LimitOfFiles& operator=(const LimitOfFiles&) = delete;

private:
    void (*handler_)(int);
    rlimit before_{};
};

TEST_F(LogWithACeiling, IsNotWaitedForWhenItCannotBeCopied) {
    const LogCapture capture;
    const auto database = open(ceiling, 20s);
    ASSERT_TRUE(database->executeUpdate("INSERT INTO t (filling) VALUES (zeroblob(1000000))"));
    ASSERT_FALSE(isHeldUpInTruncating(database));
    const LimitOfFiles limit(std::filesystem::file_size(path()));
    const auto start = Clock::now();
    static_cast<void>(fill(*database, ceiling));
    EXPECT_LT(Clock::now() - start, 15s);
    EXPECT_EQ(linesIn(capture),
              std::vector<std::string>{
                  "The write-ahead log has " + std::to_string(pagesInLog()) +
                  " pages and grows beyond its ceiling of 60: it cannot be copied: " +
                  ZAVError("SQLite", SQLITE_IOERR_WRITE, sqlite3_errstr(SQLITE_IOERR)).description()});
}

// A sink may use the handle

TEST_F(LogWithACeiling, MayBeWrittenToByTheSinkThatIsToldOfIt) {
    class WritingSink final : public DDLogSink {
    public:
        explicit WritingSink(FMDatabase& database) : database_(database) {}
        void write(const DDLogMessage&) override {
            ++lines;
            insert(database_);
        }
        int lines = 0;

    private:
        FMDatabase& database_;
    };
    const auto database = open(ceiling, 0ms);
    auto rows = database->executeQuery("SELECT id FROM t");
    ASSERT_TRUE(rows && rows->next());
    const auto sink = std::make_shared<WritingSink>(*database);
    DDLog::setSink(sink);
    static_cast<void>(fill(*database, ceiling));
    DDLog::setSink(nullptr);
    EXPECT_EQ(sink->lines, 1);
}

// Without one

TEST_F(LogWithACeiling, HasNoneWhereItIsZeroOrNothingIsCopied) {
    const LogCapture capture;
    for (const bool copies : {true, false}) {
        auto chosen = options(copies ? 0 : ceiling, 20s);
        chosen.writeAheadLogPages = copies ? 30 : 0;
        const auto database = open(0, 0ms);
        const auto other = openHandle(path(), chosen);
        auto rows = database->executeQuery("SELECT id FROM t");
        ASSERT_TRUE(rows && rows->next());
        const auto start = Clock::now();
        static_cast<void>(fill(*other, 4 * ceiling));
        EXPECT_LT(Clock::now() - start, 15s);
    }
    EXPECT_EQ(linesIn(capture), std::vector<std::string>());
}

TEST_F(LogWithACeiling, HasItWherePagesAreCopiedAtLeast) {
    const LogCapture capture;
    auto chosen = options(1, 0ms);
    const auto database = open(0, 0ms);
    const auto other = openHandle(path(), chosen);
    auto rows = database->executeQuery("SELECT id FROM t");
    ASSERT_TRUE(rows && rows->next());
    static_cast<void>(fill(*other, 26));
    EXPECT_EQ(linesIn(capture), std::vector<std::string>());
    static_cast<void>(fill(*other, 30));
    EXPECT_EQ(linesIn(capture).size(), 1U);
}

TEST_F(LogWithACeiling, OfAnExclusiveConnectionHasNoReadersToWaitFor) {
    const LogCapture capture;
    open(0, 0ms).reset();
    auto chosen = options(ceiling, 20s);
    chosen.writeAheadLog = false;
    const auto database = openHandle(path(), chosen);
    run(*database, "PRAGMA locking_mode=EXCLUSIVE");
    const auto start = Clock::now();
    for (int number = 1; number <= 4; ++number) {
        auto transaction = ZAVTransaction::begin(*database);
        for (int row = 0; row < ceiling; ++row) {
            insert(*database);
        }
        ASSERT_TRUE(transaction && transaction->commit());
    }
    EXPECT_LT(Clock::now() - start, 15s);
    EXPECT_EQ(linesIn(capture), std::vector<std::string>());
}

}  // namespace
}  // namespace zav::test
