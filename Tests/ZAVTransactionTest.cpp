#include <ZAVEventRepository/ZAVTransaction.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>

#include "Support/DatabaseHandles.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

/// A file with a table `t (a)` that holds 1, 2 and 3.
class Transaction : public testing::Test {
protected:
    void insert(int number) {
        ASSERT_TRUE(file_.first->executeUpdate("INSERT INTO t VALUES (?)", number))
            << file_.first->lastError().description();
    }

    std::optional<ZAVTransaction> begin() {
        ZAVError error;
        auto transaction = ZAVTransaction::begin(*file_.first, &error);
        EXPECT_TRUE(transaction) << error.description();
        return transaction;
    }

    /// What another connection sees.
    std::string stored() {
        return scalar(*file_.second, "SELECT group_concat(a) FROM (SELECT a FROM t ORDER BY a)");
    }

    SharedFile file_;
};

TEST_F(Transaction, MakesEverythingPermanentWhenItIsCommitted) {
    auto transaction = begin();
    insert(4);
    insert(5);
    EXPECT_EQ(stored(), "1,2,3") << "another connection saw what was not committed";
    ZAVError error;
    EXPECT_TRUE(transaction->commit(&error)) << error.description();
    EXPECT_FALSE(error);
    EXPECT_EQ(stored(), "1,2,3,4,5");
    EXPECT_FALSE(file_.first->inTransaction());
}

TEST_F(Transaction, UndoesEverythingWhenItEndsUncommitted) {
    {
        const auto transaction = begin();
        insert(4);
        EXPECT_TRUE(file_.first->inTransaction());
    }
    EXPECT_FALSE(file_.first->inTransaction());
    EXPECT_EQ(scalar(*file_.first, "SELECT COUNT(*) FROM t"), "3");
}

TEST_F(Transaction, UndoesEverythingWhenAnExceptionEndsIt) {
    EXPECT_THROW(
        {
            const auto transaction = begin();
            insert(4);
            throw std::runtime_error("on the way");
        },
        std::runtime_error);
    EXPECT_EQ(stored(), "1,2,3");
}

TEST_F(Transaction, UndoesEverythingWhenItIsRolledBack) {
    auto transaction = begin();
    insert(4);
    transaction->rollback();
    EXPECT_FALSE(file_.first->inTransaction());
    insert(5);
    transaction->rollback();
    EXPECT_EQ(stored(), "1,2,3,5") << "rolling back twice undid what came after";
}

TEST_F(Transaction, CannotBeCommittedOnceItHasEnded) {
    auto transaction = begin();
    insert(4);
    transaction->rollback();
    EXPECT_FALSE(transaction->commit());
    auto committed = begin();
    insert(5);
    EXPECT_TRUE(committed->commit());
    EXPECT_FALSE(committed->commit());
    EXPECT_EQ(stored(), "1,2,3,5");
}

TEST_F(Transaction, UndoesNothingAfterItWasCommitted) {
    {
        auto transaction = begin();
        insert(4);
        ASSERT_TRUE(transaction->commit());
        transaction->rollback();
    }
    EXPECT_EQ(stored(), "1,2,3,4");
}

TEST_F(Transaction, TakesTheWriteLockWhenItBegins) {
    const auto transaction = begin();
    ZAVError error;
    EXPECT_FALSE(ZAVTransaction::begin(*file_.second, &error)) << "two hold the write lock";
    EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
    EXPECT_FALSE(file_.second->inTransaction());
    EXPECT_FALSE(ZAVTransaction::begin(*file_.second)) << "nobody asked for the reason";
}

TEST_F(Transaction, GivesTheWriteLockBackWhenItEnds) {
    begin().reset();
    EXPECT_TRUE(ZAVTransaction::begin(*file_.second));
}

TEST_F(Transaction, LeavesTheOneThatIsOpenAlone) {
    auto outer = begin();
    insert(4);
    ZAVError error;
    EXPECT_FALSE(ZAVTransaction::begin(*file_.first, &error));
    EXPECT_EQ(error, ZAVError("SQLite", 1, "cannot start a transaction within a transaction"));
    EXPECT_TRUE(file_.first->inTransaction()) << "a transaction that could not begin ended another";
    EXPECT_TRUE(outer->commit());
    EXPECT_EQ(stored(), "1,2,3,4");
}

TEST_F(Transaction, IsRolledBackWhenCommittingFails) {
    run(*file_.first,
        "PRAGMA foreign_keys=ON;"
        "CREATE TABLE child (a REFERENCES t (a) DEFERRABLE INITIALLY DEFERRED)");
    auto transaction = begin();
    insert(4);
    ASSERT_TRUE(file_.first->executeUpdate("INSERT INTO child VALUES (99)"));
    ZAVError error;
    EXPECT_FALSE(transaction->commit(&error)) << "a broken reference was committed";
    EXPECT_EQ(error.message(), "FOREIGN KEY constraint failed");
    EXPECT_FALSE(file_.first->inTransaction()) << "a transaction that failed is still open";
    EXPECT_EQ(stored(), "1,2,3");
}

TEST_F(Transaction, HasNothingToUndoWhenTheEngineHasRolledBack) {
    {
        auto transaction = begin();
        insert(4);
        EXPECT_FALSE(file_.first->executeUpdate("INSERT OR ROLLBACK INTO t VALUES (1)"));
        EXPECT_FALSE(file_.first->inTransaction());
    }
    EXPECT_EQ(file_.first->lastError().message(), "UNIQUE constraint failed: t.a")
        << "ending the transaction failed";
    EXPECT_EQ(stored(), "1,2,3");
}

/// Makes the engine undo the open transaction, as it does by itself when the device is full.
class TransactionUndoneByTheEngine : public Transaction {
protected:
    void SetUp() override {
        insert(4);
        ASSERT_FALSE(file_.first->executeUpdate("INSERT OR ROLLBACK INTO t VALUES (1)"));
    }

    std::optional<ZAVTransaction> undone_ = begin();
};

TEST_F(TransactionUndoneByTheEngine, CannotBeCommitted) {
    ZAVError error;
    EXPECT_FALSE(undone_->commit(&error)) << "a transaction that was undone was reported as committed";
    EXPECT_EQ(error, ZAVError("ZAVDatabase", 7, "the transaction is no longer open"));
    EXPECT_EQ(stored(), "1,2,3");
}

TEST_F(TransactionUndoneByTheEngine, DoesNotUndoALaterOneWhenItEnds) {
    auto later = begin();
    insert(5);
    undone_.reset();
    EXPECT_TRUE(file_.first->inTransaction()) << "the first transaction undid the second";
    ZAVError error;
    EXPECT_TRUE(later->commit(&error)) << error.description();
    EXPECT_EQ(stored(), "1,2,3,5");
}

TEST_F(TransactionUndoneByTheEngine, DoesNotCommitALaterOne) {
    auto later = begin();
    insert(5);
    EXPECT_FALSE(undone_->commit());
    EXPECT_EQ(stored(), "1,2,3") << "the first transaction committed the second";
    later->rollback();
    EXPECT_EQ(stored(), "1,2,3");
}

TEST_F(TransactionUndoneByTheEngine, DoesNotUndoOneThatIsBegunBySQL) {
    ASSERT_TRUE(file_.first->executeUpdate("BEGIN"));
    insert(5);
    undone_.reset();
    ASSERT_TRUE(file_.first->executeUpdate("COMMIT")) << file_.first->lastError().description();
    EXPECT_EQ(stored(), "1,2,3,5");
}

TEST_F(TransactionUndoneByTheEngine, LeavesWhatIsStoredAfterwardsAlone) {
    insert(5);
    undone_.reset();
    EXPECT_EQ(stored(), "1,2,3,5");
}

TEST_F(Transaction, GoesOnWhereItIsMovedTo) {
    auto original = begin();
    {
        ZAVTransaction moved = std::move(*original);
        original.reset();
        EXPECT_TRUE(file_.first->inTransaction()) << "a transaction that was moved away ended";
        insert(4);
        EXPECT_TRUE(moved.commit());
    }
    EXPECT_EQ(stored(), "1,2,3,4");
}

TEST_F(Transaction, EndsWhileACursorIsOpen) {
    auto rows = file_.first->executeQuery("SELECT a FROM t ORDER BY a");
    ASSERT_TRUE(rows->next());
    {
        auto transaction = begin();
        insert(4);
        EXPECT_TRUE(transaction->commit());
    }
    {
        const auto transaction = begin();
        insert(5);
    }
    EXPECT_EQ(stored(), "1,2,3,4");
}

TEST(TransactionOfACaller, StoresSeveralOperationsTogetherOrNotAtAll) {
    const StreamStore store;
    {
        const auto transaction = ZAVTransaction::begin(store.database());
        ASSERT_TRUE(transaction);
        ASSERT_TRUE(store.repository().persistEvents({makeEvent(EventType_MEMBER_ADDED, uuidNumber(1), 2)}));
        ASSERT_TRUE(store.repository().persistEvents({makeEvent(EventType_MEMBER_ADDED, uuidNumber(1), 3)}));
        EXPECT_EQ(store.repository().countOfEvents(), 2U);
    }
    EXPECT_EQ(store.repository().countOfEvents(), 0U);
}

}  // namespace
}  // namespace zav::test
