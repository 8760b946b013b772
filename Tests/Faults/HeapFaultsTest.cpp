#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstddef>
#include <exception>
#include <filesystem>
#include <functional>
#include <iterator>
#include <memory>
#include <new>
#include <ostream>
#include <span>
#include <string>

#include "Faults/FaultyHeap.h"
#include "Support/DatabaseHandles.h"

namespace zav::test {
namespace {

/// What a process has taken from the system and the engine, and has to give back.
struct Holdings {
    std::ptrdiff_t descriptors = std::distance(std::filesystem::directory_iterator("/proc/self/fd"),
                                               std::filesystem::directory_iterator());
    sqlite3_int64 engineMemory = sqlite3_memory_used();

    friend bool operator==(const Holdings&, const Holdings&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Holdings& holdings) {
        return stream << holdings.descriptors << " descriptors, " << holdings.engineMemory
                      << " bytes of the engine";
    }
};

/// Calls `work` again and again with the first, the second, the third request for memory failing, and so on
/// until it meets no failure, each time followed by `check`.
void sweepHeap(const std::function<void()>& work, const std::function<void()>& check) {
    constexpr int mostRequests = 2000;
    for (const bool fromThenOn : {false, true}) {
        int number = 1;
        for (; number < mostRequests; ++number) {
            SCOPED_TRACE("with request " + std::to_string(number) +
                         (fromThenOn ? " and all later ones" : "") + " failing");
            FaultyHeap::fail(number, fromThenOn);
            try {
                work();
            } catch (const std::bad_alloc&) {
                EXPECT_GT(FaultyHeap::failures(), 0) << "memory ran out that was there";
            }
            FaultyHeap::heal();
            check();
            if (FaultyHeap::failures() == 0 || testing::Test::HasFailure()) {
                break;
            }
        }
        EXPECT_GT(number, 1) << "the sweep ended before it began";
        EXPECT_LT(number, mostRequests) << "the sweep did not end";
    }
}

class HeapFaults : public testing::Test {
protected:
    HeapFaults() {
        run(*openHandle(path_),
            "CREATE TABLE t (a UNIQUE); INSERT INTO t VALUES (1), (2); PRAGMA user_version=9");
    }

    void sweepOpening(const std::string& path, const FMDatabaseOptions& options) {
        const auto open = [&] {
            ZAVError error;
            return FMDatabase::databaseWithPath(path, options, &error);
        };
        static_cast<void>(open());  // what the engine takes once and for all
        const Holdings before;
        {
            const auto held = openHandle(directory_.file("held.db"));
            EXPECT_GT(Holdings().engineMemory, before.engineMemory) << "what the engine holds is not counted";
        }
        sweepHeap([&] { static_cast<void>(open()); },
                  [&] {
                      EXPECT_EQ(Holdings(), before) << "opening left something behind";
                      EXPECT_FALSE(std::filesystem::exists(path + "-wal")) << "the log stayed";
                      EXPECT_FALSE(std::filesystem::exists(path + "-shm")) << "the shared memory stayed";
                  });
    }

    TemporaryDirectory directory_;
    const std::string path_ = directory_.file("a.db");
};

TEST_F(HeapFaults, InOpeningLeaveNothingBehind) {
    sweepOpening(path_, {});
}

TEST_F(HeapFaults, InMakingAFileLeaveNothingBehindButTheFile) {
    sweepOpening(directory_.file("new.db"), {});
}

TEST_F(HeapFaults, InRefusingAFileLeaveNothingBehind) {
    FMDatabaseOptions options;
    options.newestUserVersion = 8;
    sweepOpening(path_, options);
}

TEST_F(HeapFaults, InStatementsLeaveNoneOfThemLent) {
    FMDatabaseOptions options;
    options.statementCacheCapacity = 0;  // so that each is prepared, and what is prepared is in use
    const auto database = openHandle(path_, options);
    const std::string longText =
        "a text that is too long to be kept inside its object, for a statement or an error";
    const ZAVValue argument(longText);
    const std::function<void()> works[] = {
        [&] { database->prepare("SELECT a FROM t WHERE a <> 'prepared'"); },
        [&] { database->executeUpdate("UPDATE t SET a = a WHERE a = ?", longText); },
        [&] { database->executeUpdate("INSERT INTO t SELECT 1 WHERE 'a constraint fails' IS NOT NULL"); },
        [&] { database->executeUpdate("SELECT a FROM t WHERE a = ?", 1, 2, 3); },
        [&] { static_cast<void>(database->executeQuery("SELECT a FROM t; and text behind the statement")); },
        [&] {
            static_cast<void>(
                database->executeQueryWithArgumentsInArray("SELECT ? FROM t", std::span(&argument, 1)));
        },
        [&] {
            auto rows = database->executeQuery("SELECT a, abs(-9223372036854775808) AS b FROM t");
            ZAVError error;
            if (rows && !rows->nextWithError(&error)) {
                EXPECT_TRUE(error);
            }
        },
        [&] {
            auto rows = database->executeQuery("SELECT a AS chosen FROM t");
            if (rows && rows->next()) {
                EXPECT_THROW(
                    static_cast<void>(rows->longLongIntForColumn("a name that is in no query of all")),
                    std::exception);
            }
        },
        [&] { database->executeStatements("SELECT 1; SELECT no_such_function_in_the_whole_engine()"); },
    };
    for (std::size_t index = 0; index < std::size(works); ++index) {
        SCOPED_TRACE("statement " + std::to_string(index));
        sweepHeap(works[index], [&] {
            EXPECT_EQ(database->openResultSets(), 0U) << "a cursor stayed open";
            EXPECT_TRUE(preparedStatements(*database).empty()) << "a statement leaked or stayed lent";
        });
    }
    EXPECT_EQ(scalar(*database, "SELECT group_concat(a) FROM t"), "1,2");
}

TEST_F(HeapFaults, InRefusingTheNumberOfValuesLeaveAKeptStatementForTheNextUser) {
    const auto database = openHandle(path_);
    ASSERT_TRUE(database->prepare("SELECT a FROM t WHERE a = ?"));
    sweepHeap([&] { static_cast<void>(database->executeQuery("SELECT a FROM t WHERE a = ?")); },
              [&] {
                  EXPECT_TRUE(database->executeUpdate("SELECT a FROM t WHERE a = ?", 1));
                  EXPECT_EQ(keptStatements(*database).size(), 1U) << "a statement stayed lent";
              });
}

TEST_F(HeapFaults, InBindingLeaveNoStatementLent) {
    const auto database = openHandle(path_);
    sqlite3_limit(database->sqliteHandle(), SQLITE_LIMIT_LENGTH, 1000);
    const std::string tooLong(2000, 'x');
    sweepHeap([&] { database->executeUpdate("UPDATE t SET a = ? WHERE a = 5", tooLong); },
              [&] { EXPECT_TRUE(keptStatements(*database).empty()) << "a failed statement stayed lent"; });
}

TEST_F(HeapFaults, InUndoingATransactionDoNotEndTheProcess) {
    FMDatabaseOptions options;
    options.statementCacheCapacity = 0;  // so that the statement that undoes it has to be prepared
    for (int number = 1; number < 10; ++number) {
        const auto database = openHandle(path_, options);
        auto transaction = ZAVTransaction::begin(*database);
        ASSERT_TRUE(transaction && database->executeUpdate("DELETE FROM t"));
        FaultyHeap::fail(number, true);
        transaction->rollback();
        FaultyHeap::heal();
        EXPECT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?)", number + 10))
            << "a transaction that could not be undone stands in the way: "
            << database->lastError().description();
        EXPECT_FALSE(database->inTransaction());
        EXPECT_EQ(scalar(*database, "SELECT COUNT(*) FROM t"), std::to_string(number + 2));
    }
}

}  // namespace
}  // namespace zav::test
