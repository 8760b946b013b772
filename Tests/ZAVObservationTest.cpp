#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <optional>
#include <ostream>
#include <span>
#include <string>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/TestStore.h"

namespace zav {

/// "+events 3", "~events 3" or "-events 3".
std::ostream& operator<<(std::ostream& stream, const FMRowChange& change) {
    const char kinds[] = {'+', '~', '-'};
    return stream << kinds[static_cast<int>(change.kind)] << change.table << ' ' << change.row;
}

}  // namespace zav

namespace zav::test {
namespace {

using Kind = FMRowChange::Kind;
using Changes = std::vector<FMRowChange>;

struct Ran {
    std::string sql;
    std::uint64_t rows;
    bool succeeded;

    friend bool operator==(const Ran&, const Ran&) = default;
    friend std::ostream& operator<<(std::ostream& stream, const Ran& run) {
        return stream << run.sql << " (" << run.rows << " rows" << (run.succeeded ? ")" : ", failed)");
    }
};

/// A handle on a table `t (a INTEGER PRIMARY KEY, b UNIQUE)`.
class Watched : public testing::Test {
protected:
    void SetUp() override { run(*database_, "CREATE TABLE t (a INTEGER PRIMARY KEY, b UNIQUE)"); }

    std::shared_ptr<FMDatabase> database_ = openHandle();
};

class WatchedStatements : public Watched {
protected:
    void SetUp() override {
        Watched::SetUp();
        watch();
    }

    void watch() {
        database_->setStatementObserver([this](const FMStatementRun& run) {
            EXPECT_GE(run.duration.count(), 0) << run.sql << " took less than no time";
            runs_.push_back({std::string(run.sql), run.rows, run.succeeded});
        });
    }

    std::vector<Ran> runs_;
};

TEST_F(WatchedStatements, AreToldWithTheirTextAndTheirRows) {
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (?)", 1));
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (?)", 2));
    auto rows = database_->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(rows && rows->next() && rows->next());
    EXPECT_EQ(runs_.size(), 2U) << "a query was told before its end";
    EXPECT_FALSE(rows->next());
    const std::vector<Ran> expected{{"INSERT INTO t (b) VALUES (?)", 0, true},
                                    {"INSERT INTO t (b) VALUES (?)", 0, true},
                                    {"SELECT a FROM t", 2, true}};
    EXPECT_EQ(runs_, expected);
}

TEST_F(WatchedStatements, AreToldWhenACursorIsClosedBeforeItsEnd) {
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (1), (2)"));
    auto rows = database_->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(rows->next());
    rows->close();
    EXPECT_EQ(runs_.back(), (Ran{"SELECT a FROM t", 1, true}));
}

TEST_F(WatchedStatements, AreToldWhenTheyFail) {
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (1)"));
    ASSERT_FALSE(database_->executeUpdate("INSERT INTO t (b) VALUES (1)"));
    EXPECT_EQ(runs_.back(), (Ran{"INSERT INTO t (b) VALUES (1)", 0, false}));
}

TEST_F(WatchedStatements, CountARunsRowsAnewEachTime) {
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (1)"));
    for (int round = 0; round < 2; ++round) {
        auto rows = database_->executeQuery("SELECT a FROM t");
        while (rows->next()) {
        }
        EXPECT_EQ(runs_.back().rows, 1U) << "in round " << round;
    }
}

TEST_F(WatchedStatements, IncludeScripts) {
    run(*database_, "DELETE FROM t; DROP TABLE t");
    EXPECT_EQ(runs_.back(), (Ran{"DELETE FROM t; DROP TABLE t", 0, true}));
}

TEST_F(WatchedStatements, AreNoLongerToldWhenNobodyWatches) {
    database_->setStatementObserver({});
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (1)"));
    EXPECT_TRUE(runs_.empty());
}

TEST_F(WatchedStatements, AreThoseThatAnOperationRuns) {
    const StreamStore store;
    std::vector<std::string> told;
    store.database().setStatementObserver([&](const FMStatementRun& run) { told.emplace_back(run.sql); });
    EXPECT_EQ(store.repository().countOfEvents(), 0U);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_NE(told.front().find("COUNT"), std::string::npos) << told.front();
    store.database().setStatementObserver({});
}

TEST_F(WatchedStatements, CountNothingThatAnEarlierObserverSaw) {
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (1), (2), (3)"));
    auto rows = database_->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(rows->next() && rows->next());
    database_->setStatementObserver({});
    rows->close();
    watch();
    auto again = database_->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(again->next());
    again->close();
    EXPECT_EQ(runs_.back(), (Ran{"SELECT a FROM t", 1, true}))
        << "the rows that an observer saw who has gone were counted for the next one";
}

TEST_F(WatchedStatements, CountFromWhenTheObserverCame) {
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (b) VALUES (1), (2), (3)"));
    auto rows = database_->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(rows->next() && rows->next());
    watch();
    ASSERT_TRUE(rows->next());
    rows->close();
    EXPECT_EQ(runs_.back(), (Ran{"SELECT a FROM t", 1, true}));
}

TEST_F(WatchedStatements, AreToldWhenTheyEndWithTheirHandle) {
    auto rows = database_->executeQuery("SELECT 'open'");
    ASSERT_TRUE(rows->next());
    runs_.clear();
    database_.reset();
    EXPECT_EQ(runs_, (std::vector<Ran>{{"SELECT 'open'", 1, true}}));
}

class WatchedChanges : public Watched {
protected:
    void SetUp() override {
        Watched::SetUp();
        watch();
    }

    void watch() {
        database_->setChangeObserver([this](std::span<const FMRowChange> changes) {
            EXPECT_EQ(sqlite3_get_autocommit(connection_), 1) << "changes were told before their commit";
            commits_.emplace_back(changes.begin(), changes.end());
        });
    }

    void insert(int number) {
        ASSERT_TRUE(database_->executeUpdate("INSERT INTO t VALUES (?, ?)", number, number))
            << database_->lastError().description();
    }

    /// Inserts a row of which it does not matter that it was told.
    void insertBefore(int number) {
        insert(number);
        commits_.clear();
    }

    /// That these rows of `t` were told as inserted, by one commit, and nothing else.
    void expectInserted(const std::vector<int>& numbers) const {
        Changes expected;
        for (const int number : numbers) {
            expected.push_back({Kind::insertion, "t", number});
        }
        EXPECT_EQ(commits_, std::vector<Changes>{expected});
    }

    std::vector<Changes> commits_;
    sqlite3* const connection_ = database_->sqliteHandle();
};

TEST_F(WatchedChanges, AreToldAfterEachStatementOutsideATransaction) {
    insert(7);
    ASSERT_TRUE(database_->executeUpdate("UPDATE t SET b = 8 WHERE a = 7"));
    ASSERT_TRUE(database_->executeUpdate("DELETE FROM t WHERE a = 7"));
    const std::vector<Changes> expected{
        {{Kind::insertion, "t", 7}}, {{Kind::update, "t", 7}}, {{Kind::removal, "t", 7}}};
    EXPECT_EQ(commits_, expected);
}

TEST_F(WatchedChanges, AreToldTogetherWhenATransactionIsCommitted) {
    auto transaction = ZAVTransaction::begin(*database_);
    insert(1);
    insert(2);
    EXPECT_TRUE(commits_.empty()) << "changes were told before their commit";
    ASSERT_TRUE(transaction->commit());
    expectInserted({1, 2});
}

TEST_F(WatchedChanges, AreNotToldWhenATransactionIsUndone) {
    {
        const auto transaction = ZAVTransaction::begin(*database_);
        insert(1);
    }
    insert(2);
    expectInserted({2});
}

TEST_F(WatchedChanges, AreNotToldWhenTheEngineUndoesTheTransaction) {
    insertBefore(1);
    {
        const auto transaction = ZAVTransaction::begin(*database_);
        insert(2);
        ASSERT_FALSE(database_->executeUpdate("INSERT OR ROLLBACK INTO t VALUES (3, 1)"));
    }
    insert(4);
    expectInserted({4});
}

TEST_F(WatchedChanges, LeaveOutWhatAFailedStatementTookBack) {
    insertBefore(1);
    auto transaction = ZAVTransaction::begin(*database_);
    insert(2);
    ASSERT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (3, 3), (4, 1)"));
    insert(5);
    ASSERT_TRUE(transaction->commit());
    expectInserted({2, 5});
}

TEST_F(WatchedChanges, LeaveOutAFailedStatementOutsideATransaction) {
    insertBefore(1);
    ASSERT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (3, 3), (4, 1)"));
    EXPECT_TRUE(commits_.empty());
}

TEST_F(WatchedChanges, AreToldWhileACursorIsOpen) {
    insertBefore(1);
    auto rows = database_->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(rows->next());
    insert(2);
    EXPECT_EQ(commits_.size(), 1U) << "a commit beside an open cursor went untold";
}

TEST_F(WatchedChanges, OfAScriptAreTold) {
    run(*database_, "BEGIN; INSERT INTO t VALUES (1, 1); COMMIT");
    expectInserted({1});
}

TEST_F(WatchedChanges, LeaveOutTablesThatAreNotInTheFile) {
    run(*database_, "CREATE TEMP TABLE scratch (a); INSERT INTO scratch VALUES (1)");
    EXPECT_TRUE(commits_.empty());
}

TEST_F(WatchedChanges, MayBeReadFromWithinTheObserver) {
    std::optional<std::int64_t> counted;
    database_->setChangeObserver([&](std::span<const FMRowChange>) {
        auto rows = database_->executeQuery("SELECT COUNT(*) FROM t");
        ASSERT_TRUE(rows->next());
        counted = rows->longLongIntForColumnIndex(0);
    });
    insert(1);
    EXPECT_EQ(counted, 1);
}

TEST_F(WatchedChanges, AreToldToAnObserverThatTookOverMeanwhile) {
    database_->setChangeObserver([this](std::span<const FMRowChange>) { watch(); });
    insert(1);
    insert(2);
    expectInserted({2});
}

TEST_F(WatchedChanges, AreNoLongerToldWhenNobodyWatches) {
    database_->setChangeObserver({});
    insert(1);
    EXPECT_TRUE(commits_.empty());
}

TEST_F(WatchedChanges, MayBeWatchedWhenTheHandleCloses) {
    auto rows = database_->executeQuery("SELECT 1");
    ASSERT_TRUE(rows->next());
    database_.reset();
    EXPECT_TRUE(commits_.empty());
}

// What is taken back, and what stays after a failure

TEST_F(WatchedChanges, OfAScriptThatFailsInATransactionAreThoseOfTheStatementsBefore) {
    insertBefore(1);
    auto transaction = ZAVTransaction::begin(*database_);
    ASSERT_FALSE(database_->executeStatements(
        "INSERT INTO t VALUES (2, 2); INSERT INTO t VALUES (3, 3), (4, 1); INSERT INTO t VALUES (5, 5)"));
    ASSERT_TRUE(transaction->commit());
    ASSERT_EQ(scalar(*database_, "SELECT group_concat(a) FROM t"), "1,2");
    expectInserted({2});
}

TEST_F(WatchedChanges, OfAScriptThatFailsAreThoseOfTheStatementsBefore) {
    insertBefore(1);
    ASSERT_FALSE(
        database_->executeStatements("INSERT INTO t VALUES (2, 2); INSERT INTO t VALUES (3, 3), (4, 1)"));
    expectInserted({2});
}

TEST_F(WatchedChanges, OfAScriptAreToldCommitByCommitAlsoWhenItLeavesATransactionOpen) {
    run(*database_, "INSERT INTO t VALUES (1, 1); BEGIN; INSERT INTO t VALUES (2, 2)");
    expectInserted({1});
    commits_.clear();
    run(*database_, "COMMIT");
    expectInserted({2});
}

TEST_F(WatchedChanges, LeaveOutWhatAFailedCursorTookBack) {
    insertBefore(1);
    auto transaction = ZAVTransaction::begin(*database_);
    insert(2);
    auto rows = database_->executeQuery("INSERT INTO t VALUES (3, 3), (4, 1)");
    ASSERT_TRUE(rows);
    ZAVError error;
    ASSERT_FALSE(rows->nextWithError(&error));
    ASSERT_TRUE(error) << "the statement was to fail";
    ASSERT_TRUE(transaction->commit());
    expectInserted({2});
}

TEST_F(WatchedChanges, IncludeWhatAStatementStoredBeforeItFailed) {
    insertBefore(1);
    constexpr const char* keeping = "INSERT OR FAIL INTO t VALUES (3, 3), (4, 1), (5, 5)";
    ASSERT_FALSE(database_->executeUpdate(keeping));
    ASSERT_EQ(scalar(*database_, "SELECT group_concat(a) FROM t"), "1,3") << "the engine keeps the row";
    expectInserted({3});
}

TEST_F(WatchedChanges, IncludeWhatACursorStoredBeforeItFailed) {
    insertBefore(1);
    auto rows = database_->executeQuery("INSERT OR FAIL INTO t VALUES (3, 3), (4, 1)");
    ASSERT_TRUE(rows);
    ASSERT_FALSE(rows->next());
    expectInserted({3});
}

TEST_F(WatchedChanges, IncludeWhatAStatementOfAScriptStoredBeforeItFailed) {
    insertBefore(1);
    ASSERT_FALSE(database_->executeStatements("INSERT OR FAIL INTO t VALUES (3, 3), (4, 1)"));
    expectInserted({3});
}

TEST_F(WatchedChanges, IncludeInATransactionWhatAStatementStoredBeforeItFailed) {
    insertBefore(1);
    auto transaction = ZAVTransaction::begin(*database_);
    ASSERT_FALSE(database_->executeUpdate("INSERT OR FAIL INTO t VALUES (3, 3), (4, 1)"));
    ASSERT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (6, 6), (7, 1)"));
    ASSERT_TRUE(transaction->commit());
    expectInserted({3});
}

TEST_F(WatchedChanges, LeaveOutAStatementThatWasInterrupted) {
    insertBefore(1);
    auto transaction = ZAVTransaction::begin(*database_);
    insert(2);
    sqlite3_create_function(
        connection_, "interrupt", 0, SQLITE_UTF8, nullptr,
        [](sqlite3_context* context, int, sqlite3_value**) {
            sqlite3_interrupt(sqlite3_context_db_handle(context));
            sqlite3_result_int(context, 0);
        },
        nullptr, nullptr);
    ASSERT_FALSE(database_->executeUpdate("INSERT INTO t SELECT 3, 3 UNION ALL SELECT 4, interrupt()"));
    EXPECT_FALSE(transaction->commit()) << "the engine undoes a transaction that is interrupted";
    EXPECT_EQ(commits_, std::vector<Changes>{});
    insert(5);
    expectInserted({5});
}

TEST_F(WatchedChanges, LeaveOutWhatWasTakenBackToASavepoint) {
    for (const char* const back :
         {"ROLLBACK TO here", "rollback transaction to savepoint HERE", "ROLLBACK TO \"here\"",
          "ROLLBACK TRANSACTION x TO [here] ;", " /* go */ ROLLBACK -- back\n TO 'here'"}) {
        SCOPED_TRACE(back);
        run(*database_, "DELETE FROM t WHERE a > 0");
        commits_.clear();
        auto transaction = ZAVTransaction::begin(*database_);
        insert(1);
        ASSERT_TRUE(database_->executeUpdate("SAVEPOINT here"));
        insert(2);
        ASSERT_TRUE(database_->executeUpdate("SAVEPOINT \"fur\"\"ther\""));
        insert(3);
        ASSERT_TRUE(database_->executeUpdate(back)) << database_->lastError().description();
        insert(4);
        ASSERT_TRUE(transaction->commit());
        expectInserted({1, 4});
    }
}

TEST_F(WatchedChanges, LeaveOutWhatAScriptAndACursorTookBackToASavepoint) {
    run(*database_,
        "BEGIN; INSERT INTO t VALUES (1, 1); SAVEPOINT a; INSERT INTO t VALUES (2, 2); "
        "ROLLBACK TO a; INSERT INTO t VALUES (3, 3)");
    auto rows = database_->executeQuery("ROLLBACK TO a");
    ASSERT_TRUE(rows);
    EXPECT_FALSE(rows->next());
    insert(4);
    run(*database_, "COMMIT");
    expectInserted({1, 4});
}

TEST_F(WatchedChanges, AreNotTakenBackByAStatementThatNeverRan) {
    run(*database_, "BEGIN; SAVEPOINT a; INSERT INTO t VALUES (1, 1)");
    auto rows = database_->executeQuery("ROLLBACK TO a");
    ASSERT_TRUE(rows);
    rows->close();
    run(*database_, "COMMIT");
    expectInserted({1});
}

TEST_F(WatchedChanges, FollowSavepointsOfOneNameAndTheirRelease) {
    auto transaction = ZAVTransaction::begin(*database_);
    ASSERT_TRUE(database_->executeUpdate("SAVEPOINT a"));
    insert(1);
    ASSERT_TRUE(database_->executeUpdate("SAVEPOINT a"));
    insert(2);
    ASSERT_TRUE(database_->executeUpdate("ROLLBACK TO a"));
    ASSERT_TRUE(database_->executeUpdate("RELEASE SAVEPOINT a"));
    insert(3);
    ASSERT_TRUE(database_->executeUpdate("SAVEPOINT b"));
    insert(4);
    ASSERT_TRUE(database_->executeUpdate("RELEASE b"));
    ASSERT_TRUE(transaction->commit());
    expectInserted({1, 3, 4});
}

TEST_F(WatchedChanges, AreToldWhenTheOutermostSavepointIsReleased) {
    run(*database_,
        "SAVEPOINT a; INSERT INTO t VALUES (1, 1); SAVEPOINT b; INSERT INTO t VALUES (2, 2); "
        "ROLLBACK TO b");
    EXPECT_EQ(commits_, std::vector<Changes>{}) << "changes were told before their commit";
    run(*database_, "RELEASE a");
    expectInserted({1});
}

TEST_F(WatchedChanges, LeaveOutWhatWasTakenBackToASavepointOlderThanTheObserver) {
    database_->setChangeObserver({});
    run(*database_, "BEGIN; SAVEPOINT old; INSERT INTO t VALUES (1, 1)");
    watch();
    insert(2);
    run(*database_, "ROLLBACK TO old; INSERT INTO t VALUES (3, 3); COMMIT");
    expectInserted({3});
}

TEST_F(WatchedChanges, AreNotToldOfACommitThatFails) {
    run(*database_,
        "PRAGMA foreign_keys=ON; CREATE TABLE child (a REFERENCES t DEFERRABLE INITIALLY DEFERRED)");
    run(*database_, "BEGIN; INSERT INTO t VALUES (1, 1); INSERT INTO child VALUES (9)");
    ASSERT_FALSE(database_->executeUpdate("COMMIT")) << "a key leads nowhere";
    EXPECT_EQ(commits_, std::vector<Changes>{});
    run(*database_, "DELETE FROM child WHERE a = 9; COMMIT");
    const std::vector<Changes> expected{
        {{Kind::insertion, "t", 1}, {Kind::insertion, "child", 1}, {Kind::removal, "child", 1}}};
    EXPECT_EQ(commits_, expected);
}

TEST(WatchedChangesOfASharedFile, AreToldWhenTheCommitSucceedsThatMetALockBefore) {
    SharedFile file(false);
    std::vector<Changes> commits;
    file.first->setChangeObserver(
        [&](std::span<const FMRowChange> changes) { commits.emplace_back(changes.begin(), changes.end()); });
    run(*file.first, "BEGIN; INSERT INTO t VALUES (4)");
    auto reading = file.second->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(reading && reading->next());
    ASSERT_FALSE(file.first->executeUpdate("COMMIT")) << "somebody reads";
    EXPECT_EQ(commits, std::vector<Changes>{}) << "a commit was told that failed";
    reading->close();
    ASSERT_TRUE(file.first->executeUpdate("COMMIT"));
    EXPECT_EQ(commits, (std::vector<Changes>{{{Kind::insertion, "t", 4}}}));
}

/// A statement that stores rows and then hands them out is not through when the first is read.
class WatchedChangesOfAReturningCursor : public WatchedChanges {
protected:
    void SetUp() override {
        if (sqlite3_libversion_number() < 3035000) {
            GTEST_SKIP() << "this engine returns no rows that it stores";
        }
        WatchedChanges::SetUp();
        rows_ = database_->executeQuery("INSERT INTO t VALUES (1, 1), (2, 2) RETURNING a");
        ASSERT_TRUE(rows_ && rows_->next()) << database_->lastError().description();
    }

    std::optional<FMResultSet> rows_;
};

TEST_F(WatchedChangesOfAReturningCursor, AreToldWhenItIsClosed) {
    EXPECT_EQ(commits_, std::vector<Changes>{}) << "changes were told before their commit";
    rows_->close();
    expectInserted({1, 2});
}

TEST_F(WatchedChangesOfAReturningCursor, AreToldWithWhatIsCommittedTogetherWithThem) {
    insert(3);
    EXPECT_EQ(commits_, std::vector<Changes>{}) << "changes were told that a rollback can still take back";
    rows_->close();
    expectInserted({1, 2, 3});
}

TEST_F(WatchedChangesOfAReturningCursor, AreToldWhenItEndsWithItsHandle) {
    database_.reset();
    expectInserted({1, 2});
}

TEST_F(WatchedChangesOfAReturningCursor, AreNotToldWhenTheHandleGoesInATransaction) {
    rows_->close();
    commits_.clear();
    ASSERT_TRUE(database_->executeUpdate("BEGIN"));
    auto rows = database_->executeQuery("INSERT INTO t VALUES (5, 5) RETURNING a");
    ASSERT_TRUE(rows && rows->next());
    database_.reset();
    EXPECT_EQ(commits_, std::vector<Changes>{}) << "the engine undoes what was not committed";
}

TEST(ChangesOfAnOperation, NameTheRowsOfItsRecords) {
    const StreamStore store;
    std::vector<Changes> commits;
    store.database().setChangeObserver(
        [&](std::span<const FMRowChange> changes) { commits.emplace_back(changes.begin(), changes.end()); });
    const auto event = makeEvent(EventType_MEMBER_ADDED, uuidNumber(1), 2);
    auto transaction = ZAVTransaction::begin(store.database());
    ASSERT_TRUE(store.repository().persistEvents({event}));
    ASSERT_TRUE(transaction->commit());
    store.database().setChangeObserver({});
    ASSERT_EQ(commits.size(), 1U);
    EXPECT_EQ(commits.front().front(), (FMRowChange{Kind::insertion, "events", event->databaseIdentifier()}));
}

class ChangesOfKeyedValues : public testing::Test {
protected:
    ChangesOfKeyedValues() {
        store_.database().setChangeObserver([this](std::span<const FMRowChange> changes) {
            commits_.emplace_back(changes.begin(), changes.end());
        });
    }

    /// Makes the values those of stream 7.
    bool set(const ZAVDictionary& values) {
        return ZAVKeyedValueRepository(store_.sharedDatabase())
            .setKeyedValuesWithDictionary(
                values, std::nullopt,
                ZAVKeyedValuesContext::contextWithTable(ZAVKeyedValuesTableLocal, "stream", 7,
                                                        ZAVKeyedValuesKeyTypeSyncable));
    }

    const FMRowChange ofStream{Kind::update, "keyed_values_local", 7, "stream"};
    TestStore store_;
    std::vector<Changes> commits_;
};

TEST_F(ChangesOfKeyedValues, NameTheObjectOnceForEachCommit) {
    auto transaction = ZAVTransaction::begin(store_.database());
    ASSERT_TRUE(set({{"a", std::string("1")}, {"b", std::string("2")}}));
    ASSERT_TRUE(transaction->commit());
    EXPECT_EQ(commits_, std::vector<Changes>{{ofStream}});
    EXPECT_TRUE(set({{"a", std::string("1")}, {"b", std::string("2")}}));
    EXPECT_EQ(commits_.size(), 1U) << "nothing was written";
    EXPECT_TRUE(set({{"a", std::string("1")}}));
    EXPECT_EQ(commits_.size(), 2U) << "a key that goes is a change";
}

TEST_F(ChangesOfKeyedValues, AreNotToldWhenTheyAreTakenBack) {
    auto transaction = ZAVTransaction::begin(store_.database());
    ASSERT_TRUE(store_.database().executeUpdate("SAVEPOINT one"));
    ASSERT_TRUE(set({{"a", std::string("1")}}));
    ASSERT_TRUE(store_.database().executeUpdate("ROLLBACK TO one"));
    ASSERT_TRUE(transaction->commit());
    EXPECT_EQ(commits_, std::vector<Changes>());
}

TEST_F(ChangesOfKeyedValues, AreNotToldWhenAStatementFails) {
    store_.execute(
        "CREATE TEMP TRIGGER refuse BEFORE INSERT ON keyed_values_local BEGIN SELECT RAISE(ABORT, 'no'); END");
    EXPECT_FALSE(set({{"a", std::string("1")}}));
    store_.execute("DROP TRIGGER refuse");
    store_.addStream(uuidNumber(1));
    EXPECT_EQ(commits_, (std::vector<Changes>{{{Kind::insertion, "streams", 1}}}))
        << "what failed is not made up for later";
}

}  // namespace
}  // namespace zav::test
