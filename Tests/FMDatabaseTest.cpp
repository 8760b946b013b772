#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVUUID.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/mman.h>
#include <sys/stat.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "Support/DatabaseHandles.h"

namespace zav::test {
namespace {

/// A handle on a table that takes any value as it is.
class DatabaseHandle : public testing::Test {
protected:
    DatabaseHandle() { run(*database_, "CREATE TABLE t (a UNIQUE)"); }

    /// Storage class and literal of a value after it was bound and stored.
    template <class Value>
    std::string stored(const Value& value) {
        run(*database_, "DELETE FROM t");
        EXPECT_TRUE(database_->executeUpdate("INSERT INTO t VALUES (?)", value))
            << database_->lastError().description();
        return storedLiteral();
    }

    std::string storedInArray(const ZAVValue& value) {
        run(*database_, "DELETE FROM t");
        const std::vector<ZAVValue> arguments{value};
        EXPECT_TRUE(database_->executeUpdateWithArgumentsInArray("INSERT INTO t VALUES (?)", arguments))
            << database_->lastError().description();
        return storedLiteral();
    }

    std::string storedLiteral() { return scalar(*database_, "SELECT typeof(a) || ' ' || quote(a) FROM t"); }

    void expectError(std::string_view domain, int code) const {
        EXPECT_EQ(database_->lastError().domain(), domain) << database_->lastError().description();
        EXPECT_EQ(database_->lastError().code(), code) << database_->lastError().description();
    }

    std::shared_ptr<FMDatabase> database_ = openHandle();
};

TEST_F(DatabaseHandle, StoresNumbersAsIntegers) {
    EXPECT_EQ(stored(0), "integer 0");
    EXPECT_EQ(stored(std::numeric_limits<std::int32_t>::min()), "integer -2147483648");
    EXPECT_EQ(stored(std::numeric_limits<std::uint32_t>::max()), "integer 4294967295");
    EXPECT_EQ(stored(std::numeric_limits<std::int64_t>::min()), "integer -9223372036854775808");
    EXPECT_EQ(stored(std::numeric_limits<std::int64_t>::max()), "integer 9223372036854775807");
    EXPECT_EQ(stored(std::uint8_t{255}), "integer 255");
    EXPECT_EQ(stored(EventType_TOMBSTONE), "integer 10");
    EXPECT_EQ(stored(ZAVContentTransferComplete), "integer 4");
}

TEST_F(DatabaseHandle, StoresLargeUnsignedNumbersByTheirBits) {
    EXPECT_EQ(stored(std::numeric_limits<std::uint64_t>::max()), "integer -1");
    EXPECT_EQ(stored(std::uint64_t{1} << 63), "integer -9223372036854775808");
}

TEST_F(DatabaseHandle, StoresBooleansAsZeroAndOne) {
    EXPECT_EQ(stored(true), "integer 1");
    EXPECT_EQ(stored(false), "integer 0");
}

TEST_F(DatabaseHandle, StoresStringsAsText) {
    EXPECT_EQ(stored("literal"), "text 'literal'");
    EXPECT_EQ(stored(std::string("it's 12")), "text 'it''s 12'");
    EXPECT_EQ(stored(std::string_view("a view of more").substr(0, 6)), "text 'a view'");
    EXPECT_EQ(stored("12"), "text '12'") << "text that looks like a number stays text";
    EXPECT_EQ(stored("\xC3\xA9"), "text '\xC3\xA9'");
}

TEST_F(DatabaseHandle, StoresAnEmptyStringAsTextAndNotAsNull) {
    EXPECT_EQ(stored(""), "text ''");
    EXPECT_EQ(stored(std::string()), "text ''");
    EXPECT_EQ(stored(std::string_view()), "text ''");
}

TEST_F(DatabaseHandle, StoresAStringWithAZeroByteWhole) {
    ASSERT_EQ(stored(std::string("a\0b", 3)), "text 'a'");
    EXPECT_EQ(scalar(*database_, "SELECT quote(CAST(a AS BLOB)) FROM t"), "X'610062'");
}

TEST_F(DatabaseHandle, StoresByteStringsAsBlobs) {
    EXPECT_EQ(stored(ZAVData::fromText("ab")), "blob X'6162'");
    EXPECT_EQ(stored(ZAVData::fromText(std::string("\0\xFF", 2))), "blob X'00FF'");
    EXPECT_EQ(stored(ZAVData::fromText("longer than sixteen")),
              "blob X'6C6F6E676572207468616E207369787465656E'");
    EXPECT_EQ(stored(ZAVData()), "blob X''") << "an empty byte string is no NULL";
}

TEST_F(DatabaseHandle, StoresAUUIDAsItsSixteenBytes) {
    const auto uuid = ZAVUUID::fromString("00112233-4455-6677-8899-aabbccddeeff");
    EXPECT_EQ(stored(*uuid), "blob X'00112233445566778899AABBCCDDEEFF'");
    EXPECT_EQ(stored(ZAVDataFromUUID(uuid)), "blob X'00112233445566778899AABBCCDDEEFF'");
}

TEST_F(DatabaseHandle, StoresADateAsRealSecondsSince1970) {
    EXPECT_EQ(stored(ZAVDateFromSecondsSince1970(1.5)), "real 1.5");
    EXPECT_EQ(stored(ZAVDateFromSecondsSince1970(2)), "real 2.0") << "a whole second is no integer";
    EXPECT_EQ(stored(ZAVDateFromSecondsSince1970(-0.25)), "real -0.25") << "a date before 1970";
    EXPECT_EQ(stored(ZAVDateFromSecondsSince1970(0)), "real 0.0");
}

TEST_F(DatabaseHandle, StoresWhatIsAbsentAsNull) {
    EXPECT_EQ(stored(nullptr), "null NULL");
    EXPECT_EQ(stored(std::nullopt), "null NULL");
    EXPECT_EQ(stored(std::optional<std::string>()), "null NULL");
    EXPECT_EQ(stored(std::optional<ZAVData>()), "null NULL");
    EXPECT_EQ(stored(std::optional<ZAVDate>()), "null NULL");
    EXPECT_EQ(stored(std::optional<std::int64_t>()), "null NULL");
    EXPECT_EQ(stored(std::optional<ZAVUUID>()), "null NULL");
}

TEST_F(DatabaseHandle, StoresWhatIsPresentByItsKind) {
    EXPECT_EQ(stored(std::optional<std::string>("")), "text ''");
    EXPECT_EQ(stored(std::optional<ZAVData>(ZAVData())), "blob X''");
    EXPECT_EQ(stored(std::optional<std::int64_t>(0)), "integer 0");
    EXPECT_EQ(stored(std::optional<ZAVDate>(ZAVDate())), "real 0.0");
}

TEST_F(DatabaseHandle, StoresTheValuesOfAnArrayInTheSameForms) {
    EXPECT_EQ(storedInArray(-7), "integer -7");
    EXPECT_EQ(storedInArray(std::numeric_limits<std::int64_t>::min()), "integer -9223372036854775808");
    EXPECT_EQ(storedInArray(std::numeric_limits<std::uint64_t>::max()), "integer -1");
    EXPECT_EQ(storedInArray(true), "integer 1");
    EXPECT_EQ(storedInArray(EventType_TOMBSTONE), "integer 10");
    EXPECT_EQ(storedInArray("text"), "text 'text'");
    EXPECT_EQ(storedInArray(std::string()), "text ''");
    EXPECT_EQ(storedInArray(ZAVData::fromText("ab")), "blob X'6162'");
    EXPECT_EQ(storedInArray(ZAVData()), "blob X''");
    EXPECT_EQ(storedInArray(ZAVDateFromSecondsSince1970(2)), "real 2.0");
    EXPECT_EQ(storedInArray(nullptr), "null NULL");
    EXPECT_EQ(storedInArray(ZAVValue()), "null NULL");
}

TEST_F(DatabaseHandle, BindsEachValueToThePlaceholderAtItsPosition) {
    auto rows = database_->executeQuery("SELECT ? || ',' || ? || ',' || ?", "a", 2, "c");
    ASSERT_TRUE(rows && rows->next()) << database_->lastError().description();
    EXPECT_EQ(rows->stringForColumnIndex(0), "a,2,c");
    const std::vector<ZAVValue> arguments{"x", 5, "z"};
    auto rowsOfArray =
        database_->executeQueryWithArgumentsInArray("SELECT ? || ',' || ? || ',' || ?", arguments);
    ASSERT_TRUE(rowsOfArray && rowsOfArray->next()) << database_->lastError().description();
    EXPECT_EQ(rowsOfArray->stringForColumnIndex(0), "x,5,z");
}

TEST_F(DatabaseHandle, KeepsCopiesOfTheValuesOfAQuery) {
    auto text = std::make_unique<std::string>("a text that is too long to be kept inside its object");
    auto bytes = std::make_unique<ZAVData>(ZAVData::fromText("bytes that are kept outside their object"));
    auto rows = database_->executeQuery("SELECT ?, ?", *text, *bytes);
    text->assign(text->size(), '!');
    text.reset();
    bytes.reset();
    ASSERT_TRUE(rows && rows->next());
    EXPECT_EQ(rows->stringForColumnIndex(0), "a text that is too long to be kept inside its object");
    EXPECT_EQ(rows->dataForColumnIndex(1), ZAVData::fromText("bytes that are kept outside their object"));
}

TEST_F(DatabaseHandle, HasNoErrorBeforeTheFirstFailure) {
    EXPECT_FALSE(database_->lastError());
}

TEST_F(DatabaseHandle, SaysWhyAStatementCannotBePrepared) {
    EXPECT_FALSE(database_->executeQuery("SELECT * FROM missing"));
    expectError("SQLite", 1);
    EXPECT_EQ(database_->lastError().message(), "no such table: missing");
    EXPECT_FALSE(database_->executeUpdate("DELETE FROM absent"));
    EXPECT_EQ(database_->lastError().message(), "no such table: absent");
    EXPECT_FALSE(database_->executeUpdate("NONSENSE"));
    expectError("SQLite", 1);
}

TEST_F(DatabaseHandle, KeepsTheLastErrorWhenALaterCallSucceeds) {
    ASSERT_FALSE(database_->executeUpdate("DELETE FROM absent"));
    ASSERT_TRUE(database_->executeUpdate("DELETE FROM t"));
    EXPECT_EQ(database_->lastError().message(), "no such table: absent");
}

TEST_F(DatabaseHandle, ReportsTheExtendedCodeOfAViolatedConstraint) {
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t VALUES (?)", 1));
    EXPECT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (?)", 1));
    expectError("SQLite", 2067);
    EXPECT_EQ(database_->lastError().message(), "UNIQUE constraint failed: t.a");
}

TEST_F(DatabaseHandle, RefusesMoreOrFewerValuesThanPlaceholders) {
    const std::vector<ZAVValue> three{1, 2, 3};
    EXPECT_FALSE(database_->executeQuery("SELECT ?, ?"));
    expectError("ZAVDatabase", ZAVDatabaseErrorWrongValueCount);
    EXPECT_FALSE(database_->executeQuery("SELECT ?, ?", 1));
    expectError("ZAVDatabase", ZAVDatabaseErrorWrongValueCount);
    EXPECT_FALSE(database_->executeQueryWithArgumentsInArray("SELECT ?, ?", three));
    expectError("ZAVDatabase", ZAVDatabaseErrorWrongValueCount);
    EXPECT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (7)", 1));
    expectError("ZAVDatabase", ZAVDatabaseErrorWrongValueCount);
    EXPECT_FALSE(database_->executeUpdateWithArgumentsInArray("INSERT INTO t VALUES (?)", three));
    expectError("ZAVDatabase", ZAVDatabaseErrorWrongValueCount);
    EXPECT_EQ(scalar(*database_, "SELECT COUNT(*) FROM t"), "0") << "a refused statement ran";
    EXPECT_TRUE(database_->executeQuery("SELECT ?, ?", 1, 2)) << "the statement was spoilt by its refusal";
}

TEST_F(DatabaseHandle, RefusesTextAfterTheFirstStatement) {
    EXPECT_FALSE(database_->executeUpdate("INSERT INTO t VALUES (1); INSERT INTO t VALUES (2)"));
    expectError("ZAVDatabase", ZAVDatabaseErrorTrailingText);
    EXPECT_FALSE(database_->executeQuery("SELECT 1; nonsense"));
    expectError("ZAVDatabase", ZAVDatabaseErrorTrailingText);
    EXPECT_EQ(scalar(*database_, "SELECT COUNT(*) FROM t"), "0") << "a part of a refused text ran";
    EXPECT_TRUE(keptStatements(*database_).empty()) << "a refused text was kept";
}

TEST_F(DatabaseHandle, RefusesATextWithANUL) {
    using namespace std::string_literals;
    for (const std::string& sql : {"SELECT 1\0 WHERE 0"s, "SELECT 1\0"s, "\0SELECT 1"s, "SELECT 'a\0b'"s}) {
        EXPECT_FALSE(database_->executeQuery(sql)) << "was cut: " << testing::PrintToString(sql);
        expectError("ZAVDatabase", 12);
        EXPECT_FALSE(database_->executeUpdate(sql)) << "was cut: " << testing::PrintToString(sql);
        expectError("ZAVDatabase", 12);
        EXPECT_FALSE(database_->prepare(sql)) << "was cut: " << testing::PrintToString(sql);
        expectError("ZAVDatabase", 12);
    }
    EXPECT_FALSE(database_->executeStatements("INSERT INTO t VALUES (1);\0INSERT INTO t VALUES (2)"s));
    expectError("ZAVDatabase", 12);
    EXPECT_EQ(scalar(*database_, "SELECT COUNT(*) FROM t"), "0") << "a part of a script ran";
    EXPECT_TRUE(keptStatements(*database_).empty()) << "a refused text was kept";
}

TEST_F(DatabaseHandle, RefusesATextThatIsLongerThanTheEngineTakes) {
    sqlite3_limit(database_->sqliteHandle(), SQLITE_LIMIT_SQL_LENGTH, 1000);
    const std::string select = "SELECT 1";
    EXPECT_TRUE(database_->executeQuery(select + std::string(1000 - select.size(), ' ')));
    EXPECT_FALSE(database_->executeQuery(select + std::string(1001 - select.size(), ' ')));
    expectError("SQLite", SQLITE_TOOBIG);
    EXPECT_EQ(database_->lastError().message(),
              "the text of a statement has 1001 bytes; the engine takes 1000");
}

TEST_F(DatabaseHandle, RefusesATextWhoseLengthIsBeyondTheNumbersOfTheEngine) {
    // Nobody writes to these pages, so they take no memory: 4 GiB and 8 bytes, which an int has as 8.
    constexpr std::size_t size = (std::size_t{1} << 32) + 8;
    void* const pages =
        ::mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (pages == MAP_FAILED) {
        GTEST_SKIP() << "there are no addresses for it";
    }
    std::memcpy(pages, "SELECT 1", 8);
    EXPECT_FALSE(database_->executeQuery(std::string_view(static_cast<const char*>(pages), size)))
        << "the first eight bytes ran for the whole";
    expectError("SQLite", SQLITE_TOOBIG);
    ::munmap(pages, size);
}

TEST_F(DatabaseHandle, RunsAScriptThatIsLongerThanAStatementMayBe) {
    sqlite3_limit(database_->sqliteHandle(), SQLITE_LIMIT_SQL_LENGTH, 1000);
    std::string script;
    for (int number = 0; number < 100; ++number) {
        script += "INSERT INTO t VALUES (" + std::to_string(number) + "); -- and on\n";
    }
    ASSERT_GT(script.size(), 3000U);
    EXPECT_TRUE(database_->executeStatements(script)) << database_->lastError().description();
    EXPECT_EQ(scalar(*database_, "SELECT COUNT(*) FROM t"), "100");
}

TEST_F(DatabaseHandle, TakesBlanksAndSemicolonsAfterTheStatement) {
    EXPECT_TRUE(database_->executeUpdate("INSERT INTO t VALUES (1);"));
    EXPECT_TRUE(database_->executeUpdate("INSERT INTO t VALUES (2) ; \n\t ;"));
    EXPECT_EQ(scalar(*database_, "SELECT COUNT(*) FROM t"), "2");
}

TEST_F(DatabaseHandle, RefusesATextWithoutAStatement) {
    for (const std::string_view sql : {std::string_view(), std::string_view(""), std::string_view("  \n"),
                                       std::string_view(";"), std::string_view("-- nothing here")}) {
        EXPECT_FALSE(database_->executeQuery(sql)) << "'" << sql << "'";
        expectError("ZAVDatabase", ZAVDatabaseErrorNoStatement);
        EXPECT_FALSE(database_->executeUpdate(sql)) << "'" << sql << "'";
        expectError("ZAVDatabase", ZAVDatabaseErrorNoStatement);
    }
}

TEST_F(DatabaseHandle, ReadsNoFurtherThanTheTextOfAStatement) {
    const std::string_view sql = std::string_view("SELECT 12345").substr(0, 9);
    auto rows = database_->executeQuery(sql);
    ASSERT_TRUE(rows && rows->next());
    EXPECT_EQ(rows->intForColumnIndex(0), 12);
}

TEST_F(DatabaseHandle, CountsTheRowsThatTheLastUpdateChanged) {
    EXPECT_TRUE(database_->executeUpdate("INSERT INTO t VALUES (1), (2), (3)"));
    EXPECT_EQ(database_->changes(), 3);
    EXPECT_TRUE(database_->executeUpdate("UPDATE t SET a = a + 10 WHERE a > ?", 1));
    EXPECT_EQ(database_->changes(), 2);
    EXPECT_TRUE(database_->executeUpdate("DELETE FROM t WHERE a = ?", 99));
    EXPECT_EQ(database_->changes(), 0);
}

TEST_F(DatabaseHandle, CountsAnIgnoredInsertAsNoChange) {
    ASSERT_TRUE(database_->executeUpdate("INSERT OR IGNORE INTO t VALUES (?)", 1));
    EXPECT_EQ(database_->changes(), 1);
    const std::int64_t row = database_->lastInsertRowId();
    EXPECT_TRUE(database_->executeUpdate("INSERT OR IGNORE INTO t VALUES (?)", 1));
    EXPECT_EQ(database_->changes(), 0);
    EXPECT_EQ(database_->lastInsertRowId(), row) << "an ignored insert counts as none";
}

TEST_F(DatabaseHandle, KnowsTheRowIdentifierOfTheLastInsert) {
    EXPECT_EQ(database_->lastInsertRowId(), 0);
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t (rowid, a) VALUES (?, 'x')", std::int64_t{1} << 40));
    EXPECT_EQ(database_->lastInsertRowId(), std::int64_t{1} << 40);
    ASSERT_TRUE(database_->executeUpdate("INSERT INTO t VALUES ('y')"));
    EXPECT_EQ(database_->lastInsertRowId(), (std::int64_t{1} << 40) + 1);
}

TEST_F(DatabaseHandle, RunsAnUpdateToItsEndWhateverRowsItYields) {
    EXPECT_TRUE(database_->executeUpdate("SELECT 1 UNION SELECT 2"));
    EXPECT_TRUE(database_->executeUpdate("PRAGMA user_version"));
    EXPECT_EQ(busyStatements(*database_), 0);
}

TEST_F(DatabaseHandle, TakesSeveralCursorsAtOnce) {
    run(*database_, "INSERT INTO t VALUES (1), (2)");
    auto outer = database_->executeQuery("SELECT a FROM t ORDER BY a");
    std::vector<std::string> pairs;
    while (outer->next()) {
        auto inner = database_->executeQuery("SELECT a FROM t ORDER BY a DESC");
        EXPECT_EQ(database_->openResultSets(), 2U);
        while (inner->next()) {
            pairs.push_back(*outer->stringForColumnIndex(0) + *inner->stringForColumnIndex(0));
        }
    }
    EXPECT_EQ(pairs, (std::vector<std::string>{"12", "11", "22", "21"}));
    EXPECT_EQ(database_->openResultSets(), 0U);
}

TEST_F(DatabaseHandle, WritesWhileACursorIsOpen) {
    run(*database_, "INSERT INTO t VALUES (1), (2)");
    auto rows = database_->executeQuery("SELECT a FROM t ORDER BY a");
    ASSERT_TRUE(rows->next());
    EXPECT_TRUE(database_->executeUpdate("UPDATE t SET a = 20 WHERE a = 2"));
    ASSERT_TRUE(rows->next());
    EXPECT_EQ(database_->changes(), 1);
}

TEST_F(DatabaseHandle, RunsAScriptUntilAStatementFails) {
    EXPECT_TRUE(database_->executeStatements("INSERT INTO t VALUES (1); INSERT INTO t VALUES (2);"));
    EXPECT_FALSE(database_->executeStatements(
        "INSERT INTO t VALUES (3); INSERT INTO absent VALUES (1); INSERT INTO t VALUES (4)"));
    EXPECT_EQ(database_->lastError().message(), "no such table: absent");
    EXPECT_EQ(scalar(*database_, "SELECT group_concat(a) FROM t"), "1,2,3");
    EXPECT_TRUE(database_->executeStatements("")) << "a script of no statement has nothing to fail";
}

TEST_F(DatabaseHandle, KnowsWhetherATransactionIsOpen) {
    EXPECT_FALSE(database_->inTransaction());
    ASSERT_TRUE(database_->executeUpdate("BEGIN"));
    EXPECT_TRUE(database_->inTransaction());
    ASSERT_TRUE(database_->executeUpdate("COMMIT"));
    EXPECT_FALSE(database_->inTransaction());
}

TEST_F(DatabaseHandle, KeepsForeignHandsOffTheSchema) {
#ifdef SQLITE_DBCONFIG_DEFENSIVE
    if (sqlite3_libversion_number() >= 3026000) {
        int defensive = 0;
        ASSERT_EQ(sqlite3_db_config(database_->sqliteHandle(), SQLITE_DBCONFIG_DEFENSIVE, -1, &defensive),
                  SQLITE_OK);
        EXPECT_EQ(defensive, 1);
        EXPECT_FALSE(database_->executeStatements("PRAGMA writable_schema=ON; DELETE FROM sqlite_master"))
            << "the schema table can be written";
        EXPECT_EQ(scalar(*database_, "SELECT COUNT(*) FROM sqlite_master WHERE name = 't'"), "1");
    }
#endif
    if (sqlite3_libversion_number() >= 3031000) {
        EXPECT_EQ(scalar(*database_, "PRAGMA trusted_schema"), "0");
    }
    EXPECT_EQ(scalar(*database_, "PRAGMA cell_size_check"), "1");
}

TEST_F(DatabaseHandle, LoadsNoExtension) {
#ifdef SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION
    int enabled = 1;
    sqlite3_db_config(database_->sqliteHandle(), SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, -1, &enabled);
    EXPECT_EQ(enabled, 0);
#endif
    auto rows = database_->executeQuery("SELECT load_extension('libm')");
    EXPECT_FALSE(rows && rows->next());
    EXPECT_EQ(database_->lastError().message(), "not authorized");
}

/// Files in a directory of the test's own.
class OpeningADatabase : public testing::Test {
protected:
    void expectRefusal(const std::string& path, const FMDatabaseOptions& options, std::string_view domain,
                       int code) {
        ZAVError error;
        EXPECT_EQ(FMDatabase::databaseWithPath(path, options, &error), nullptr) << path << " was opened";
        EXPECT_EQ(error.domain(), domain) << error.description();
        EXPECT_EQ(domain == "SQLite" ? error.code() & 0xFF : error.code(), code) << error.description();
        EXPECT_EQ(FMDatabase::databaseWithPath(path, options), nullptr)
            << path << " was opened when nobody asked for the reason";
    }

    static FMDatabaseOptions knowingVersionsUpTo(std::int32_t version) {
        FMDatabaseOptions chosen;
        chosen.newestUserVersion = version;
        return chosen;
    }

    TemporaryDirectory directory_;
    const std::string path_ = directory_.file("a.db");
};

TEST_F(OpeningADatabase, MakesTheFileAndLeavesTheErrorAsItWas) {
    ZAVError error("untouched", 1, "untouched");
    ASSERT_NE(FMDatabase::databaseWithPath(path_, {}, &error), nullptr);
    EXPECT_TRUE(std::filesystem::exists(path_));
    EXPECT_EQ(error.domain(), "untouched");
}

TEST_F(OpeningADatabase, KeepsWhatWasStoredForTheNextTime) {
    run(*openHandle(path_), "CREATE TABLE t (a); INSERT INTO t VALUES ('kept')");
    EXPECT_EQ(scalar(*openHandle(path_), "SELECT a FROM t"), "kept");
}

TEST_F(OpeningADatabase, TurnsTheWriteAheadLogOnAndSynchronisesInFull) {
    const auto database = openHandle(path_);
    EXPECT_EQ(scalar(*database, "PRAGMA journal_mode"), "wal");
    EXPECT_EQ(scalar(*database, "PRAGMA synchronous"), "2");
    EXPECT_EQ(FMDatabaseOptions().busyTimeout, std::chrono::seconds(5));
    EXPECT_EQ(scalar(*database, "PRAGMA cache_size"), "-16384");
    EXPECT_EQ(scalar(*database, "PRAGMA secure_delete"), "1");
}

TEST_F(OpeningADatabase, OverwritesWhatIsDeletedUnlessItIsToldNotTo) {
    const std::string secret = "a text that was to be forgotten";
    for (const bool isSecure : {true, false}) {
        const std::string path = path_ + (isSecure ? "-secure" : "");
        FMDatabaseOptions chosen;
        chosen.secureDelete = isSecure;
        run(*openHandle(path, chosen), "CREATE TABLE t (a); INSERT INTO t VALUES ('" + secret + "')");
        ASSERT_NE(bytesOfFile(path).find(secret), std::string::npos);
        run(*openHandle(path, chosen), "DELETE FROM t");
        EXPECT_EQ(bytesOfFile(path).find(secret) == std::string::npos, isSecure);
    }
}

TEST_F(OpeningADatabase, HasTheCommitThatLeavesFourThousandPagesInTheLogFoldIt) {
    const auto database = openHandle(path_);
    run(*database, "CREATE TABLE t (a)");
    const auto before = std::filesystem::file_size(path_);
    run(*database, "INSERT INTO t VALUES (zeroblob(3950 * 4096))");
    EXPECT_EQ(std::filesystem::file_size(path_), before);
    run(*database, "INSERT INTO t VALUES (zeroblob(50 * 4096))");
    EXPECT_GT(std::filesystem::file_size(path_), 4000 * 4096U);
}

TEST_F(OpeningADatabase, KeepsThePagesOfATransactionInMemoryUpToFourTimesThePageCache) {
    FMDatabaseOptions chosen;
    chosen.pageCacheKiB = 256;
    const auto database = openHandle(path_, chosen);
    run(*database, "CREATE TABLE t (a); BEGIN; INSERT INTO t VALUES (zeroblob(800000))");
    const std::string log = path_ + "-wal";
    const auto before = std::filesystem::file_size(log);
    EXPECT_LT(before, 800000U)
        << "pages were written before the transaction had changed four times its cache";
    run(*database, "INSERT INTO t VALUES (zeroblob(1600000))");
    EXPECT_GT(std::filesystem::file_size(log), before + 800000) << "a transaction keeps all that it changes";
    run(*database, "COMMIT");
    EXPECT_EQ(scalar(*database, "SELECT sum(length(a)) FROM t"), "2400000");
}

TEST_F(OpeningADatabase, TakesTheOptionsOfTheCaller) {
    FMDatabaseOptions chosen;
    chosen.synchronous = FMDatabaseOptions::Synchronous::normal;
    chosen.writeAheadLog = false;
    chosen.pageCacheKiB = 2048;
    chosen.secureDelete = false;
    const auto database = openHandle(path_, chosen);
    EXPECT_EQ(scalar(*database, "PRAGMA journal_mode"), "delete");
    EXPECT_EQ(scalar(*database, "PRAGMA synchronous"), "1");
    EXPECT_EQ(scalar(*database, "PRAGMA cache_size"), "-2048");
    EXPECT_EQ(scalar(*database, "PRAGMA secure_delete"), "0");
}

TEST_F(OpeningADatabase, KeepsTheModeOfTheFileWhenNoWriteAheadLogIsAskedFor) {
    run(*openHandle(path_), "CREATE TABLE t (a)");
    EXPECT_EQ(scalar(*openHandle(path_, withoutWriteAheadLog()), "PRAGMA journal_mode"), "wal");
}

/// The engine's own file system without shared memory, which a write-ahead log needs.
class FileSystemWithoutSharedMemory {
public:
    static constexpr const char* name = "zav-without-shared-memory";

    FileSystemWithoutSharedMemory() : reduced_(*original()) {
        reduced_.zName = name;
        reduced_.pNext = nullptr;
        reduced_.xOpen = open;
        if (sqlite3_vfs_register(&reduced_, 0) != SQLITE_OK) {
            throw std::runtime_error("cannot register the file system");
        }
    }
    ~FileSystemWithoutSharedMemory() { sqlite3_vfs_unregister(&reduced_); }
    FileSystemWithoutSharedMemory(const FileSystemWithoutSharedMemory&) = delete;
    FileSystemWithoutSharedMemory& operator=(const FileSystemWithoutSharedMemory&) = delete;

private:
    static sqlite3_vfs* original() {
        static sqlite3_vfs* const vfs = sqlite3_vfs_find(nullptr);
        return vfs;
    }

    static int open(sqlite3_vfs*, const char* path, sqlite3_file* file, int flags, int* flagsOut) {
        const int status = original()->xOpen(original(), path, file, flags, flagsOut);
        if (status == SQLITE_OK && (flags & SQLITE_OPEN_MAIN_DB) != 0) {
            static sqlite3_io_methods methods = *file->pMethods;
            methods.iVersion = 1;  // the version that knows nothing of shared memory
            file->pMethods = &methods;
        }
        return status;
    }

    sqlite3_vfs reduced_;
};

TEST_F(OpeningADatabase, WaitsForTheDeviceAsAJournalNeedsItWhereNoWriteAheadLogCanBeHad) {
    const FileSystemWithoutSharedMemory files;
    FMDatabaseOptions options;
    options.vfs = FileSystemWithoutSharedMemory::name;
    const auto database = openHandle(path_, options);
    run(*database, "CREATE TABLE t (a)");
    EXPECT_EQ(scalar(*database, "PRAGMA journal_mode"), "delete");
    EXPECT_EQ(scalar(*database, "PRAGMA synchronous"), "3")
        << "a journal's deletion is the commit, and was not waited for";
}

TEST_F(OpeningADatabase, TakesADatabaseInMemory) {
    const auto database = openHandle(":memory:");
    run(*database, "CREATE TABLE t (a)");
    EXPECT_EQ(scalar(*database, "PRAGMA journal_mode"), "memory");
}

TEST_F(OpeningADatabase, TakesAnEmptyFileAsAnEmptyDatabase) {
    std::ofstream(path_).flush();
    EXPECT_EQ(scalar(*openHandle(path_), "SELECT COUNT(*) FROM sqlite_master"), "0");
}

TEST_F(OpeningADatabase, RefusesAFileThatIsNoDatabaseAndLeavesItAlone) {
    const std::string text(4096, 'x');
    std::ofstream(path_) << text;
    expectRefusal(path_, {}, "SQLite", SQLITE_NOTADB);
    EXPECT_EQ(bytesOfFile(path_), text);
}

TEST_F(OpeningADatabase, RefusesADirectoryThatDoesNotExist) {
    expectRefusal(directory_.file("absent/a.db"), {}, "SQLite", SQLITE_CANTOPEN);
    EXPECT_FALSE(std::filesystem::exists(directory_.file("absent")));
}

TEST_F(OpeningADatabase, RefusesAPathThatIsADirectory) {
    expectRefusal(directory_.path().string(), {}, "SQLite", SQLITE_CANTOPEN);
}

TEST_F(OpeningADatabase, MakesNoFileUnlessItMay) {
    expectRefusal(path_, withAccess(FMDatabaseOptions::Access::readOnly), "SQLite", SQLITE_CANTOPEN);
    expectRefusal(path_, withAccess(FMDatabaseOptions::Access::readWrite), "SQLite", SQLITE_CANTOPEN);
    EXPECT_FALSE(std::filesystem::exists(path_));
}

TEST_F(OpeningADatabase, WritesToAnExistingFileWhenItMay) {
    run(*openHandle(path_), "CREATE TABLE t (a)");
    const auto database = openHandle(path_, withAccess(FMDatabaseOptions::Access::readWrite));
    EXPECT_TRUE(database->executeUpdate("INSERT INTO t VALUES (1)"));
}

TEST_F(OpeningADatabase, ReadsButDoesNotWriteWhenItIsReadOnly) {
    run(*openHandle(path_), "CREATE TABLE t (a); INSERT INTO t VALUES (1)");
    const auto database = openHandle(path_, withAccess(FMDatabaseOptions::Access::readOnly));
    EXPECT_EQ(scalar(*database, "SELECT a FROM t"), "1");
    EXPECT_FALSE(database->executeUpdate("INSERT INTO t VALUES (2)"));
    EXPECT_EQ(database->lastError().code() & 0xFF, SQLITE_READONLY) << database->lastError().description();
}

TEST_F(OpeningADatabase, RefusesAFileSystemThatTheEngineDoesNotKnow) {
    FMDatabaseOptions chosen;
    chosen.vfs = "no such file system";
    expectRefusal(path_, chosen, "SQLite", SQLITE_ERROR);
}

// Options

TEST_F(OpeningADatabase, RefusesOptionsThatMeanNothingAndMakesNoFile) {
    struct BadOption {
        const char* message;
        void (*set)(FMDatabaseOptions& options);
    };
    using namespace std::string_literals;
    const BadOption badOptions[] = {
        {"the option pageCacheKiB is -1, but may not be negative",
         [](FMDatabaseOptions& options) { options.pageCacheKiB = -1; }},
        {"the option writeAheadLogPages is -7, but may not be negative",
         [](FMDatabaseOptions& options) { options.writeAheadLogPages = -7; }},
        {"the option writeAheadLogCeiling is -1, but may not be negative",
         [](FMDatabaseOptions& options) { options.writeAheadLogCeiling = -1; }},
        {"the option writeAheadLogWait is -1 ms, but may not be negative",
         [](FMDatabaseOptions& options) { options.writeAheadLogWait = std::chrono::milliseconds(-1); }},
        {"the option busyTimeout is -1 ms, but may not be negative",
         [](FMDatabaseOptions& options) { options.busyTimeout = std::chrono::milliseconds(-1); }},
        {"the option statementCacheCapacity is 2147483648, but may not exceed 2147483647",
         [](FMDatabaseOptions& options) { options.statementCacheCapacity = 2147483648; }},
        {"the option newestUserVersion is -1, but may not be negative",
         [](FMDatabaseOptions& options) { options.newestUserVersion = -1; }},
        {"the option newFileMode is 0400, but must be permissions that let the owner read and write",
         [](FMDatabaseOptions& options) { options.newFileMode = 0400; }},
        {"the option newFileMode is 04600, but must be permissions that let the owner read and write",
         [](FMDatabaseOptions& options) { options.newFileMode = 04600; }},
        {"the option access is 3, but is none of its names",
         [](FMDatabaseOptions& options) { options.access = static_cast<FMDatabaseOptions::Access>(3); }},
        {"the option synchronous is -1, but is none of its names",
         [](FMDatabaseOptions& options) {
             options.synchronous = static_cast<FMDatabaseOptions::Synchronous>(-1);
         }},
        {"the options key and keyProvider are both set, but there is one key",
         [](FMDatabaseOptions& options) {
             options.key = "a";
             options.keyProvider = [] { return std::optional<std::string>("a"); };
         }},
        {"the option vfs is unix, but goes on after a NUL, which no name does",
         [](FMDatabaseOptions& options) { options.vfs = "unix\0"s; }},
    };
    for (const BadOption& bad : badOptions) {
        FMDatabaseOptions options;
        bad.set(options);
        for (const std::string& path : {path_, std::string(":memory:")}) {
            ZAVError error;
            EXPECT_EQ(FMDatabase::databaseWithPath(path, options, &error), nullptr) << bad.message;
            EXPECT_EQ(error, ZAVError("ZAVDatabase", 11, bad.message));
        }
        EXPECT_FALSE(std::filesystem::exists(path_)) << "a file was made in spite of it: " << bad.message;
    }
}

TEST_F(OpeningADatabase, TakesTheLeastOfEachOption) {
    FMDatabaseOptions chosen;
    chosen.pageCacheKiB = 0;
    chosen.writeAheadLogPages = 0;
    chosen.writeAheadLogCeiling = 0;
    chosen.writeAheadLogWait = std::chrono::milliseconds(0);
    chosen.busyTimeout = std::chrono::milliseconds(0);
    chosen.statementCacheCapacity = 0;
    chosen.newestUserVersion = 0;
    const auto database = openHandle(path_, chosen);
    run(*database, "CREATE TABLE t (a); INSERT INTO t VALUES (zeroblob(100000))");
    EXPECT_EQ(scalar(*database, "SELECT length(a) FROM t"), "100000");
}

TEST_F(OpeningADatabase, WaitsForALockAsLongAsItIsTold) {
    const auto holder = openHandle(path_);
    run(*holder, "CREATE TABLE t (a); BEGIN IMMEDIATE");
    for (const auto timeout : {std::chrono::milliseconds(0), std::chrono::milliseconds(123)}) {
        FMDatabaseOptions chosen;
        chosen.busyTimeout = timeout;
        const auto database = openHandle(path_, chosen);
        const auto start = std::chrono::steady_clock::now();
        EXPECT_FALSE(database->executeUpdate("INSERT INTO t VALUES (1)"));
        EXPECT_EQ(database->lastError().code() & 0xFF, SQLITE_BUSY);
        EXPECT_GE(std::chrono::steady_clock::now() - start, timeout);
    }
}

TEST_F(OpeningADatabase, WaitsAsLongAsItCanWhenToldToWaitLonger) {
    run(*openHandle(path_), "CREATE TABLE t (a)");
    for (const auto timeout : {std::chrono::milliseconds(2147483648), std::chrono::milliseconds::max(),
                               std::chrono::milliseconds(std::chrono::hours(30 * 24))}) {
        FMDatabaseOptions chosen;
        chosen.busyTimeout = timeout;
        const auto database = openHandle(path_, chosen);
        const auto holder = openHandle(path_);
        run(*holder, "BEGIN IMMEDIATE");
        std::thread release([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            run(*holder, "COMMIT");
        });
        EXPECT_TRUE(database->executeUpdate("INSERT INTO t VALUES (1)")) << "for " << timeout.count();
        release.join();
    }
}

TEST(TwoHandles, WaitForAWriteAheadLogUntilItCanBeHadHoweverLongTheyMay) {
    SharedFile file(false);
    auto reading = file.first->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(reading && reading->next());
    FMDatabaseOptions patient;
    patient.busyTimeout = std::chrono::milliseconds::max();
    std::atomic<bool> isOpen = false;
    std::thread opener([&] { isOpen = FMDatabase::databaseWithPath(file.path(), patient) != nullptr; });
    sqlite3_sleep(100);  // it meets the reader, or comes later and waits for nothing
    reading->close();
    opener.join();
    EXPECT_TRUE(isOpen) << "a deadline that lies beyond the clock had passed at once";
}

// Paths

TEST_F(OpeningADatabase, RefusesAPathThatIsEmptyOrHoldsANUL) {
    expectRefusal("", {}, "ZAVDatabase", 10);
    expectRefusal(path_ + std::string("\0.db", 4), {}, "ZAVDatabase", 10);
    expectRefusal(std::string(":memory:\0", 9), {}, "ZAVDatabase", 10);
    EXPECT_TRUE(std::filesystem::is_empty(directory_.path())) << "a path was cut at its NUL";
}

TEST_F(OpeningADatabase, RefusesAPathThatIsTooLongAndMakesNoFile) {
    std::string path = directory_.path().string();
    while (path.size() < 1000) {
        path += "/" + std::string(100, 'd');
        std::filesystem::create_directory(path);
    }
    expectRefusal(path + "/a.db", {}, "SQLite", SQLITE_CANTOPEN);
    EXPECT_TRUE(std::filesystem::is_empty(path));
    expectRefusal(directory_.file(std::string(300, 'x')), {}, "SQLite", SQLITE_CANTOPEN);
}

TEST_F(OpeningADatabase, TakesOnlyTheExactNameForMemory) {
    const std::string path = directory_.file(":memory:");
    run(*openHandle(path), "CREATE TABLE t (a)");
    EXPECT_TRUE(std::filesystem::exists(path)) << "a path that ends like it is a file's";
}

TEST_F(OpeningADatabase, FindsOneFileUnderEachOfItsPaths) {
    std::filesystem::create_directory(directory_.file("sub"));
    std::filesystem::create_directory_symlink("sub", directory_.file("link"));
    std::filesystem::create_symlink("sub/a.db", directory_.file("link.db"));
    run(*openHandle(directory_.file("sub/a.db")), "CREATE TABLE t (a); INSERT INTO t VALUES ('found')");
    for (const char* const name : {"sub/./a.db", "sub/../sub//a.db", "link/a.db", "link.db"}) {
        EXPECT_EQ(scalar(*openHandle(directory_.file(name)), "SELECT a FROM t"), "found") << name;
    }
    EXPECT_TRUE(std::filesystem::is_symlink(directory_.file("link.db")));
}

TEST_F(OpeningADatabase, RefusesAFileThatHasAnotherNameToo) {
    run(*openHandle(path_), "CREATE TABLE t (a)");
    const std::string other = directory_.file("other.db");
    std::filesystem::create_hard_link(path_, other);
    expectRefusal(path_, {}, "ZAVDatabase", 10);
    expectRefusal(other, withAccess(FMDatabaseOptions::Access::readOnly), "ZAVDatabase", 10);
    std::filesystem::remove(other);
    EXPECT_NE(FMDatabase::databaseWithPath(path_), nullptr) << "it has one name again";
}

TEST_F(OpeningADatabase, RefusesAFileThatIsNoOrdinaryOne) {
    ASSERT_EQ(::mkfifo(path_.c_str(), 0600), 0);
    for (const auto access : {FMDatabaseOptions::Access::readOnly, FMDatabaseOptions::Access::readWrite,
                              FMDatabaseOptions::Access::readWriteCreate}) {
        expectRefusal(path_, withAccess(access), "ZAVDatabase", 10);
    }
}

// Permissions

/// The process's umask, for as long as it lives.
class Umask {
public:
    explicit Umask(mode_t mask) : before_(::umask(mask)) {}
    ~Umask() { ::umask(before_); }
    Umask(const Umask&) = delete;
    Umask& operator=(const Umask&) = delete;

private:
    mode_t before_;
};

class PermissionsOfANewFile : public OpeningADatabase {
protected:
    [[nodiscard]] std::string permissions(const std::string& suffix) const {
        struct stat status {};
        if (::stat((path_ + suffix).c_str(), &status) != 0) {
            return "absent";
        }
        const char digits[] = {static_cast<char>('0' + (status.st_mode >> 6 & 7)),
                               static_cast<char>('0' + (status.st_mode >> 3 & 7)),
                               static_cast<char>('0' + (status.st_mode & 7)), '\0'};
        return digits;
    }

    void expectOfAll(const std::string& expected, FMDatabaseOptions options) {
        {
            const auto database = openHandle(path_, options);
            run(*database, "CREATE TABLE t (a)");
            EXPECT_EQ(permissions(""), expected) << "of the file";
            EXPECT_EQ(permissions("-wal"), expected) << "of the log";
            EXPECT_EQ(permissions("-shm"), expected) << "of the shared memory";
        }
        std::filesystem::remove(path_);
        options.writeAheadLog = false;
        const auto database = openHandle(path_, options);
        run(*database, "BEGIN; CREATE TABLE t (a)");
        EXPECT_EQ(permissions(""), expected) << "of the file";
        EXPECT_EQ(permissions("-journal"), expected) << "of the journal";
    }
};

TEST_F(PermissionsOfANewFile, AreTheOwnersAloneWhateverTheUmaskWouldAllow) {
    const Umask umask(0);
    expectOfAll("600", {});
}

TEST_F(PermissionsOfANewFile, AreTheOwnersAloneUnderAnOrdinaryUmask) {
    const Umask umask(022);
    expectOfAll("600", {});
}

TEST_F(PermissionsOfANewFile, AreThoseThatWereAskedFor) {
    const Umask umask(0);
    FMDatabaseOptions options;
    options.newFileMode = 0664;
    expectOfAll("664", options);
}

TEST_F(PermissionsOfANewFile, LackWhatTheUmaskTakesAway) {
    const Umask umask(027);
    FMDatabaseOptions options;
    options.newFileMode = 0666;
    expectOfAll("640", options);
}

TEST_F(PermissionsOfANewFile, AreThoseOfTheFileThatALinkLeadsTo) {
    const Umask umask(0);
    std::filesystem::create_symlink("real.db", path_);
    run(*openHandle(path_), "CREATE TABLE t (a)");
    EXPECT_EQ(permissions(""), "600");
    EXPECT_TRUE(std::filesystem::is_regular_file(directory_.file("real.db")));
}

TEST_F(PermissionsOfANewFile, AreNotThoseOfAFileThatIsThere) {
    std::ofstream(path_).flush();
    std::filesystem::permissions(path_, std::filesystem::perms(0644));
    const auto database = openHandle(path_);
    run(*database, "CREATE TABLE t (a)");
    EXPECT_EQ(permissions(""), "644") << "a file that is there keeps its permissions";
    EXPECT_EQ(permissions("-wal"), "644");
}

TEST_F(OpeningADatabase, RefusesANewerVersionAndLeavesTheFileAlone) {
    run(*openHandle(path_, withoutWriteAheadLog()), "CREATE TABLE t (a); PRAGMA user_version=9");
    const std::string before = bytesOfFile(path_);
    expectRefusal(path_, knowingVersionsUpTo(8), "ZAVDatabase", ZAVDatabaseErrorNewerSchema);
    EXPECT_EQ(bytesOfFile(path_), before) << "a file that was refused was written to";
    EXPECT_NE(FMDatabase::databaseWithPath(path_, knowingVersionsUpTo(9)), nullptr)
        << "the newest version that is known was refused";
}

TEST_F(OpeningADatabase, RefusesANewerVersionAndLeavesTheWriteAheadLogAlone) {
    // A copy of the files of a database that is in use is what a crash leaves behind.
    const std::string crashed = directory_.file("crashed.db");
    const auto database = openHandle(path_);
    run(*database, "CREATE TABLE t (a); PRAGMA user_version=9");
    std::filesystem::copy_file(path_, crashed);
    std::filesystem::copy_file(path_ + "-wal", crashed + "-wal");
    const std::string before = bytesOfFile(crashed);
    const std::string logBefore = bytesOfFile(crashed + "-wal");
    ASSERT_FALSE(logBefore.empty());
    expectRefusal(crashed, knowingVersionsUpTo(8), "ZAVDatabase", ZAVDatabaseErrorNewerSchema);
    EXPECT_EQ(bytesOfFile(crashed), before) << "the log of a file that was refused was folded into it";
    EXPECT_EQ(bytesOfFile(crashed + "-wal"), logBefore);
}

TEST_F(OpeningADatabase, RefusesANewerVersionAndLeavesNoLogBehindThatWasNotThere) {
    run(*openHandle(path_), "CREATE TABLE t (a); PRAGMA user_version=9");
    ASSERT_FALSE(std::filesystem::exists(path_ + "-wal"));
    const std::string before = bytesOfFile(path_);
    expectRefusal(path_, knowingVersionsUpTo(8), "ZAVDatabase", ZAVDatabaseErrorNewerSchema);
    EXPECT_EQ(bytesOfFile(path_), before);
    EXPECT_FALSE(std::filesystem::exists(path_ + "-wal")) << "looking into the file left a log";
    EXPECT_FALSE(std::filesystem::exists(path_ + "-shm"));
}

TEST(TwoHandles, WaitForALockNoLongerThanTheyMay) {
    SharedFile file;
    ASSERT_TRUE(file.first->executeUpdate("BEGIN IMMEDIATE"));
    EXPECT_FALSE(file.second->executeUpdate("INSERT INTO t VALUES (4)"));
    EXPECT_EQ(file.second->lastError().code() & 0xFF, SQLITE_BUSY) << file.second->lastError().description();
    ASSERT_TRUE(file.first->executeUpdate("COMMIT"));
    EXPECT_TRUE(file.second->executeUpdate("INSERT INTO t VALUES (4)"))
        << "a statement that met a lock was spoilt: " << file.second->lastError().description();
}

TEST(TwoHandles, CannotAgreeOnAWriteAheadLogWhileOneOfThemReads) {
    SharedFile file(false);
    FMDatabaseOptions withLog;
    withLog.busyTimeout = std::chrono::milliseconds(0);
    auto reading = file.first->executeQuery("SELECT a FROM t");
    ASSERT_TRUE(reading && reading->next());
    ZAVError error;
    EXPECT_EQ(FMDatabase::databaseWithPath(file.path(), withLog, &error), nullptr)
        << "a handle was opened that does not keep a log, though one was asked for";
    EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
    reading->close();
    EXPECT_EQ(scalar(*openHandle(file.path(), withLog), "PRAGMA journal_mode"), "wal");
}

TEST(TwoHandles, HaveErrorsOfTheirOwn) {
    SharedFile file;
    EXPECT_FALSE(file.first->executeUpdate("DELETE FROM absent"));
    EXPECT_FALSE(file.second->lastError());
}

}  // namespace
}  // namespace zav::test
