#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Support/DatabaseHandles.h"
#include "Support/SchemaVersion.h"
#include "Support/StatementInterruption.h"
#include "Support/StatementTrace.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

using Rows = std::vector<std::string>;

/// A file that need not hold the library's schema.
class Schema : public testing::Test {
protected:
    std::shared_ptr<FMDatabase> openStore() {
        ZAVError error;
        auto database = ZAVDatabaseSchema::openDatabase(path_, {}, &error);
        EXPECT_TRUE(database) << error.description();
        return database;
    }

    /// Makes a file that no write-ahead log belongs to.
    void makeFile(const std::string& script) { run(*openHandle(path_, withoutWriteAheadLog()), script); }

    ZAVError refusal() {
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, {}, &error), nullptr) << "the database was opened";
        EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_), nullptr) << "nobody asked for the reason";
        return error;
    }

    static std::string schemaOf(FMDatabase& database) {
        return scalar(database,
                      "SELECT group_concat(type || name || coalesce(sql, ''), char(10)) "
                      "FROM (SELECT * FROM sqlite_master ORDER BY type, name)");
    }

    TemporaryDirectory directory_;
    const std::string path_ = directory_.file("store.db");
};

TEST_F(Schema, IsMadeInANewFile) {
    const auto database = openStore();
    EXPECT_EQ(scalar(*database,
                     "SELECT group_concat(name) FROM (SELECT name FROM sqlite_master "
                     "WHERE type = 'table' AND name NOT LIKE 'sqlite%' ORDER BY name)"),
              "conversation_participants,conversations,event_content_parts,events,keyed_values_local,"
              "keyed_values_remote,messages,stream_recency,streams,synced_changes");
    EXPECT_GE(ZAVDatabaseSchema::currentVersion(), 1);
    EXPECT_EQ(ZAVDatabaseSchema::versionOfDatabase(*database), ZAVDatabaseSchema::currentVersion());
    EXPECT_FALSE(database->inTransaction());
}

TEST_F(Schema, IsTheSameWhenTheFileIsOpenedAgain) {
    const std::string made = schemaOf(*openStore());
    run(*openHandle(path_), "INSERT INTO streams (seq) VALUES (5)");
    const auto again = openStore();
    EXPECT_EQ(schemaOf(*again), made);
    EXPECT_EQ(scalar(*again, "SELECT seq FROM streams"), "5") << "opening a store emptied it";
}

TEST_F(Schema, IsNotWrittenWhenItIsUpToDate) {
    const auto database = openStore();
    const std::string made = schemaOf(*database);
    const StatementTrace trace(*database);
    ZAVError error;
    EXPECT_TRUE(ZAVDatabaseSchema::migrateDatabase(*database, &error)) << error.description();
    EXPECT_TRUE(ZAVDatabaseSchema::migrateDatabase(*database));
    EXPECT_EQ(trace.statements(), (Rows{"PRAGMA user_version", "PRAGMA user_version"}));
    EXPECT_EQ(schemaOf(*database), made);
}

TEST_F(Schema, OfTheFirstVersionIsBroughtUpToDateWithWhatItHolds) {
    const std::string made = schemaOf(*openStore());
    run(*openHandle(path_),
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, size,"
        " transfer_status, file_path) VALUES (0, 1, 70, 4, 'a'), (1, 1, 30, 0, 'b'), (2, 1, 5, 3, 'c');"
        "DROP INDEX event_content_parts_by_disk_use; DROP INDEX events_by_deleted_seq;"
        "DROP TABLE stream_recency; PRAGMA user_version=1");
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openCurrentDatabase(path_, {}, &error), nullptr);
    EXPECT_EQ(error.code(), ZAVDatabaseErrorOlderSchema) << error.description();
    const auto database = openStore();
    EXPECT_EQ(ZAVDatabaseSchema::versionOfDatabase(*database), schemaVersion);
    EXPECT_EQ(schemaOf(*database), made);
    EXPECT_EQ(ZAVEventRepository(database).totalDiskUtilizationOfEventContentPartsWithError(), 100U);
    EXPECT_EQ(scalar(*database, "PRAGMA integrity_check"), "ok");
}

TEST_F(Schema, IsMadeInADatabaseInMemory) {
    const auto database = ZAVDatabaseSchema::openDatabase(":memory:");
    ASSERT_TRUE(database);
    EXPECT_EQ(scalar(*database, "SELECT COUNT(*) FROM events"), "0");
}

TEST_F(Schema, HasVersionZeroInAnEmptyDatabase) {
    const auto database = openHandle();
    EXPECT_EQ(ZAVDatabaseSchema::versionOfDatabase(*database), 0);
    ASSERT_TRUE(ZAVDatabaseSchema::migrateDatabase(*database));
    EXPECT_EQ(ZAVDatabaseSchema::versionOfDatabase(*database), ZAVDatabaseSchema::currentVersion());
}

TEST_F(Schema, IsMadeAltogetherOrNotAtAll) {
    const auto database = openHandle();
    sqlite3_limit(database->sqliteHandle(), SQLITE_LIMIT_COLUMN, 12);
    ZAVError error;
    EXPECT_FALSE(ZAVDatabaseSchema::migrateDatabase(*database, &error));
    EXPECT_NE(error.message().find("migration 0001_event_store: "), std::string::npos)
        << error.description() << " does not name the migration that failed";
    EXPECT_FALSE(database->inTransaction());
    EXPECT_EQ(scalar(*database, "SELECT COUNT(*) FROM sqlite_master"), "0")
        << "half a schema was left behind";
    EXPECT_EQ(ZAVDatabaseSchema::versionOfDatabase(*database), 0);
}

TEST_F(Schema, IsNotMadeWhileAnotherConnectionWrites) {
    FMDatabaseOptions options;
    options.busyTimeout = std::chrono::milliseconds(0);
    const auto writer = openHandle(path_, options);
    const auto database = openHandle(path_, options);
    run(*writer, "BEGIN IMMEDIATE");
    ZAVError error;
    EXPECT_FALSE(ZAVDatabaseSchema::migrateDatabase(*database, &error));
    EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
    run(*writer, "COMMIT");
    EXPECT_TRUE(ZAVDatabaseSchema::migrateDatabase(*database, &error)) << error.description();
}

TEST_F(Schema, IsMadeWithoutAWriteAheadLogWhenNoneIsAskedFor) {
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase(path_, withoutWriteAheadLog(), &error);
    ASSERT_NE(database, nullptr) << error.description();
    EXPECT_EQ(scalar(*database, "PRAGMA journal_mode"), "delete");
    EXPECT_EQ(ZAVDatabaseSchema::versionOfDatabase(*database), ZAVDatabaseSchema::currentVersion());
}

TEST_F(Schema, IsNotOpenedWithAWriteAheadLogWhileAnotherConnectionReadsWithoutOne) {
    FMDatabaseOptions options;
    options.writeAheadLog = false;
    const auto reader = ZAVDatabaseSchema::openDatabase(path_, options);
    ASSERT_NE(reader, nullptr);
    auto reading = reader->executeQuery("SELECT name FROM sqlite_master");
    ASSERT_TRUE(reading && reading->next());
    options.writeAheadLog = true;
    options.busyTimeout = std::chrono::milliseconds(0);
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, options, &error), nullptr);
    EXPECT_EQ(error.code() & 0xFF, SQLITE_BUSY) << error.description();
    EXPECT_EQ(scalar(*reader, "PRAGMA journal_mode"), "delete") << "the mode changed under a reader";
}

TEST_F(Schema, IsNotMadeInAFileThatMayOnlyBeRead) {
    openHandle(path_).reset();
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, withAccess(FMDatabaseOptions::Access::readOnly), &error),
              nullptr);
    EXPECT_TRUE(error);
}

TEST_F(Schema, OfAStoreThatIsOnlyReadIsTakenAsItIs) {
    openStore().reset();
    ZAVError error;
    const auto database =
        ZAVDatabaseSchema::openDatabase(path_, withAccess(FMDatabaseOptions::Access::readOnly), &error);
    ASSERT_TRUE(database) << error.description();
    EXPECT_EQ(scalar(*database, "SELECT COUNT(*) FROM events"), "0");
}

TEST_F(Schema, OfANewerVersionIsRefusedAndLeftUntouched) {
    openStore().reset();
    makeFile("PRAGMA journal_mode=DELETE; PRAGMA user_version=" +
             std::to_string(ZAVDatabaseSchema::currentVersion() + 1));
    const std::string before = bytesOfFile(path_);
    const ZAVError error = refusal();
    EXPECT_EQ(error.domain(), "ZAVDatabase");
    EXPECT_EQ(error.code(), ZAVDatabaseErrorNewerSchema) << error.description();
    EXPECT_EQ(bytesOfFile(path_), before) << "a database from the future was written to";
}

TEST_F(Schema, OfANewerVersionIsRefusedByMigrating) {
    const auto database = openHandle();
    run(*database, "PRAGMA user_version=1000");
    ZAVError error;
    EXPECT_FALSE(ZAVDatabaseSchema::migrateDatabase(*database, &error));
    EXPECT_EQ(error.code(), ZAVDatabaseErrorNewerSchema) << error.description();
    EXPECT_EQ(scalar(*database, "SELECT COUNT(*) FROM sqlite_master"), "0");
    EXPECT_FALSE(database->inTransaction());
}

TEST_F(Schema, OfSomebodyElseIsRefused) {
    for (const char* foreign : {"CREATE TABLE notes (a)", "CREATE VIEW notes AS SELECT 1 AS a"}) {
        makeFile(foreign);
        const ZAVError error = refusal();
        EXPECT_EQ(error.domain(), "ZAVDatabase");
        EXPECT_EQ(error.code(), ZAVDatabaseErrorForeignSchema) << error.description();
        EXPECT_EQ(scalar(*openHandle(path_), "SELECT group_concat(name) FROM sqlite_master"), "notes");
        std::filesystem::remove(path_);
    }
}

TEST_F(Schema, OfAVersionBelowZeroIsSomebodyElses) {
    makeFile("PRAGMA user_version=-1");
    const ZAVError error = refusal();
    EXPECT_EQ(error.code(), ZAVDatabaseErrorForeignSchema) << error.description();
}

TEST_F(Schema, IsVerifiedAsOpeningTheFileWould) {
    const struct {
        std::string script;
        std::optional<std::int32_t> version;
        int code;
    } cases[] = {
        {"", 0, 0},
        {"CREATE TABLE notes (a)", std::nullopt, ZAVDatabaseErrorForeignSchema},
        {"PRAGMA user_version=-1", std::nullopt, ZAVDatabaseErrorForeignSchema},
        {"PRAGMA user_version=" + schemaVersionText, std::nullopt, ZAVDatabaseErrorForeignSchema},
        {"PRAGMA user_version=1000", std::nullopt, ZAVDatabaseErrorNewerSchema},
    };
    for (const auto& [script, version, code] : cases) {
        const auto database = openHandle();
        run(*database, script);
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::verifyDatabase(*database, &error), version) << script;
        EXPECT_EQ(error.code(), code) << script << ": " << error.description();
        EXPECT_EQ(ZAVDatabaseSchema::verifyDatabase(*database), version) << "nobody asked for the reason";
    }
}

TEST_F(Schema, OfAnOpenStoreIsVerifiedWithoutATraceOfIt) {
    const auto database = openStore();
    const std::string made = schemaOf(*database);
    run(*database, "CREATE TABLE drafts (a)");
    EXPECT_EQ(ZAVDatabaseSchema::verifyDatabase(*database), schemaVersion)
        << "an application may have tables of its own";
    run(*database, "DROP TABLE drafts");
    EXPECT_EQ(schemaOf(*database), made);
    EXPECT_FALSE(database->inTransaction());
    EXPECT_EQ(database->openResultSets(), 0U);
    for (const char* const script :
         {"CREATE VIEW v AS SELECT 1 AS a", "CREATE TRIGGER v AFTER DELETE ON events BEGIN SELECT 1; END",
          "DROP TABLE messages"}) {
        run(*database, script);
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::verifyDatabase(*database, &error), std::nullopt) << script;
        EXPECT_EQ(error.code(), ZAVDatabaseErrorForeignSchema) << error.description();
        EXPECT_EQ(database->openResultSets(), 0U) << "a refusal leaves no cursor open";
        static_cast<void>(database->executeStatements("DROP VIEW v") ||
                          database->executeStatements("DROP TRIGGER v"));
    }
}

TEST_F(Schema, ThatCannotBeReadIsNotVerified) {
    const auto database = openStore();
    const StatementInterruption interruption(*database, "SELECT substr(type");
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::verifyDatabase(*database, &error), std::nullopt);
    EXPECT_EQ(error.domain(), "SQLite") << error.description();
}

TEST_F(Schema, ThatIsUpToDateIsOpenedAsItIs) {
    openStore().reset();
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openCurrentDatabase(path_, {}, &error);
    ASSERT_NE(database, nullptr) << error.description();
    run(*database, "INSERT INTO streams (seq) VALUES (5)");
    EXPECT_EQ(scalar(*database, "PRAGMA journal_mode"), "wal");
}

TEST_F(Schema, ThatIsNotUpToDateIsNotMadeWhereItIsNotToBeChanged) {
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openCurrentDatabase(path_, {}, &error), nullptr);
    EXPECT_FALSE(std::filesystem::exists(path_)) << "a file was made";
    EXPECT_EQ(error.domain(), "SQLite") << error.description();

    makeFile("CREATE TABLE notes (a); DROP TABLE notes");
    const std::string before = bytesOfFile(path_);
    EXPECT_EQ(ZAVDatabaseSchema::openCurrentDatabase(path_, {}, &error), nullptr);
    EXPECT_EQ(error.code(), ZAVDatabaseErrorOlderSchema) << error.description();
    EXPECT_EQ(error.message(), "the database has no schema of the event store yet");
    EXPECT_EQ(ZAVDatabaseSchema::openCurrentDatabase(path_), nullptr) << "nobody asked for the reason";
    EXPECT_EQ(bytesOfFile(path_), before) << "a database that was refused was written to";
}

TEST_F(Schema, OfSomebodyElseIsRefusedWhereItIsNotToBeChanged) {
    openStore().reset();
    makeFile("PRAGMA journal_mode=DELETE; DROP TABLE messages");
    const std::string before = bytesOfFile(path_);
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openCurrentDatabase(path_, {}, &error), nullptr);
    EXPECT_EQ(error.message(), "the database lacks the table messages of the event store");
    EXPECT_EQ(bytesOfFile(path_), before) << "a database that was refused was written to";
}

TEST_F(Schema, HasNoTriggers) {
    EXPECT_EQ(scalar(*openStore(), "SELECT COUNT(*) FROM sqlite_master WHERE type = 'trigger'"), "0");
}

TEST_F(Schema, IsSound) {
    EXPECT_EQ(scalar(*openStore(), "PRAGMA integrity_check"), "ok");
}

/// A store into which rows are written by hand.
class StoredRows : public testing::Test {
protected:
    bool attempt(const std::string& sql) { return store_.database().executeStatements(sql); }

    int changesOf(const std::string& sql) {
        store_.execute(sql);
        return store_.database().changes();
    }

    std::string message() { return store_.database().lastError().message(); }

    TestStore store_;
};

TEST_F(StoredRows, GetAFreshIdentifierWhenNullIsInserted) {
    FMDatabase& database = store_.database();
    for (const char* insert :
         {"INSERT INTO events (database_identifier, type, client_id) VALUES (?, 4, x'01')",
          "INSERT INTO event_content_parts (database_identifier, event_content_part_id, "
          "event_database_identifier) VALUES (?, 0, random())"}) {
        ASSERT_TRUE(database.executeUpdate(insert, nullptr)) << database.lastError().description();
        const auto first = database.lastInsertRowId();
        ASSERT_TRUE(database.executeUpdate(insert, nullptr)) << database.lastError().description();
        EXPECT_NE(database.lastInsertRowId(), first) << insert;
    }
    EXPECT_EQ(store_.rows("SELECT COUNT(DISTINCT database_identifier) FROM events"), Rows{"2"});
}

TEST_F(StoredRows, OfEventsCollideByIdentifierAndByStreamAndSequence) {
    const std::string insert =
        "INSERT OR IGNORE INTO events "
        "(database_identifier, stream_database_identifier, seq, type, client_id) ";
    EXPECT_EQ(changesOf(insert + "VALUES (1, 10, 5, 4, x'01')"), 1);
    EXPECT_EQ(changesOf(insert + "VALUES (1, 20, 6, 4, x'02')"), 0) << "two events in one row";
    EXPECT_EQ(changesOf(insert + "VALUES (NULL, 10, 5, 4, x'03')"), 0) << "two events at one sequence";
    EXPECT_EQ(changesOf(insert + "VALUES (NULL, 10, 6, 4, x'01')"), 1);
    EXPECT_EQ(changesOf(insert + "VALUES (NULL, 20, 5, 4, x'01')"), 1) << "sequences belong to a stream";
}

TEST_F(StoredRows, OfEventsWithoutASequenceNeverCollide) {
    const std::string insert =
        "INSERT OR IGNORE INTO events (stream_database_identifier, seq, type, client_id) ";
    EXPECT_EQ(changesOf(insert + "VALUES (10, NULL, 4, x'01')"), 1);
    EXPECT_EQ(changesOf(insert + "VALUES (10, NULL, 4, x'01')"), 1);
}

TEST_F(StoredRows, OfEventsNeedATypeAndAClientIdentifier) {
    EXPECT_FALSE(attempt("INSERT INTO events (type, client_id) VALUES (NULL, x'01')"));
    EXPECT_EQ(message(), "NOT NULL constraint failed: events.type");
    EXPECT_FALSE(attempt("INSERT INTO events (type, client_id) VALUES (4, NULL)"));
    EXPECT_EQ(message(), "NOT NULL constraint failed: events.client_id");
}

TEST_F(StoredRows, OfContentPartsCollideByEventAndIndex) {
    const std::string insert =
        "INSERT OR IGNORE INTO event_content_parts (event_database_identifier, event_content_part_id, url) ";
    EXPECT_EQ(changesOf(insert + "VALUES (1, 0, 'first')"), 1);
    EXPECT_EQ(changesOf(insert + "VALUES (1, 0, 'second')"), 0) << "two parts at one index of an event";
    EXPECT_EQ(changesOf(insert + "VALUES (1, 1, 'first')"), 1);
    EXPECT_EQ(changesOf(insert + "VALUES (2, 0, 'first')"), 1) << "indexes belong to an event";
    EXPECT_EQ(store_.rows("SELECT url FROM event_content_parts WHERE event_database_identifier = 1 "
                          "AND event_content_part_id = 0"),
              Rows{"first"});
}

TEST_F(StoredRows, NeedNoParent) {
    EXPECT_TRUE(
        attempt("INSERT INTO events (type, client_id, stream_database_identifier) VALUES (4, x'01', 999)"))
        << message();
    EXPECT_TRUE(
        attempt("INSERT INTO event_content_parts (event_database_identifier, event_content_part_id) "
                "VALUES (999, 0)"))
        << message();
    EXPECT_TRUE(attempt("INSERT INTO messages (event_database_identifier) VALUES (999)")) << message();
    EXPECT_TRUE(
        attempt("INSERT INTO synced_changes (table_name, row_identifier, change_type) "
                "VALUES ('events', 999, 0)"))
        << message();
    EXPECT_EQ(store_.repository().allEvents()->size(), 1U) << "an event without a stream is not returned";
}

TEST_F(StoredRows, OfChangesMayRepeat) {
    const std::string insert =
        "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES ('events', 1, 0)";
    EXPECT_TRUE(attempt(insert));
    EXPECT_TRUE(attempt(insert)) << message();
}

TEST_F(StoredRows, KeepTheFormInWhichTheyAreWritten) {
    store_.execute(
        "INSERT INTO events (type, creator_id, member_id, creator_name, client_id, timestamp, seq) "
        "VALUES (4, '007', '1e3', '12', x'3132', 9007199254740993, -1);"
        "INSERT INTO event_content_parts (event_content_part_id, event_database_identifier, type, value, "
        "access_expiration, url, size, file_path, last_accessed) "
        "VALUES (0, 1, '5', x'3132', 1.5, '99', 9007199254740993, '0012', 2.25);"
        "INSERT INTO keyed_values_remote (object_database_identifier, object_type, key_type, key, value) "
        "VALUES (1, 'event', 0, '01', '0012')");
    EXPECT_EQ(
        store_.rows("SELECT quote(creator_id), quote(member_id), quote(creator_name), quote(client_id), "
                    "quote(timestamp), quote(seq) FROM events"),
        Rows{"'007'|'1e3'|'12'|X'3132'|9007199254740993|-1"});
    EXPECT_EQ(
        store_.rows("SELECT quote(type), quote(value), quote(access_expiration), quote(url), quote(size), "
                    "quote(file_path), quote(last_accessed) FROM event_content_parts"),
        Rows{"'5'|X'3132'|1.5|'99'|9007199254740993|'0012'|2.25"});
    EXPECT_EQ(store_.rows("SELECT quote(key), quote(value) FROM keyed_values_remote"), Rows{"'01'|'0012'"});
}

TEST_F(StoredRows, OfADeletedEventLeaveTheirIdentifierToNobody) {
    store_.addStream(uuidNumber(1));
    const auto deleted = makeEvent(EventType_MESSAGE, uuidNumber(1), 2);
    deleted->set_content(std::vector<std::shared_ptr<ZAVTContent>>{makeTextPart("orphan")});
    deleted->set_transient_metadata(ZAVDictionary{{"key", std::string("orphan")}});
    ASSERT_TRUE(store_.repository().persistEvents({deleted}));
    store_.execute("DELETE FROM events");
    ASSERT_EQ(store_.rows("SELECT COUNT(*) FROM event_content_parts"), Rows{"1"}) << "parts stay behind";

    const auto later = makeEvent(EventType_MEMBER_ADDED, uuidNumber(1), 3);
    ASSERT_TRUE(store_.repository().persistEvents({later}));
    EXPECT_GT(later->databaseIdentifier(), deleted->databaseIdentifier())
        << "the row identifier of a deleted event was given again";
    const auto readBack = store_.repository().eventForDatabaseIdentifier(later->databaseIdentifier());
    ASSERT_TRUE(readBack);
    EXPECT_TRUE(readBack->contentParts().empty()) << "an event inherited the parts of another";
    EXPECT_TRUE(!readBack->transient_metadata() || readBack->transient_metadata()->empty())
        << "an event inherited the metadata of another";
}

TEST_F(StoredRows, OfADeletedEventLeaveTheirIdentifierToNobodyAfterReopening) {
    store_.execute("INSERT INTO events (type, client_id) VALUES (4, x'01'); DELETE FROM events");
    const auto again = ZAVDatabaseSchema::openDatabase(store_.path());
    ASSERT_TRUE(again);
    run(*again, "INSERT INTO events (type, client_id) VALUES (4, x'01')");
    EXPECT_EQ(again->lastInsertRowId(), 2);
}

}  // namespace
}  // namespace zav::test
