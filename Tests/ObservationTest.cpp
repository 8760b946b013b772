#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>

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
    const TestStore store;
    store.addStream(uuidNumber(1));
    std::vector<std::string> told;
    store.database().setStatementObserver([&](const FMStatementRun& run) { told.emplace_back(run.sql); });
    EXPECT_EQ(store.repository().countOfEvents(), 0U);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_NE(told.front().find("COUNT"), std::string::npos) << told.front();
    store.database().setStatementObserver({});
}

class WatchedChanges : public Watched {
protected:
    void SetUp() override {
        Watched::SetUp();
        watch();
    }

    void watch() {
        database_->setChangeObserver([this](std::span<const FMRowChange> changes) {
            EXPECT_FALSE(database_->inTransaction()) << "changes were told before they were committed";
            commits_.emplace_back(changes.begin(), changes.end());
        });
    }

    void insert(int number) {
        ASSERT_TRUE(database_->executeUpdate("INSERT INTO t VALUES (?, ?)", number, number))
            << database_->lastError().description();
    }

    std::vector<Changes> commits_;
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
    const std::vector<Changes> expected{{{Kind::insertion, "t", 1}, {Kind::insertion, "t", 2}}};
    EXPECT_EQ(commits_, expected);
}

TEST_F(WatchedChanges, AreNotToldWhenATransactionIsUndone) {
    {
        const auto transaction = ZAVTransaction::begin(*database_);
        insert(1);
    }
    insert(2);
    const std::vector<Changes> expected{{{Kind::insertion, "t", 2}}};
    EXPECT_EQ(commits_, expected);
}

TEST_F(WatchedChanges, AreNotToldWhenTheEngineUndoesTheTransaction) {
    insert(1);
    commits_.clear();
    {
        const auto transaction = ZAVTransaction::begin(*database_);
        insert(2);
        ASSERT_FALSE(database_->executeUpdate("INSERT OR ROLLBACK INTO t VALUES (3, 1)"));
    }
    insert(4);
    const std::vector<Changes> expected{{{Kind::insertion, "t", 4}}};
    EXPECT_EQ(commits_, expected);
}

TEST_F(WatchedChanges, LeaveOutWhatAFailedStatementTookBack) {
    insert(1);
    commits_.clear();
    auto transaction = ZAVTransaction::begin(*database_);
    insert(2);
    ASSERT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (3, 3), (4, 1)"));
    insert(5);
    ASSERT_TRUE(transaction->commit());
    const std::vector<Changes> expected{{{Kind::insertion, "t", 2}, {Kind::insertion, "t", 5}}};
    EXPECT_EQ(commits_, expected);
}

TEST_F(WatchedChanges, LeaveOutAFailedStatementOutsideATransaction) {
    insert(1);
    commits_.clear();
    ASSERT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (3, 3), (4, 1)"));
    EXPECT_TRUE(commits_.empty());
}

TEST_F(WatchedChanges, AreToldWhileACursorIsOpen) {
    insert(1);
    commits_.clear();
    auto rows = database_->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(rows->next());
    insert(2);
    EXPECT_EQ(commits_.size(), 1U) << "a commit beside an open cursor went untold";
}

TEST_F(WatchedChanges, OfAScriptAreTold) {
    run(*database_, "BEGIN; INSERT INTO t VALUES (1, 1); COMMIT");
    const std::vector<Changes> expected{{{Kind::insertion, "t", 1}}};
    EXPECT_EQ(commits_, expected);
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
    const std::vector<Changes> expected{{{Kind::insertion, "t", 2}}};
    EXPECT_EQ(commits_, expected);
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

TEST(ChangesOfAnOperation, NameTheRowsOfItsRecords) {
    const TestStore store;
    store.addStream(uuidNumber(1));
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

}  // namespace
}  // namespace zav::test
