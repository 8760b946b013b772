#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/FMResultSet.h>
#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "Support/DatabaseHandles.h"

namespace zav::test {
namespace {

/// Its first row is a number; stepping to its second fails.
constexpr const char* failingQuery =
    "SELECT abs(a) FROM (SELECT 1 AS a UNION ALL SELECT -9223372036854775808)";

/// Cursors on a database in memory with a table `t (a)` of three rows, 1 to 3.
class Cursor : public testing::Test {
protected:
    Cursor() { run(*database_, "CREATE TABLE t (a UNIQUE); INSERT INTO t VALUES (1), (2), (3)"); }

    FMResultSet open(const std::string& sql) {
        auto rows = database_->executeQuery(sql);
        if (!rows) {
            throw std::runtime_error(sql + ": " + database_->lastError().description());
        }
        return std::move(*rows);
    }

    FMResultSet onFirstRow(const std::string& sql) {
        FMResultSet rows = open(sql);
        EXPECT_TRUE(rows.next()) << sql << " yields no row: " << database_->lastError().description();
        return rows;
    }

    /// A cursor whose only row has one column.
    FMResultSet onLiteral(const std::string& literal) { return onFirstRow("SELECT " + literal); }

    /// Nothing answers any more, as for NULL.
    static void expectNoRow(const FMResultSet& rows) {
        EXPECT_TRUE(rows.columnIndexIsNull(0));
        EXPECT_EQ(rows.intForColumnIndex(0), 0);
        EXPECT_EQ(rows.longLongIntForColumnIndex(0), 0);
        EXPECT_EQ(rows.unsignedLongLongIntForColumnIndex(0), 0U);
        EXPECT_EQ(rows.stringForColumnIndex(0), std::nullopt);
        EXPECT_EQ(rows.dataForColumnIndex(0), std::nullopt);
        EXPECT_EQ(rows.dateForColumnIndex(0), std::nullopt);
        EXPECT_FALSE(rows.boolForColumnIndex(0));
    }

    std::shared_ptr<FMDatabase> database_ = openHandle();
};

TEST_F(Cursor, ReadsA32BitNumberByItsLowBits) {
    const std::pair<const char*, std::int32_t> cases[] = {
        {"0", 0},
        {"-1", -1},
        {"2147483647", 2147483647},
        {"-2147483648", -2147483647 - 1},
        {"2147483648", -2147483647 - 1},
        {"4294967295", -1},
        {"4294967296", 0},
        {"4294967297", 1},
        {"9223372036854775807", -1},
        {"-9223372036854775808", 0},
    };
    for (const auto& [literal, number] : cases) {
        EXPECT_EQ(onLiteral(literal).intForColumnIndex(0), number) << literal << " read as 32 bits";
    }
}

TEST_F(Cursor, ReadsA64BitNumberWhole) {
    EXPECT_EQ(onLiteral("9223372036854775807").longLongIntForColumnIndex(0), 9223372036854775807);
    EXPECT_EQ(onLiteral("-9223372036854775808").longLongIntForColumnIndex(0), -9223372036854775807 - 1);
}

TEST_F(Cursor, ReadsAnUnsignedNumberByItsBits) {
    EXPECT_EQ(onLiteral("-1").unsignedLongLongIntForColumnIndex(0), 18446744073709551615U);
    EXPECT_EQ(onLiteral("-9223372036854775808").unsignedLongLongIntForColumnIndex(0), 9223372036854775808U);
    EXPECT_EQ(onLiteral("42").unsignedLongLongIntForColumnIndex(0), 42U);
}

TEST_F(Cursor, ReadsBackTheUnsignedNumberThatWasBound) {
    auto rows = database_->executeQuery("SELECT ?", 18446744073709551614U);
    ASSERT_TRUE(rows && rows->next());
    EXPECT_EQ(rows->unsignedLongLongIntForColumnIndex(0), 18446744073709551614U);
}

TEST_F(Cursor, ReadsText) {
    EXPECT_EQ(onLiteral("'text'").stringForColumnIndex(0), "text");
    EXPECT_EQ(onLiteral("''").stringForColumnIndex(0), "") << "empty text is no NULL";
    EXPECT_EQ(onLiteral("CAST(X'610062' AS TEXT)").stringForColumnIndex(0), std::string("a\0b", 3));
    EXPECT_EQ(onLiteral("'\xC3\xA9'").stringForColumnIndex(0), "\xC3\xA9");
}

TEST_F(Cursor, ReadsBytes) {
    EXPECT_EQ(onLiteral("X'00FF'").dataForColumnIndex(0), ZAVData::fromText(std::string("\0\xFF", 2)));
    EXPECT_EQ(onLiteral("zeroblob(1000)").dataForColumnIndex(0), ZAVData::fromText(std::string(1000, '\0')));
    EXPECT_EQ(onLiteral("'text'").dataForColumnIndex(0), ZAVData::fromText("text"));
}

TEST_F(Cursor, TellsAnEmptyByteStringFromNone) {
    EXPECT_EQ(onLiteral("X''").dataForColumnIndex(0), ZAVData());
    EXPECT_FALSE(onLiteral("X''").columnIndexIsNull(0));
    EXPECT_EQ(onLiteral("NULL").dataForColumnIndex(0), std::nullopt);
}

TEST_F(Cursor, ReadsADateAsSecondsSince1970) {
    EXPECT_EQ(onLiteral("1.5").dateForColumnIndex(0), ZAVDateFromSecondsSince1970(1.5));
    EXPECT_EQ(onLiteral("1700000000").dateForColumnIndex(0), ZAVDateFromSecondsSince1970(1700000000));
    EXPECT_EQ(onLiteral("-0.25").dateForColumnIndex(0), ZAVDateFromSecondsSince1970(-0.25));
    EXPECT_EQ(onLiteral("0").dateForColumnIndex(0), ZAVDate()) << "1 January 1970 is a date";
}

TEST_F(Cursor, ReadsBackTheDateThatWasBound) {
    const ZAVDate now = ZAVNow();
    auto rows = database_->executeQuery("SELECT ?", now);
    ASSERT_TRUE(rows && rows->next());
    EXPECT_EQ(rows->dateForColumnIndex(0), now);
}

TEST_F(Cursor, ReadsEveryNumberButZeroAsTrue) {
    for (const char* literal : {"1", "2", "-1", "4294967296", "-9223372036854775808", "0.5"}) {
        EXPECT_TRUE(onLiteral(literal).boolForColumnIndex(0)) << literal << " is not 0";
    }
    for (const char* literal : {"0", "0.0", "NULL", "'text'"}) {
        EXPECT_FALSE(onLiteral(literal).boolForColumnIndex(0)) << literal << " is no number other than 0";
    }
}

TEST_F(Cursor, ReadsNullAsNothing) {
    expectNoRow(onLiteral("NULL"));
}

TEST_F(Cursor, ConvertsAsTheEngineDoes) {
    EXPECT_EQ(onLiteral("'12abc'").intForColumnIndex(0), 12);
    EXPECT_EQ(onLiteral("7").stringForColumnIndex(0), "7");
    EXPECT_EQ(onLiteral("7.9").longLongIntForColumnIndex(0), 7);
    EXPECT_EQ(onLiteral("'2.5'").dateForColumnIndex(0), ZAVDateFromSecondsSince1970(2.5));
}

TEST_F(Cursor, AddressesColumnsByTheirPosition) {
    const FMResultSet rows = onFirstRow("SELECT 'a', NULL, 3");
    EXPECT_EQ(rows.stringForColumnIndex(0), "a");
    EXPECT_TRUE(rows.columnIndexIsNull(1));
    EXPECT_EQ(rows.intForColumnIndex(2), 3);
    EXPECT_FALSE(rows.columnIndexIsNull(2));
}

TEST_F(Cursor, AnswersAsForNullForAPositionThatDoesNotExist) {
    const FMResultSet rows = onFirstRow("SELECT 'a', 3");
    for (const int index : {-1, 2, 1000}) {
        EXPECT_TRUE(rows.columnIndexIsNull(index)) << "column " << index;
        EXPECT_EQ(rows.intForColumnIndex(index), 0);
        EXPECT_EQ(rows.stringForColumnIndex(index), std::nullopt);
        EXPECT_EQ(rows.dataForColumnIndex(index), std::nullopt);
        EXPECT_EQ(rows.dateForColumnIndex(index), std::nullopt);
    }
}

TEST_F(Cursor, AddressesColumnsByNameAndByAlias) {
    const FMResultSet rows = onFirstRow("SELECT t.a, 5 AS five, X'61' AS bytes FROM t ORDER BY t.a");
    EXPECT_EQ(rows.longLongIntForColumn("a"), 1);
    EXPECT_EQ(rows.longLongIntForColumn("five"), 5);
    EXPECT_EQ(rows.longLongIntForColumn("FIVE"), 5) << "column names know no case";
    EXPECT_EQ(rows.dataForColumn("bytes"), ZAVData::fromText("a"));
}

TEST_F(Cursor, AddressesTheFirstOfTwoColumnsOfTheSameName) {
    EXPECT_EQ(onFirstRow("SELECT 1 AS x, 2 AS x").longLongIntForColumn("x"), 1);
}

TEST_F(Cursor, ReadsNullByNameAsNothing) {
    const FMResultSet rows = onFirstRow("SELECT NULL AS absent");
    EXPECT_EQ(rows.longLongIntForColumn("absent"), 0);
    EXPECT_EQ(rows.dataForColumn("absent"), std::nullopt);
}

TEST_F(Cursor, ThrowsForANameThatTheQueryDoesNotSelect) {
    const FMResultSet rows = onFirstRow("SELECT 1 AS present");
    try {
        static_cast<void>(rows.longLongIntForColumn("absent"));
        FAIL() << "a column that was not selected could be read";
    } catch (const NSInternalInconsistencyException& exception) {
        EXPECT_EQ(exception.reason(), "The query selects no column named 'absent'.");
    }
    EXPECT_THROW(static_cast<void>(rows.dataForColumn("presen")), NSInternalInconsistencyException);
    EXPECT_THROW(static_cast<void>(rows.dataForColumn("presents")), NSInternalInconsistencyException);
}

TEST_F(Cursor, AnswersAsForNullBeforeTheFirstRow) {
    const FMResultSet rows = open("SELECT 1 AS one");
    expectNoRow(rows);
    EXPECT_EQ(rows.longLongIntForColumn("one"), 0);
    EXPECT_EQ(rows.dataForColumn("one"), std::nullopt);
}

TEST_F(Cursor, AnswersAsForNullAfterTheLastRowAndOnceClosed) {
    FMResultSet finished = onFirstRow("SELECT 1 AS one");
    EXPECT_FALSE(finished.next());
    FMResultSet closed = onFirstRow("SELECT 1 AS one");
    closed.close();
    for (const FMResultSet* const rows : {&finished, &closed}) {
        expectNoRow(*rows);
        EXPECT_EQ(rows->longLongIntForColumn("one"), 0);
        EXPECT_EQ(rows->dataForColumn("one"), std::nullopt);
    }
}

TEST_F(Cursor, StandsBeforeTheFirstRowAtFirst) {
    FMResultSet rows = open("SELECT a FROM t ORDER BY a");
    std::vector<int> numbers;
    while (rows.next()) {
        numbers.push_back(rows.intForColumnIndex(0));
    }
    EXPECT_EQ(numbers, (std::vector<int>{1, 2, 3}));
}

TEST_F(Cursor, StaysAtItsEnd) {
    FMResultSet rows = open("SELECT a FROM t WHERE a > 99");
    EXPECT_FALSE(rows.next());
    EXPECT_FALSE(rows.next()) << "a cursor at its end began anew";
}

TEST_F(Cursor, LeavesTheErrorCellAsItWasAtACleanEnd) {
    const ZAVError before("before", 1, "before");
    ZAVError error = before;
    FMResultSet rows = open("SELECT 1");
    EXPECT_TRUE(rows.nextWithError(&error));
    EXPECT_FALSE(rows.nextWithError(&error));
    EXPECT_FALSE(rows.nextWithError(&error));
    EXPECT_EQ(error, before);
    EXPECT_FALSE(database_->lastError());
}

TEST_F(Cursor, StoresTheErrorOfAStepAndEnds) {
    FMResultSet rows = onFirstRow(failingQuery);
    EXPECT_EQ(rows.intForColumnIndex(0), 1);
    ZAVError error;
    EXPECT_FALSE(rows.nextWithError(&error));
    EXPECT_EQ(error, ZAVError("SQLite", 1, "integer overflow"));
    EXPECT_EQ(database_->lastError(), error);
    expectNoRow(rows);
    ZAVError later;
    EXPECT_FALSE(rows.nextWithError(&later)) << "a cursor that failed went on";
    EXPECT_FALSE(later);
}

TEST_F(Cursor, KeepsTheErrorOfAStepForTheHandleWhenNobodyAsks) {
    FMResultSet rows = onFirstRow(failingQuery);
    EXPECT_FALSE(rows.next());
    EXPECT_EQ(database_->lastError().message(), "integer overflow");
}

TEST_F(Cursor, CanBeClosedTwice) {
    FMResultSet rows = onFirstRow("SELECT 1");
    rows.close();
    rows.close();
    EXPECT_FALSE(rows.next());
    EXPECT_EQ(database_->openResultSets(), 0U);
}

TEST_F(Cursor, IsIndependentOfAnotherWithTheSameText) {
    FMResultSet first = onFirstRow("SELECT a FROM t ORDER BY a");
    FMResultSet second = onFirstRow("SELECT a FROM t ORDER BY a");
    EXPECT_TRUE(first.next());
    EXPECT_EQ(first.intForColumnIndex(0), 2);
    EXPECT_EQ(second.intForColumnIndex(0), 1) << "one cursor moved the other";
    first.close();
    EXPECT_TRUE(second.next());
    EXPECT_EQ(second.intForColumnIndex(0), 2) << "closing one cursor closed the other";
}

TEST_F(Cursor, KeepsItsValuesApartFromThoseOfAnotherWithTheSameText) {
    auto first = database_->executeQuery("SELECT ?", "first");
    auto second = database_->executeQuery("SELECT ?", "second");
    ASSERT_TRUE(first->next() && second->next());
    EXPECT_EQ(first->stringForColumnIndex(0), "first");
    EXPECT_EQ(second->stringForColumnIndex(0), "second");
}

TEST_F(Cursor, TakesItsPlaceAlongWhenItIsMoved) {
    FMResultSet original = onFirstRow("SELECT a FROM t ORDER BY a");
    FMResultSet moved = std::move(original);
    EXPECT_EQ(moved.intForColumnIndex(0), 1);
    EXPECT_FALSE(original.next()) << "a cursor that was moved away still moves";
    expectNoRow(original);
    original.close();
    EXPECT_TRUE(moved.next());
    EXPECT_EQ(moved.intForColumnIndex(0), 2);
    EXPECT_EQ(database_->openResultSets(), 1U);
}

TEST_F(Cursor, StaysClosedWhenItIsMoved) {
    FMResultSet closed = onFirstRow("SELECT a FROM t ORDER BY a");
    closed.close();
    FMResultSet moved = std::move(closed);
    EXPECT_FALSE(moved.next()) << "a closed cursor was opened by moving it";
    expectNoRow(moved);
    EXPECT_EQ(database_->openResultSets(), 0U);
}

TEST_F(Cursor, ClosesWhatItIsMovedOver) {
    FMResultSet target = onFirstRow("SELECT a FROM t ORDER BY a");
    FMResultSet source = onFirstRow("SELECT a + 10 FROM t ORDER BY a");
    EXPECT_EQ(busyStatements(*database_), 2);
    target = std::move(source);
    EXPECT_EQ(busyStatements(*database_), 1) << "the statement of the cursor moved over is still under way";
    EXPECT_EQ(target.intForColumnIndex(0), 11);
    EXPECT_EQ(database_->openResultSets(), 1U);
}

TEST_F(Cursor, SurvivesBeingMovedOverItself) {
    FMResultSet rows = onFirstRow("SELECT a FROM t ORDER BY a");
    FMResultSet& same = rows;
    rows = std::move(same);
    EXPECT_EQ(rows.intForColumnIndex(0), 1);
    EXPECT_TRUE(rows.next());
}

TEST_F(Cursor, IsClosedWhenItsHandleGoes) {
    FMResultSet begun = onFirstRow("SELECT a FROM t ORDER BY a");
    FMResultSet waiting = open("SELECT a FROM t ORDER BY a");
    FMResultSet moved = std::move(waiting);
    database_.reset();
    for (FMResultSet* const rows : {&begun, &moved, &waiting}) {
        ZAVError error;
        EXPECT_FALSE(rows->nextWithError(&error)) << "a cursor moves without its handle";
        EXPECT_FALSE(error);
        expectNoRow(*rows);
        rows->close();
    }
}

TEST_F(Cursor, IsClosedWhenItsHandleGoesAlsoWhenItsStatementIsNotKept) {
    // Closing the cursor makes one statement too many idle, and one of the same text has to go.
    FMDatabaseOptions options;
    options.statementCacheCapacity = 1;
    auto database = openHandle(":memory:", options);
    auto idle = database->executeQuery("SELECT 1");
    auto open = database->executeQuery("SELECT 1");
    ASSERT_TRUE(open->next());
    idle->close();
    database.reset();
    EXPECT_FALSE(open->next());
    expectNoRow(*open);
}

/// The ways in which a cursor can end.
struct Ending {
    const char* name;
    const char* query;
    std::function<void(std::optional<FMResultSet>&)> end;
};

const Ending endings[] = {
    {"Closed", "SELECT a FROM t", [](auto& rows) { rows->close(); }},
    {"Destroyed", "SELECT a FROM t", [](auto& rows) { rows.reset(); }},
    {"ReadToItsEnd", "SELECT a FROM t",
     [](auto& rows) {
         while (rows->next()) {
         }
     }},
    {"Failed", "SELECT abs(a - 9223372036854775807) FROM t NOT INDEXED",
     [](auto& rows) {
         while (rows->next()) {
         }
     }},
    {"MovedAwayAndDestroyed", "SELECT a FROM t",
     [](auto& rows) { const FMResultSet taker = std::move(*rows); }},
};

class EndOfACursor : public testing::TestWithParam<Ending> {
protected:
    /// A cursor of the first connection on its first row.
    std::optional<FMResultSet> openCursor(SharedFile& file) {
        if (std::string(GetParam().name) == "Failed") {
            run(*file.first, "UPDATE t SET a = -1 WHERE a = 2");
        }
        auto rows = file.first->executeQuery(GetParam().query);
        EXPECT_TRUE(rows && rows->next()) << file.first->lastError().description();
        return rows;
    }
};

INSTANTIATE_TEST_SUITE_P(When, EndOfACursor, testing::ValuesIn(endings),
                         [](const auto& ending) { return std::string(ending.param.name); });

TEST_P(EndOfACursor, ResetsTheStatementAtOnce) {
    SharedFile file;
    auto rows = openCursor(file);
    ASSERT_EQ(busyStatements(*file.first), 1);
    GetParam().end(rows);
    EXPECT_EQ(busyStatements(*file.first), 0);
    EXPECT_EQ(file.first->openResultSets(), 0U);
}

TEST_P(EndOfACursor, EndsItsReadTransactionSoThatAnotherConnectionCanFoldTheLog) {
    SharedFile file;
    auto rows = openCursor(file);
    run(*file.second, "INSERT INTO t VALUES (4)");
    ASSERT_TRUE(isHeldUpInTruncating(file.second)) << "an open cursor does not hold the log";
    GetParam().end(rows);
    EXPECT_FALSE(isHeldUpInTruncating(file.second)) << "a cursor that has ended still holds the log";
}

TEST_P(EndOfACursor, EndsItsReadLockSoThatAnotherConnectionCanWrite) {
    SharedFile file(false);
    auto rows = openCursor(file);
    ASSERT_FALSE(file.second->executeUpdate("INSERT INTO t VALUES (4)"))
        << "an open cursor does not lock the file";
    GetParam().end(rows);
    EXPECT_TRUE(file.second->executeUpdate("INSERT INTO t VALUES (4)"))
        << "a cursor that has ended still locks the file: " << file.second->lastError().description();
}

}  // namespace
}  // namespace zav::test
