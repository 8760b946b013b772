#include <ZAVEventRepository/FMDatabase.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Support/DatabaseHandles.h"

namespace zav::test {
namespace {

std::shared_ptr<FMDatabase> handleKeeping(std::size_t capacity) {
    FMDatabaseOptions options;
    options.statementCacheCapacity = capacity;
    return openHandle(":memory:", options);
}

void use(FMDatabase& database, const std::string& sql) {
    auto rows = database.executeQuery(sql);
    ASSERT_TRUE(rows && rows->next()) << sql << ": " << database.lastError().description();
}

std::vector<std::string> sortedKept(FMDatabase& database) {
    auto texts = keptStatements(database);
    std::sort(texts.begin(), texts.end());
    return texts;
}

/// No statement that the handle keeps has a value bound that holds the word "secret".
void expectNoSecretIn(FMDatabase& database) {
    for (sqlite3_stmt* const statement : preparedStatements(database)) {
        char* const expanded = sqlite3_expanded_sql(statement);
        EXPECT_EQ(std::string(expanded).find("secret"), std::string::npos)
            << "a value outlived its call: " << expanded;
        sqlite3_free(expanded);
    }
}

using Texts = std::vector<std::string>;

TEST(StatementCache, PreparesAStatementOnce) {
    const auto database = openHandle();
    run(*database, "CREATE TABLE t (a)");
    ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?)", 0));
    const auto prepared = preparedStatements(*database);
    for (int number = 1; number < 100; ++number) {
        ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?)", number));
    }
    EXPECT_EQ(preparedStatements(*database), prepared);
    EXPECT_EQ(scalar(*database, "SELECT COUNT(DISTINCT a) FROM t"), "100");
}

TEST(StatementCache, SharesAStatementBetweenQueriesAndArrays) {
    const auto database = openHandle();
    const std::vector<ZAVValue> arguments{1};
    EXPECT_TRUE(database->executeQuery("SELECT ?", 1));
    EXPECT_TRUE(database->executeQueryWithArgumentsInArray("SELECT ?", arguments));
    EXPECT_TRUE(database->executeUpdate("SELECT ?", 1));
    EXPECT_TRUE(database->executeUpdateWithArgumentsInArray("SELECT ?", arguments));
    EXPECT_EQ(keptStatements(*database), Texts{"SELECT ?"});
}

TEST(StatementCache, KeepsNoValueOfAnIdleStatement) {
    const auto database = openHandle();
    run(*database, "CREATE TABLE t (a)");
    ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?)", "a secret"));
    auto rows = database->executeQuery("SELECT ? FROM t", "another secret");
    ASSERT_TRUE(rows->next());
    rows->close();
    ASSERT_EQ(keptStatements(*database).size(), 2U);
    expectNoSecretIn(*database);
}

TEST(StatementCache, KeepsNoValueOfAnIdleStatementHoweverManyThereWere) {
    for (const std::size_t count : {62U, 63U, 64U, 65U, 130U}) {
        const auto database = openHandle();
        std::string sql = "SELECT ?";
        for (std::size_t position = 1; position < count; ++position) {
            sql += ", ?";
        }
        const std::vector<ZAVValue> arguments(count, ZAVValue(std::string("secret")));
        ASSERT_TRUE(database->executeUpdateWithArgumentsInArray(sql, arguments)) << count;
        ASSERT_EQ(keptStatements(*database).size(), 1U);
        expectNoSecretIn(*database);
    }
}

TEST(StatementCache, BindsNullWhereAnEarlierUseBoundSomethingElse) {
    const auto database = openHandle();
    for (const std::size_t count : {1U, 2U, 3U, 63U, 64U, 70U}) {
        std::string query = "SELECT quote(?)";
        for (std::size_t place = 1; place < count; ++place) {
            query += " || quote(?)";
        }
        const auto answerTo = [&](const std::vector<ZAVValue>& values) {
            auto rows = database->executeQueryWithArgumentsInArray(query, values);
            return rows && rows->next() ? rows->stringForColumnIndex(0).value_or("NULL")
                                        : database->lastError().description();
        };
        const std::vector<ZAVValue> kinds{ZAVValue(7), ZAVValue(ZAVDateFromSecondsSince1970(0.5)),
                                          ZAVValue("t"), ZAVValue(ZAVData("b", 1)), ZAVValue()};
        const std::vector<std::string> literals{"7", "0.5", "'t'", "X'62'", "NULL"};
        for (std::size_t turn = 0; turn < kinds.size() * kinds.size(); ++turn) {
            std::vector<ZAVValue> values;
            std::string expected;
            for (std::size_t place = 0; place < count; ++place) {
                const std::size_t kind = (turn + place * (turn / kinds.size() + 1)) % kinds.size();
                values.push_back(kinds[kind]);
                expected += literals[kind];
            }
            ASSERT_EQ(answerTo(values), expected) << "of " << count << " placeholders in turn " << turn;
        }
    }
}

TEST(StatementCache, KeepsNoValueWhenTheirNumberWasWrong) {
    const auto database = openHandle();
    run(*database, "CREATE TABLE t (a, b)");
    ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?, ?)", 1, 2));
    ASSERT_FALSE(database->executeUpdate("INSERT INTO t VALUES (?, ?)", 3));
    ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?, ?)", 4, nullptr));
    EXPECT_EQ(scalar(*database, "SELECT group_concat(a || coalesce(b, '-')) FROM t"), "12,4-");
}

TEST(StatementCache, TakesASecondStatementWhileTheFirstIsInUseAndKeepsBoth) {
    const auto database = openHandle();
    {
        auto first = database->executeQuery("SELECT 1");
        auto second = database->executeQuery("SELECT 1");
        EXPECT_EQ(keptStatements(*database), (Texts{"SELECT 1", "SELECT 1"}));
        auto afterwards = database->executeQuery("SELECT 1");
        EXPECT_EQ(keptStatements(*database).size(), 3U);
    }
    auto first = database->executeQuery("SELECT 1");
    auto second = database->executeQuery("SELECT 1");
    EXPECT_EQ(keptStatements(*database).size(), 3U)
        << "an idle statement was there, and one more was prepared";
}

TEST(StatementCache, KeepsNoMoreIdleStatementsThanItMay) {
    const auto database = handleKeeping(3);
    for (int number = 0; number < 10; ++number) {
        use(*database, "SELECT " + std::to_string(number));
        EXPECT_LE(preparedStatements(*database).size(), 3U);
    }
    EXPECT_EQ(sortedKept(*database), (Texts{"SELECT 7", "SELECT 8", "SELECT 9"}));
}

TEST(StatementCache, KeepsSixtyFourIdleStatementsUnlessToldOtherwise) {
    const auto database = openHandle();
    for (int number = 0; number < 200; ++number) {
        use(*database, "SELECT " + std::to_string(number));
    }
    EXPECT_EQ(keptStatements(*database).size(), 64U);
}

TEST(StatementCache, LetsTheLeastRecentlyUsedGoFirst) {
    const auto database = handleKeeping(3);
    for (const char* sql : {"SELECT 'a'", "SELECT 'b'", "SELECT 'c'", "SELECT 'a'", "SELECT 'd'"}) {
        use(*database, sql);
    }
    EXPECT_EQ(sortedKept(*database), (Texts{"SELECT 'a'", "SELECT 'c'", "SELECT 'd'"}));
    use(*database, "SELECT 'e'");
    EXPECT_EQ(sortedKept(*database), (Texts{"SELECT 'a'", "SELECT 'd'", "SELECT 'e'"}));
}

TEST(StatementCache, CountsTheEndOfAUseAndNotItsBeginning) {
    const auto database = handleKeeping(2);
    auto longUse = database->executeQuery("SELECT 'long'");
    use(*database, "SELECT 'a'");
    use(*database, "SELECT 'b'");
    longUse->close();
    EXPECT_EQ(sortedKept(*database), (Texts{"SELECT 'b'", "SELECT 'long'"}));
}

TEST(StatementCache, NeverTakesAStatementFromAnOpenCursor) {
    const auto database = handleKeeping(1);
    auto open = database->executeQuery("SELECT 'open' UNION ALL SELECT 'still open'");
    ASSERT_TRUE(open->next());
    for (int number = 0; number < 10; ++number) {
        use(*database, "SELECT " + std::to_string(number));
    }
    ASSERT_TRUE(open->next());
    EXPECT_EQ(open->stringForColumnIndex(0), "still open");
    EXPECT_EQ(keptStatements(*database).size(), 2U);
}

TEST(StatementCache, ShrinksBackWhenManyCursorsClose) {
    const auto database = handleKeeping(2);
    {
        std::vector<FMResultSet> cursors;
        for (int number = 0; number < 10; ++number) {
            auto rows = database->executeQuery("SELECT 1");
            ASSERT_TRUE(rows && rows->next());
            cursors.push_back(std::move(*rows));
        }
        EXPECT_EQ(keptStatements(*database).size(), 10U);
        EXPECT_EQ(database->openResultSets(), 10U);
    }
    EXPECT_EQ(keptStatements(*database).size(), 2U);
    EXPECT_EQ(database->openResultSets(), 0U);
}

TEST(StatementCache, ServesManyCursorsOfOneTextAtOnce) {
    constexpr int count = 20'000;
    const auto database = handleKeeping(1'000);
    std::vector<FMResultSet> cursors;
    cursors.reserve(count);
    for (int number = 0; number < count; ++number) {
        auto rows = database->executeQuery("SELECT ?", number);
        ASSERT_TRUE(rows && rows->next());
        cursors.push_back(std::move(*rows));
    }
    EXPECT_EQ(database->openResultSets(), 20'000U);
    for (int number = 0; number < count; ++number) {
        ASSERT_EQ(cursors[static_cast<std::size_t>(number)].intForColumnIndex(0), number);
    }
    cursors.clear();
    EXPECT_EQ(database->openResultSets(), 0U);
    EXPECT_EQ(keptStatements(*database).size(), 1'000U);
}

TEST(StatementCache, LetsTheLeastRecentlyUsedGoAlsoBesideOpenCursors) {
    const auto database = handleKeeping(2);
    auto open = database->executeQuery("SELECT 'open'");
    auto openToo = database->executeQuery("SELECT 'a'");
    ASSERT_TRUE(open->next() && openToo->next());
    for (const char* sql : {"SELECT 'a'", "SELECT 'b'", "SELECT 'a'", "SELECT 'c'"}) {
        use(*database, sql);
    }
    EXPECT_EQ(sortedKept(*database), (Texts{"SELECT 'a'", "SELECT 'a'", "SELECT 'c'", "SELECT 'open'"}));
    openToo->close();
    EXPECT_EQ(sortedKept(*database), (Texts{"SELECT 'a'", "SELECT 'c'", "SELECT 'open'"}))
        << "of the two that are idle with one text, the one that was used last stays";
}

TEST(StatementCache, ClosesManyCursorsWithTheHandle) {
    auto database = handleKeeping(3);
    std::vector<FMResultSet> cursors;
    for (int number = 0; number < 1'000; ++number) {
        auto rows = database->executeQuery("SELECT " + std::to_string(number % 10) + " UNION ALL SELECT 1");
        ASSERT_TRUE(rows && rows->next());
        cursors.push_back(std::move(*rows));
    }
    database.reset();
    for (FMResultSet& rows : cursors) {
        ASSERT_FALSE(rows.next()) << "a cursor outlived its handle";
    }
}

TEST(StatementCache, KeepsNothingWhenItMayKeepNothing) {
    const auto database = handleKeeping(0);
    use(*database, "SELECT 1");
    use(*database, "SELECT 1");
    EXPECT_TRUE(preparedStatements(*database).empty());
    auto first = database->executeQuery("SELECT 1 UNION ALL SELECT 2");
    auto second = database->executeQuery("SELECT 1 UNION ALL SELECT 2");
    ASSERT_TRUE(first->next() && second->next());
    second->close();
    ASSERT_TRUE(first->next());
    EXPECT_EQ(first->intForColumnIndex(0), 2);
}

TEST(StatementCache, TellsTextsApartThatDifferInOnePlaceOnly) {
    const auto database = handleKeeping(500);
    const std::string sameMiddle(40, 'x');
    const std::string sameEnd(40, 'y');
    for (int round = 0; round < 2; ++round) {
        for (int number = 100; number < 400; ++number) {
            const std::string digits = std::to_string(number);
            for (const std::string& sql :
                 {"SELECT " + digits + ", '" + sameMiddle + "' AS " + sameEnd,
                  "SELECT /*" + sameMiddle + "*/ " + digits + " /*" + sameMiddle + sameEnd + "*/"}) {
                auto rows = database->executeQuery(sql);
                ASSERT_TRUE(rows && rows->next());
                ASSERT_EQ(rows->intForColumnIndex(0), number) << "another statement was taken for " << sql;
            }
        }
    }
}

TEST(StatementCache, TakesTextsOfAnyLength) {
    const auto database = openHandle();
    const std::string longText = "SELECT 7 /*" + std::string(100'000, 'x') + "*/";
    for (int round = 0; round < 2; ++round) {
        use(*database, longText);
        EXPECT_FALSE(database->executeQuery("S"));
    }
    EXPECT_EQ(keptStatements(*database), Texts{longText});
}

TEST(StatementCache, OwnsTheTextsOfItsStatements) {
    const auto database = openHandle();
    std::string sql = "SELECT 1";
    use(*database, sql);
    sql.back() = '2';
    auto rows = database->executeQuery(sql);
    ASSERT_TRUE(rows && rows->next());
    EXPECT_EQ(rows->intForColumnIndex(0), 2);
}

TEST(StatementThatFailed, WhenBindingServesItsNextUser) {
    const auto database = openHandle();
    run(*database, "CREATE TABLE t (a, b)");
    sqlite3_limit(database->sqliteHandle(), SQLITE_LIMIT_LENGTH, 1000);
    const std::string tooLong(2000, 'x');
    for (int round = 0; round < 2; ++round) {
        EXPECT_FALSE(database->executeUpdate("INSERT INTO t VALUES (?, ?)", "first", tooLong));
        EXPECT_EQ(database->lastError().code(), SQLITE_TOOBIG) << database->lastError().description();
        EXPECT_FALSE(database->executeQuery("SELECT ?", tooLong));
        EXPECT_EQ(database->lastError().code(), SQLITE_TOOBIG) << database->lastError().description();
    }
    EXPECT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?, ?)", "second", nullptr));
    EXPECT_EQ(scalar(*database, "SELECT group_concat(a || coalesce(b, '-')) FROM t"), "second-");
}

TEST(StatementThatFailed, WhenUpdatingServesItsNextUser) {
    const auto database = openHandle();
    run(*database, "CREATE TABLE t (a UNIQUE)");
    ASSERT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?)", 1));
    for (int round = 0; round < 5; ++round) {
        ASSERT_FALSE(database->executeUpdate("INSERT INTO t VALUES (?)", 1));
        EXPECT_EQ(busyStatements(*database), 0);
    }
    EXPECT_TRUE(database->executeUpdate("INSERT INTO t VALUES (?)", 2))
        << database->lastError().description();
    EXPECT_EQ(keptStatements(*database), Texts{"INSERT INTO t VALUES (?)"});
}

TEST(StatementThatFailed, WhenSteppingServesItsNextUser) {
    const auto database = openHandle();
    for (int round = 0; round < 3; ++round) {
        auto failing = database->executeQuery("SELECT abs(?)", std::int64_t{-9223372036854775807 - 1});
        ASSERT_TRUE(failing);
        ZAVError error;
        EXPECT_FALSE(failing->nextWithError(&error));
        EXPECT_EQ(error.message(), "integer overflow");
        auto good = database->executeQuery("SELECT abs(?)", -3);
        ASSERT_TRUE(good && good->next()) << database->lastError().description();
        EXPECT_EQ(good->intForColumnIndex(0), 3);
    }
    EXPECT_LE(keptStatements(*database).size(), 1U);
}

TEST(StatementThatFailed, WhenTheDatabaseWasLockedServesItsNextUser) {
    SharedFile file(false);
    auto before = file.second->executeQuery("SELECT a FROM t");
    before.reset();
    run(*file.first, "BEGIN EXCLUSIVE");
    auto rows = file.second->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(rows) << file.second->lastError().description();
    ZAVError error;
    EXPECT_FALSE(rows->nextWithError(&error));
    EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
    run(*file.first, "COMMIT");
    auto again = file.second->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(again);
    EXPECT_TRUE(again->next()) << file.second->lastError().description();
}

TEST(KeptStatement, SeesASchemaThatChangedMeanwhile) {
    SharedFile file;
    {
        auto rows = file.first->executeQuery("SELECT * FROM t ORDER BY a");
        ASSERT_TRUE(rows->next());
    }
    run(*file.second, "ALTER TABLE t ADD COLUMN b DEFAULT 'new'");
    auto rows = file.first->executeQuery("SELECT * FROM t ORDER BY a");
    ASSERT_TRUE(rows && rows->next()) << file.first->lastError().description();
    EXPECT_EQ(rows->stringForColumnIndex(1), "new");
    rows->close();
    run(*file.second, "DROP TABLE t");
    auto none = file.first->executeQuery("SELECT * FROM t ORDER BY a");
    EXPECT_FALSE(none && none->next());
    EXPECT_EQ(file.first->lastError().message(), "no such table: t");
}

TEST(KeptStatement, DoesNotHoldTheDatabaseWhileItIsIdle) {
    SharedFile file;
    ASSERT_TRUE(file.first->executeUpdate("UPDATE t SET a = a + 10"));
    use(*file.first, "SELECT a FROM t");
    EXPECT_TRUE(file.second->executeUpdate("INSERT INTO t VALUES (4)"));
    EXPECT_FALSE(isHeldUpInTruncating(file.second));
    EXPECT_TRUE(file.first->executeStatements("DROP TABLE t")) << file.first->lastError().description();
}

}  // namespace
}  // namespace zav::test
