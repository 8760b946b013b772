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
    void makeFile(const std::string& script) {
        FMDatabaseOptions options;
        options.writeAheadLog = false;
        run(*openHandle(path_, options), script);
    }

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
              "keyed_values_remote,messages,streams,synced_changes");
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
    FMDatabaseOptions options;
    options.writeAheadLog = false;
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase(path_, options, &error);
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
    FMDatabaseOptions options;
    options.access = FMDatabaseOptions::Access::readOnly;
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, options, &error), nullptr);
    EXPECT_TRUE(error);
}

TEST_F(Schema, OfAStoreThatIsOnlyReadIsTakenAsItIs) {
    openStore().reset();
    FMDatabaseOptions options;
    options.access = FMDatabaseOptions::Access::readOnly;
    ZAVError error;
    const auto database = ZAVDatabaseSchema::openDatabase(path_, options, &error);
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

#define EVENT_COLUMNS                                                                               \
    "SELECT events.client_id, events.client_seq, events.creator_id, events.member_id, "             \
    "events.preceding_seq, events.stream_database_identifier, events.subtype, events.target_seq, "  \
    "events.timestamp, events.type, events.seq AS event_seq, events.database_identifier AS "        \
    "event_database_identifier, streams.stream_id AS event_stream_id, streams.seq AS streams_seq, " \
    "events.creator_name"
#define EVENT_SOURCE \
    " FROM events LEFT JOIN streams ON (events.stream_database_identifier = streams.database_identifier)"
#define PART_COLUMNS                                                                                    \
    "SELECT event_content_parts.event_content_part_id, event_content_parts.event_database_identifier, " \
    "event_content_parts.type, event_content_parts.value, event_content_parts.access_expiration, "      \
    "event_content_parts.url, event_content_parts.size, event_content_parts.transfer_status, "          \
    "event_content_parts.file_path, event_content_parts.last_accessed, event_content_parts.purged, "    \
    "events.client_id, events.seq, streams.stream_id"
#define PART_RANK ", (streams.seq - events.preceding_seq) AS distance_from_eos"
#define PART_SOURCE                                                                                       \
    " FROM event_content_parts LEFT JOIN events ON (events.database_identifier = "                        \
    "event_content_parts.event_database_identifier) LEFT JOIN streams ON (streams.database_identifier = " \
    "events.stream_database_identifier) "
#define PART_RANKING "ORDER BY distance_from_eos ASC, events.client_seq DESC, events.creator_id DESC"

/// How a statement is to find its rows: the first step of the engine's plan.
struct Lookup {
    const char* name;
    const char* sql;
    const char* plan;
    bool sorts = false;  ///< whether no index yields the rows in their order
};

const Lookup lookups[] = {
    {"PublishableEvents",
     EVENT_COLUMNS EVENT_SOURCE " WHERE events.seq IS NULL AND event_stream_id IS NOT NULL",
     "SCAN events USING INDEX events_without_seq"},
    {"UnpublishableEvents",
     EVENT_COLUMNS EVENT_SOURCE " WHERE events.seq IS NULL AND event_stream_id IS NULL",
     "SCAN events USING INDEX events_without_seq"},
    {"UnprocessedEvents",
     EVENT_COLUMNS ", synced_changes.*" EVENT_SOURCE
                   " LEFT JOIN synced_changes ON (events.database_identifier = row_identifier) "
                   "WHERE synced_changes.table_name = ? AND change_type = ?",
     "SEARCH synced_changes USING INDEX synced_changes_by_row (table_name=?)"},
    {"EventsOfARevivedStream",
     EVENT_COLUMNS EVENT_SOURCE " WHERE events.seq IS NOT NULL AND streams.database_identifier = ? "
                                "ORDER BY events.preceding_seq, events.creator_id, events.client_seq",
     "SEARCH streams USING INTEGER PRIMARY KEY (rowid=?)", true},
    {"EventAtASequence", EVENT_COLUMNS EVENT_SOURCE " WHERE events.seq = ? AND event_stream_id = ?",
     "SEARCH streams USING INDEX streams_by_stream_id (stream_id=?)"},
    {"EventInARow", EVENT_COLUMNS EVENT_SOURCE " WHERE events.database_identifier = ?",
     "SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"},
    {"StreamByItsIdentifier", "SELECT * FROM streams WHERE stream_id = ? LIMIT 1",
     "SEARCH streams USING INDEX streams_by_stream_id (stream_id=?)"},
    {"StreamInARow", "SELECT * FROM streams WHERE database_identifier = ? LIMIT 1",
     "SEARCH streams USING INTEGER PRIMARY KEY (rowid=?)"},
    {"EventThatCollides", "SELECT * FROM events WHERE stream_database_identifier = ? AND seq = ? LIMIT 1",
     "SEARCH events USING INDEX events_by_stream_and_seq (stream_database_identifier=? AND seq=?)"},
    {"SequencingAnEvent",
     "UPDATE events SET seq = ?, creator_id = ?, timestamp = ? WHERE database_identifier = ?",
     "SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"},
    {"DeletingChanges",
     "DELETE FROM synced_changes WHERE table_name = 'events' AND row_identifier IN (?, ?, ?)",
     "SEARCH synced_changes USING INDEX synced_changes_by_row (table_name=? AND row_identifier=?)"},
    {"DeletingAnEvent", "DELETE FROM events WHERE database_identifier = ?",
     "SEARCH events USING INTEGER PRIMARY KEY (rowid=?)"},
    {"TombstoningAnEvent", "UPDATE events SET type = ? WHERE seq = ? AND stream_database_identifier = ?",
     "SEARCH events USING INDEX events_by_stream_and_seq (stream_database_identifier=? AND seq=?)"},
    {"ConversationOfAStream",
     "SELECT conversations.database_identifier FROM conversations WHERE conversations.stream_id = ?",
     "SEARCH conversations USING COVERING INDEX conversations_by_stream_id (stream_id=?)"},
    {"UpdatingAParticipant",
     "UPDATE conversation_participants SET seq = ? WHERE member_id = ? AND "
     "conversation_database_identifier = ?",
     "SEARCH conversation_participants USING INDEX conversation_participants_by_member "
     "(conversation_database_identifier=? AND member_id=?)"},
    {"UpdatingAMessage", "UPDATE messages SET seq = ? WHERE event_database_identifier = ?",
     "SEARCH messages USING INDEX messages_by_event (event_database_identifier=?)"},
    {"PartsOfAnEvent",
     PART_COLUMNS PART_SOURCE
     "WHERE event_database_identifier = ? ORDER BY event_content_parts.event_content_part_id ASC",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_event_and_index "
     "(event_database_identifier=?)"},
    {"PartInARow", PART_COLUMNS PART_SOURCE "WHERE event_content_parts.database_identifier = ?",
     "SEARCH event_content_parts USING INTEGER PRIMARY KEY (rowid=?)"},
    {"PartAtAnIndexOfAnEvent",
     PART_COLUMNS PART_SOURCE "WHERE event_database_identifier = ? AND event_content_part_id = ?",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_event_and_index "
     "(event_database_identifier=? AND event_content_part_id=?)"},
    {"PartOfAMessage",
     PART_COLUMNS PART_SOURCE
     "LEFT JOIN messages ON (event_content_parts.event_database_identifier = "
     "messages.event_database_identifier) WHERE messages.database_identifier = ? AND "
     "event_content_part_id = ?",
     "SEARCH messages USING INTEGER PRIMARY KEY (rowid=?)"},
    {"PartOfAnEventByItsClientIdentifier",
     PART_COLUMNS PART_SOURCE "WHERE events.client_id = ? AND event_content_parts.event_content_part_id = ?",
     "SEARCH events USING INDEX events_by_client_id (client_id=?)"},
    {"PartByItsURL", PART_COLUMNS PART_SOURCE "WHERE event_content_parts.url = ?",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_url (url=?)"},
    {"PartsWithoutAnUploadURL",
     PART_COLUMNS PART_SOURCE
     "WHERE streams.stream_id IS NOT NULL AND event_content_parts.file_path IS NOT NULL AND "
     "event_content_parts.url IS NULL AND (event_content_parts.transfer_status = ? OR "
     "event_content_parts.transfer_status = ?)",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_transfer_status (transfer_status=?)"},
    {"IncompleteUploads",
     PART_COLUMNS PART_SOURCE
     "WHERE event_content_parts.file_path IS NOT NULL AND event_content_parts.url IS NOT NULL AND "
     "event_content_parts.transfer_status = ? LIMIT ?",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_transfer_status (transfer_status=?)"},
    {"IncompleteDownloads",
     PART_COLUMNS PART_RANK PART_SOURCE
     "WHERE ((url IS NOT NULL) AND (access_expiration > ?)) AND file_path IS NOT NULL AND "
     "transfer_status = ? AND (purged = 0 OR purged IS NULL) " PART_RANKING " LIMIT ?",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_transfer_status (transfer_status=?)",
     true},
    {"UpdatingAPart",
     "UPDATE event_content_parts SET access_expiration = ?, url = ?, size = ?, transfer_status = ?, "
     "file_path = ?, last_accessed = ?, purged = ? WHERE event_content_part_id = ? AND "
     "event_database_identifier = ?",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_event_and_index "
     "(event_database_identifier=? AND event_content_part_id=?)"},
    {"DiskUtilization",
     "SELECT SUM(event_content_parts.size) FROM event_content_parts WHERE (transfer_status = ? OR "
     "transfer_status = ? OR transfer_status = ?) AND file_path IS NOT NULL AND size IS NOT NULL AND "
     "(purged = 0 OR purged IS NULL)",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_transfer_status (transfer_status=?)"},
    {"EventsWithoutASequence",
     "SELECT database_identifier FROM events INDEXED BY events_without_seq WHERE seq IS NULL",
     "SCAN events USING INDEX events_without_seq"},
    {"DiskUtilizationIn64Bits",
     "SELECT IFNULL(SUM(size), 0) FROM event_content_parts WHERE transfer_status IN (0, 1, 4) AND "
     "file_path IS NOT NULL AND size IS NOT NULL AND (purged = 0 OR purged IS NULL)",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_transfer_status (transfer_status=?)"},
    {"PartsToPurge",
     PART_COLUMNS PART_SOURCE
     "WHERE file_path IS NOT NULL AND transfer_status != ? AND transfer_status != ? AND "
     "last_accessed IS NOT NULL AND (purged = 0 OR purged IS NULL) ORDER BY last_accessed ASC",
     "SEARCH event_content_parts USING INDEX event_content_parts_by_last_accessed (last_accessed>?)"},
};

const Lookup expiredDownloads[] = {
    {"ForSomeTypes",
     PART_COLUMNS PART_RANK PART_SOURCE
     "WHERE ((url IS NULL) OR (access_expiration IS NULL) OR (access_expiration <= ?)) AND       "
     "file_path IS NOT NULL AND (purged = 0 OR purged IS NULL) AND       "
     "(transfer_status = ? OR (transfer_status = ? AND event_content_parts.type IN ('a/b','c/d')) OR "
     "(transfer_status = ? AND size <= ?))       " PART_RANKING "       LIMIT ?",
     nullptr, true},
    {"ForAllTypes",
     PART_COLUMNS PART_RANK
     " " PART_SOURCE
     "WHERE ((url IS NULL) OR (access_expiration IS NULL) OR (access_expiration <= ?)) AND       "
     "file_path IS NOT NULL AND (purged = 0 OR purged IS NULL) AND       "
     "(transfer_status = ? OR transfer_status = ? OR (transfer_status = ? AND size <= ?))      " PART_RANKING
     "       LIMIT ?",
     nullptr, true},
};

/// What the engine plans to do for a statement.
class QueryPlan : public testing::TestWithParam<Lookup> {
protected:
    void SetUp() override {
        if (sqlite3_libversion_number() < 3040000) {
            GTEST_SKIP() << "older engines plan, and describe their plans, in other words";
        }
    }

    Rows plan() {
        Rows steps;
        auto& database = store_.database();
        sqlite3_stmt* statement = nullptr;
        const std::string sql = std::string("EXPLAIN QUERY PLAN ") + GetParam().sql;
        EXPECT_EQ(sqlite3_prepare_v2(database.sqliteHandle(), sql.c_str(), -1, &statement, nullptr),
                  SQLITE_OK)
            << sqlite3_errmsg(database.sqliteHandle());
        while (sqlite3_step(statement) == SQLITE_ROW) {
            steps.emplace_back(reinterpret_cast<const char*>(sqlite3_column_text(statement, 3)));
        }
        sqlite3_finalize(statement);
        return steps;
    }

    TestStore store_;
};

std::string nameOf(const testing::TestParamInfo<Lookup>& lookup) {
    return lookup.param.name;
}

INSTANTIATE_TEST_SUITE_P(Of, QueryPlan, testing::ValuesIn(lookups), nameOf);

TEST_P(QueryPlan, BeginsWithAnIndexAndReadsNoTableInFull) {
    const Rows steps = plan();
    ASSERT_FALSE(steps.empty());
    EXPECT_EQ(steps.front(), GetParam().plan);
    for (std::size_t index = 1; index < steps.size(); ++index) {
        EXPECT_FALSE(steps[index].starts_with("SCAN ")) << "a table is read in full: " << steps[index];
        EXPECT_TRUE(GetParam().sorts || steps[index].find("TEMP B-TREE") == std::string::npos)
            << "rows that an index yields in their order are sorted: " << steps[index];
    }
}

using ExpiredDownloadsPlan = QueryPlan;

INSTANTIATE_TEST_SUITE_P(Choosing, ExpiredDownloadsPlan, testing::ValuesIn(expiredDownloads), nameOf);

TEST_P(ExpiredDownloadsPlan, FindsEachOfItsThreeAlternativesByAnIndex) {
    const Rows steps = plan();
    ASSERT_GE(steps.size(), 7U) << testing::PrintToString(steps);
    const char* const byStatus =
        "SEARCH event_content_parts USING INDEX event_content_parts_by_transfer_status (transfer_status=?)";
    EXPECT_EQ(Rows(steps.begin(), steps.begin() + 7),
              (Rows{"MULTI-INDEX OR", "INDEX 1", byStatus, "INDEX 2", byStatus, "INDEX 3", byStatus}));
    for (const std::string& step : steps) {
        EXPECT_FALSE(step.starts_with("SCAN ")) << "a table is read in full: " << step;
    }
}

}  // namespace
}  // namespace zav::test
