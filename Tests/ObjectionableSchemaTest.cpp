#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Operations/Catalogue.h"
#include "Support/DatabaseHandles.h"
#include "Support/HostileFile.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

class ObjectionableSchema : public HostileFile {
protected:
    /// Opening answers an error that says `message`, and leaves the database and its log as they are.
    void expectRefusal(const std::string& message) const {
        const Lines before = databaseAndLog();
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, {}, &error), nullptr);
        EXPECT_EQ(error, ZAVError("ZAVDatabase", ZAVDatabaseErrorForeignSchema, message));
        EXPECT_EQ(firstDifference(databaseAndLog(), before), "") << "a file that was refused was written";
    }

    void expectRefusalAfter(const std::string& script, const std::string& message) const {
        SCOPED_TRACE(script);
        writeFile(path_, genuineStore());
        ASSERT_NO_FATAL_FAILURE(tamper(script));
        expectRefusal(message);
    }

private:
    /// An empty log is none.
    [[nodiscard]] Lines databaseAndLog() const {
        const std::string log = path_ + "-wal";
        return {bytesOfFile(path_), fs::exists(log) ? bytesOfFile(log) : ""};
    }
};

TEST_F(ObjectionableSchema, WithATriggerIsRefused) {
    for (const std::string table : {"events", "EVENTS", "synced_changes", "keyed_values_local"}) {
        expectRefusalAfter("CREATE TRIGGER planted AFTER INSERT ON " + table + " BEGIN SELECT 1; END",
                           "the database has the trigger planted, which the event store does not make");
    }
}

TEST_F(ObjectionableSchema, WithATriggerOfAnApplicationsTableIsRefused) {
    expectRefusalAfter(
        "CREATE TABLE notes (a); CREATE TRIGGER planted AFTER INSERT ON notes BEGIN DELETE "
        "FROM events; END",
        "the database has the trigger planted, which the event store does not make");
}

TEST_F(ObjectionableSchema, WithATriggerThatClaimsToBeSomethingElseIsRefused) {
    for (const std::string type : {"TRIGGER", "Trigger"}) {
        expectRefusalAfter("CREATE TRIGGER planted AFTER INSERT ON events BEGIN DELETE FROM streams; END;" +
                               ofSchemaRow("planted", "type = '" + type + "'"),
                           "the database has the " + type + " planted, which the event store does not make");
    }
}

TEST_F(ObjectionableSchema, WithAViewIsRefused) {
    expectRefusalAfter("CREATE VIEW summary AS SELECT COUNT(*) FROM events",
                       "the database has the view summary, which the event store does not make");
    for (const std::string& table : tablesOf(*ZAVDatabaseSchema::openDatabase(":memory:"))) {
        expectRefusalAfter(inPlaceOf(table, "CREATE VIEW " + table + " AS SELECT * FROM stored"),
                           "the database has the view " + table + ", which the event store does not make");
    }
}

TEST_F(ObjectionableSchema, WithoutATableIsRefused) {
    for (const std::string& table : tablesOf(*ZAVDatabaseSchema::openDatabase(":memory:"))) {
        expectRefusalAfter("DROP TABLE " + table,
                           "the database lacks the table " + table + " of the event store");
    }
}

TEST_F(ObjectionableSchema, WithoutTheEnginesOwnTableOfLastRowsIsRefused) {
    expectRefusalAfter(inSchemaTable("DELETE FROM sqlite_master WHERE name = 'sqlite_sequence'"),
                       "the database lacks the table sqlite_sequence of the event store");
    expectRefusalAfter(
        ofSchemaRow("sqlite_sequence", "sql = 'CREATE TABLE sqlite_sequence(name, seq, more)'"),
        "the database has another table sqlite_sequence than the engine makes");
}

TEST_F(ObjectionableSchema, WithAnIndexOfTheNameOfATableThatIsMissingIsRefused) {
    expectRefusalAfter("DROP TABLE events; CREATE INDEX events ON streams (seq)",
                       "the database lacks the table events of the event store");
}

TEST_F(ObjectionableSchema, WithoutAnyTableIsRefused) {
    fs::remove(path_);
    tamper("PRAGMA user_version = " + std::to_string(ZAVDatabaseSchema::currentVersion()));
    expectRefusal("the database lacks the table conversation_participants of the event store");
}

TEST_F(ObjectionableSchema, WithAVirtualTableInPlaceOfOneIsRefused) {
    const std::string script =
        inPlaceOf("streams", "CREATE VIRTUAL TABLE streams USING rtree(database_identifier, stream_id, seq)");
    if (const std::string failure = AttackersConnection(path_).attempt(script);
        failure.starts_with("no such module")) {
        GTEST_SKIP() << failure;
    }
    const std::string message =
        "the database has the virtual table streams in place of the event store's table";
    expectRefusalAfter(script, message);
    expectRefusalAfter(script + ofSchemaRow("streams", "rootpage = 5"), message);
}

TEST_F(ObjectionableSchema, WhoseColumnsContradictItsStatementsIsRefusedByTheEngine) {
    if (sqlite3_libversion_number() < 3040000) {
        GTEST_SKIP() << "an older engine may believe it";
    }
    tamper(inPlaceOf("streams", "CREATE VIEW streams AS SELECT * FROM stored") + "CREATE TABLE empty (a);" +
           ofSchemaRow("streams", "type = 'table', name = 'x', tbl_name = 'x'") +
           ofSchemaRow("empty", "name = 'streams', tbl_name = 'streams'"));
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, {}, &error), nullptr);
    EXPECT_EQ(error.code() & 0xFF, SQLITE_CORRUPT) << error.description();
}

TEST_F(ObjectionableSchema, WithAStatementThatTheEngineDoesNotWriteIsRefused) {
    if (sqlite3_libversion_number() < 3040000) {
        // Old engines refuse the schema as malformed, before anybody can look at it.
        tamper(ofSchemaRow("streams", "sql = replace(sql, 'CREATE TABLE', 'create/**/table')"));
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, {}, &error), nullptr) << "the schema is believed";
        EXPECT_TRUE(error.code() == ZAVDatabaseErrorForeignSchema || (error.code() & 0xFF) == SQLITE_CORRUPT)
            << error.description();
        return;
    }
    expectRefusalAfter(ofSchemaRow("streams", "sql = replace(sql, 'CREATE TABLE', 'create/**/table')"),
                       "the database has the table streams, which the event store does not make");
}

TEST_F(ObjectionableSchema, InALogThatIsNotYetFoldedIsRefusedAndTheLogIsKept) {
    const std::string victim = directory_.file("victim.db");
    writeFile(victim, genuineStore());
    const AttackersConnection attacker(victim);
    ASSERT_EQ(attacker.attempt("CREATE TRIGGER planted AFTER INSERT ON events BEGIN SELECT 1; END"), "");
    writeFile(path_, bytesOfFile(victim));
    writeFile(path_ + "-wal", bytesOfFile(victim + "-wal"));
    ASSERT_GT(fs::file_size(path_ + "-wal"), 0U) << "nothing was proved: the log was folded";
    expectRefusal("the database has the trigger planted, which the event store does not make");
}

TEST_F(ObjectionableSchema, IsRefusedToWhoeverOnlyReadsAsWell) {
    tamper("CREATE VIEW summary AS SELECT 1");
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, withAccess(FMDatabaseOptions::Access::readOnly), &error),
              nullptr);
    EXPECT_EQ(error.code(), ZAVDatabaseErrorForeignSchema) << error.description();
}

TEST_F(HostileFile, WithTablesAndIndexesOfTheApplicationIsNotHostile) {
    tamper(
        "CREATE TABLE notes (a PRIMARY KEY, b REFERENCES events); CREATE TABLE more AS SELECT * FROM streams;"
        "CREATE UNIQUE INDEX notes_by_b ON notes (b); CREATE INDEX events_by_type ON events (type);"
        "CREATE TABLE numbered (a INTEGER PRIMARY KEY AUTOINCREMENT) ; ANALYZE");
    static_cast<void>(
        AttackersConnection(path_).attempt("CREATE VIRTUAL TABLE words USING fts5(a); INSERT INTO words "
                                           "VALUES ('x')"));
    const Outcome outcome = use();
    EXPECT_TRUE(outcome.opened) << outcome.refusal.description();
    EXPECT_EQ(outcome.succeeded.size(), everyOperation().size());
}

TEST_F(HostileFile, TheTablesBehindAFullTextIndexCannotBeWritten) {
#ifdef SQLITE_DBCONFIG_DEFENSIVE
    const std::string failure = AttackersConnection(path_).attempt(
        "CREATE VIRTUAL TABLE words USING fts5(a); INSERT INTO words VALUES ('x')");
    if (!failure.empty()) {
        GTEST_SKIP() << failure;
    }
    use([](FMDatabase& database) {
        EXPECT_EQ(scalar(database, "SELECT a FROM words"), "x");
        EXPECT_FALSE(database.executeStatements("UPDATE words_data SET block = x'00'"));
        EXPECT_EQ(database.lastError().message(), "table words_data may not be modified");
    });
#else
    GTEST_SKIP() << "this engine has no defensive mode";
#endif
}

}  // namespace
}  // namespace zav::test
