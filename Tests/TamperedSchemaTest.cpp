#include <gtest/gtest.h>
#include <sqlite3.h>

#include <ostream>
#include <set>
#include <string>

#include "Operations/Catalogue.h"
#include "Support/DatabaseHandles.h"
#include "Support/HostileFile.h"

namespace zav::test {
namespace {

struct Tampering {
    const char* name;
    std::string script;
    int neededEngine = 0;            ///< the engine's oldest version that can run the script
    bool crashesOldEngines = false;  ///< when it comes behind a handle that is open, which nobody can prevent
};

void PrintTo(const Tampering& tampering, std::ostream* stream) {
    *stream << tampering.script;
}

std::string nameOf(const testing::TestParamInfo<Tampering>& tampering) {
    return tampering.param.name;
}

const std::string endlessNumbers =
    "WITH RECURSIVE n (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n) SELECT i AS database_identifier, i AS "
    "stream_id, i AS seq FROM n";

class TamperedSchema : public HostileFile, public testing::WithParamInterface<Tampering> {
protected:
    void SetUp() override {
        if (sqlite3_libversion_number() < GetParam().neededEngine) {
            GTEST_SKIP() << "this engine is too old for it";
        }
        const std::string copy = directory_.file("copy.db");
        writeFile(copy, genuineStore());
        const std::string failure = AttackersConnection(copy).attempt(GetParam().script);
        if (failure.starts_with("no such module")) {
            GTEST_SKIP() << "this engine was built without it: " << failure;
        }
        ASSERT_EQ(failure, "") << GetParam().script;
        sideEffects = 0;
    }

    /// What opening refuses can still be put behind a handle that is open already.
    Outcome useWhileItIsTamperedWith() {
        return use([this](FMDatabase&) {
            tamper(GetParam().script);
            sideEffects = 0;
        });
    }
};

TEST_P(TamperedSchema, IsRefusedOrUsedWithoutHarm) {
    tamper(GetParam().script);
    sideEffects = 0;
    const Outcome outcome = use();
    EXPECT_EQ(outcome.stopped, std::set<std::string>{}) << "these went on and on";
    EXPECT_EQ(sideEffects, 0);
}

TEST_P(TamperedSchema, IsUsedWithoutHarmByAHandleThatWasOpenBefore) {
    if (GetParam().crashesOldEngines && sqlite3_libversion_number() < 3040000) {
        GTEST_SKIP() << "an old engine crashes on it; opening refuses it";
    }
    const Outcome outcome = useWhileItIsTamperedWith();
    ASSERT_TRUE(outcome.opened) << outcome.refusal.description();
    EXPECT_EQ(outcome.stopped, std::set<std::string>{}) << "these went on and on";
    EXPECT_EQ(sideEffects, 0);
}

INSTANTIATE_TEST_SUITE_P(
    WithTriggers, TamperedSchema,
    testing::Values(
        Tampering{"ThatDeleteOtherRows",
                  "CREATE TRIGGER t AFTER INSERT ON events BEGIN DELETE FROM streams; DELETE FROM "
                  "event_content_parts; DELETE FROM synced_changes; END"},
        Tampering{"ThatMoveTheRowJustWritten",
                  "CREATE TRIGGER t AFTER INSERT ON events BEGIN UPDATE events SET database_identifier = "
                  "database_identifier + 1000, client_id = x'00' WHERE database_identifier = "
                  "NEW.database_identifier; END"},
        Tampering{"ThatDeleteTheRowJustWritten",
                  "CREATE TRIGGER t AFTER INSERT ON events BEGIN DELETE FROM events WHERE "
                  "database_identifier = NEW.database_identifier; END; CREATE TRIGGER u AFTER UPDATE ON "
                  "event_content_parts BEGIN DELETE FROM event_content_parts; END"},
        Tampering{"ThatIgnoreEachChange",
                  "CREATE TRIGGER a BEFORE INSERT ON events BEGIN SELECT RAISE(IGNORE); END; CREATE TRIGGER "
                  "b BEFORE UPDATE ON events BEGIN SELECT RAISE(IGNORE); END; CREATE TRIGGER c BEFORE "
                  "INSERT ON streams BEGIN SELECT RAISE(IGNORE); END"},
        Tampering{"ThatRollBack",
                  "CREATE TRIGGER t BEFORE INSERT ON event_content_parts BEGIN SELECT RAISE(ROLLBACK, 'all "
                  "of it'); END; CREATE TRIGGER u BEFORE DELETE ON synced_changes BEGIN SELECT "
                  "RAISE(ROLLBACK, 'all of it'); END"},
        Tampering{"ThatCallEachOther",
                  "CREATE TRIGGER t AFTER INSERT ON synced_changes BEGIN INSERT INTO messages (seq) VALUES "
                  "(1); END; CREATE TRIGGER u AFTER INSERT ON messages BEGIN INSERT INTO synced_changes "
                  "(table_name, row_identifier, change_type) VALUES ('events', 1, 0); END"},
        Tampering{"ThatNameWhatIsNotThere",
                  "CREATE TRIGGER t AFTER INSERT ON events BEGIN INSERT INTO absent VALUES (1); END"},
        Tampering{"ThatWriteTheSchemaTable",
                  "CREATE TRIGGER t AFTER INSERT ON events BEGIN DELETE FROM sqlite_master; END"},
        Tampering{"OfATableThatIsNotThere",
                  inSchemaTable("INSERT INTO sqlite_master VALUES ('trigger', 't', 'absent', 0, 'CREATE "
                                "TRIGGER t AFTER INSERT ON absent BEGIN SELECT 1; END')")}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    WithViews, TamperedSchema,
    testing::Values(
        Tampering{"InPlaceOfEvents", inPlaceOf("events", "CREATE VIEW events AS SELECT * FROM stored")},
        Tampering{"InPlaceOfParts", inPlaceOf("event_content_parts",
                                              "CREATE VIEW event_content_parts AS SELECT * FROM stored")},
        Tampering{"InPlaceOfChanges",
                  inPlaceOf("synced_changes", "CREATE VIEW synced_changes AS SELECT * FROM stored")},
        Tampering{"InPlaceOfMetadata", inPlaceOf("keyed_values_remote",
                                                 "CREATE VIEW keyed_values_remote AS SELECT * FROM stored")},
        Tampering{
            "ThatTakeChanges",
            inPlaceOf("events",
                      "CREATE VIEW events AS SELECT * FROM stored; CREATE TRIGGER a INSTEAD OF INSERT "
                      "ON events BEGIN DELETE FROM stored WHERE database_identifier = 1; INSERT INTO "
                      "stored (type, client_id) VALUES (NEW.type, NEW.client_id); END; CREATE TRIGGER b "
                      "INSTEAD OF UPDATE ON events BEGIN DELETE FROM streams; END; CREATE TRIGGER c "
                      "INSTEAD OF DELETE ON events BEGIN DELETE FROM event_content_parts; END")},
        Tampering{"WithoutSomeColumns",
                  inPlaceOf("events", "CREATE VIEW events AS SELECT database_identifier, type FROM stored")},
        Tampering{"OfThemselves",
                  "DROP TABLE events; CREATE VIEW events AS SELECT 1 AS database_identifier;" +
                      ofSchemaRow("events", "sql = 'CREATE VIEW events AS SELECT * FROM events'")}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    WithVirtualTables, TamperedSchema,
    testing::Values(
        Tampering{"OfFullTextInPlaceOfEvents",
                  inPlaceOf("events", "CREATE VIRTUAL TABLE events USING fts5(" + eventColumns + ")") +
                      "INSERT INTO events SELECT * FROM stored"},
        Tampering{
            "OfOldFullTextInPlaceOfParts",
            inPlaceOf("event_content_parts",
                      "CREATE VIRTUAL TABLE event_content_parts USING fts4(database_identifier, "
                      "event_content_part_id, event_database_identifier, type, value, "
                      "access_expiration, url, size, transfer_status, file_path, last_accessed, purged)") +
                "INSERT INTO event_content_parts SELECT * FROM stored"},
        Tampering{"OfFullTextWithoutTheirContent",
                  inPlaceOf("events", "CREATE VIRTUAL TABLE events USING fts5(" + eventColumns + ")") +
                      "DROP TABLE events_data"},
        Tampering{"OfRectanglesInPlaceOfStreams",
                  inPlaceOf("streams",
                            "CREATE VIRTUAL TABLE streams USING rtree(database_identifier, stream_id, seq)")},
        Tampering{"OfPagesInPlaceOfStreams",
                  inPlaceOf("streams", "CREATE VIRTUAL TABLE streams USING dbstat")},
        Tampering{
            "OfAModuleThatIsNotThere",
            ofSchemaRow("streams", "sql = 'CREATE VIRTUAL TABLE streams USING absent(a)', rootpage = 0")}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    WithOtherTables, TamperedSchema,
    testing::Values(
        Tampering{"WithGeneratedColumns",
                  remade("events",
                         "(database_identifier INTEGER PRIMARY KEY, type INTEGER, creator_id AS (member_id), "
                         "seq INTEGER, timestamp AS (type * 2) STORED, preceding_seq, client_seq, subtype, "
                         "member_id, target_seq, stream_database_identifier, client_id, creator_name)",
                         "database_identifier, type, seq, stream_database_identifier, client_id"),
                  3031000},
        Tampering{"WithAColumnGeneratedAtLength",
                  remade("streams",
                         "(database_identifier INTEGER PRIMARY KEY, stream_id, seq AS "
                         "(hex(zeroblob(1000000))))",
                         "database_identifier, stream_id"),
                  3031000},
        Tampering{
            "WithAConditionThatNoRowMeets",
            inPlaceOf("synced_changes",
                      "CREATE TABLE synced_changes (database_identifier INTEGER PRIMARY KEY, table_name, "
                      "row_identifier, change_type, CHECK (change_type IS NOT change_type))")},
        Tampering{"WithoutRowIdentifiers",
                  remade("events",
                         "(database_identifier PRIMARY KEY, type, creator_id, seq, timestamp, preceding_seq, "
                         "client_seq, subtype, member_id, target_seq, stream_database_identifier, client_id, "
                         "creator_name) WITHOUT ROWID",
                         eventColumns)},
        Tampering{"WithTypesThatAreEnforced",
                  remade("events",
                         "(database_identifier INTEGER PRIMARY KEY, type INTEGER, creator_id INTEGER, seq "
                         "INTEGER, timestamp INTEGER, preceding_seq INTEGER, client_seq INTEGER, subtype "
                         "TEXT, member_id TEXT, target_seq INTEGER, stream_database_identifier BLOB, "
                         "client_id INTEGER, creator_name TEXT) STRICT",
                         "database_identifier, type"),
                  3037000},
        Tampering{
            "WithForeignKeysIntoNowhere",
            "ALTER TABLE event_content_parts ADD COLUMN nowhere REFERENCES absent (a) ON DELETE CASCADE"},
        Tampering{"WithAnOrderThatNobodyKnows",
                  ofSchemaRow("synced_changes",
                              "sql = replace(sql, 'table_name TEXT', 'table_name TEXT COLLATE absent')") +
                      ofSchemaRow("synced_changes_by_row", "sql = sql")},
        Tampering{"WithAnOrderOfAnotherIndex",
                  ofSchemaRow("events_by_client_id", "sql = replace(sql, '(client_id)', '(type)')")},
        Tampering{"WithoutSomeColumns",
                  "ALTER TABLE streams RENAME COLUMN seq TO sequel; ALTER TABLE event_content_parts RENAME "
                  "COLUMN purged TO perged; ALTER TABLE keyed_values_remote RENAME COLUMN value TO valuable",
                  3025000},
        Tampering{"WithAnotherNameForTheRowOfAStream",
                  "ALTER TABLE streams RENAME COLUMN database_identifier TO row_of_stream", 3025000},
        Tampering{"WithoutEvents", "DROP TABLE events"},
        Tampering{"WithoutParts", "DROP TABLE event_content_parts"},
        Tampering{"WithoutMetadata", "DROP TABLE keyed_values_remote"},
        Tampering{"WithoutStreams", "DROP TABLE streams"},
        Tampering{
            "WithAMegabyteInEachNumber",
            "UPDATE events SET timestamp = printf('%.*c', 1000000, 'x'), preceding_seq = printf('%.*c', "
            "1000000, 'x') WHERE database_identifier IN (2, 23); UPDATE event_content_parts SET size = "
            "printf('%.*c', 1000000, 'x'), access_expiration = printf('%.*c', 1000000, '9x') WHERE "
            "database_identifier IN (5, 33)"},
        Tampering{
            "WithDistributionsThatCannotBe",
            "ANALYZE; UPDATE sqlite_stat1 SET stat = '99999999999999999999 -1 x 0 unordered sz=0 "
            "noskipscan'; INSERT INTO sqlite_stat1 VALUES ('events', 'absent', 'x'), (NULL, NULL, NULL), "
            "('absent', 'events_by_client_id', ''), ('events', 'events_by_stream_and_seq', '0 0 0 0 0 0')"}),
    nameOf);

INSTANTIATE_TEST_SUITE_P(
    WithASchemaTable, TamperedSchema,
    testing::Values(
        Tampering{"CutShort", ofSchemaRow("events", "sql = substr(sql, 1, 60)")},
        Tampering{"OfAnIndexCutShort", ofSchemaRow("events_by_client_id", "sql = substr(sql, 1, 30)")},
        Tampering{"OfOtherStatements", ofSchemaRow("streams", "sql = 'DROP TABLE events'")},
        Tampering{"OfATableThatIsNothing", ofSchemaRow("streams", "sql = NULL")},
        Tampering{"OfATableThatIsEmptyText", ofSchemaRow("streams", "sql = ''")},
        Tampering{"OfBytes", ofSchemaRow("streams", "sql = x'00FF00FF', name = x'00'")},
        Tampering{"OfAnotherKind", ofSchemaRow("streams", "type = 'index'")},
        Tampering{"OfNoKind", ofSchemaRow("streams", "type = 'garbage'")},
        Tampering{"OfAnIndexThatIsATable", ofSchemaRow("events_by_client_id", "type = 'table'")},
        Tampering{"OfAnIndexOfAnotherTable", ofSchemaRow("events_by_client_id", "tbl_name = 'streams'")},
        Tampering{
            "OfTwoTablesOfOneName",
            inSchemaTable("INSERT INTO sqlite_master SELECT * FROM sqlite_master WHERE name = 'events'")},
        Tampering{"OfATableOnPageZero", ofSchemaRow("events", "rootpage = 0")},
        Tampering{"OfATableOnItsOwnPage", ofSchemaRow("events", "rootpage = 1")},
        Tampering{"OfATableBeforeTheFile", ofSchemaRow("events", "rootpage = -1")},
        Tampering{"OfATableBehindTheFile", ofSchemaRow("events", "rootpage = 1000000")},
        Tampering{"OfATableNowhere", ofSchemaRow("events", "rootpage = 'x'")},
        Tampering{"OfTwoTablesOnOnePage",
                  ofSchemaRow("events",
                              "rootpage = (SELECT rootpage FROM sqlite_master WHERE name = "
                              "'event_content_parts')")},
        Tampering{"OfATableOnThePageOfAnIndex",
                  ofSchemaRow("events",
                              "rootpage = (SELECT rootpage FROM sqlite_master WHERE name = "
                              "'events_by_client_id')")},
        Tampering{"OfAnIndexOnThePageOfATable", ofSchemaRow("event_content_parts_by_url",
                                                            "rootpage = (SELECT rootpage FROM sqlite_master "
                                                            "WHERE name = 'event_content_parts')")},
        Tampering{"WithoutRows", inSchemaTable("DELETE FROM sqlite_master")},
        Tampering{"WithoutIndexes", inSchemaTable("DELETE FROM sqlite_master WHERE type = 'index'")},
        Tampering{"OfAMegabyte",
                  ofSchemaRow("streams",
                              "sql = 'CREATE TABLE streams (database_identifier, stream_id, seq, a' "
                              "|| replace(hex(zeroblob(100000)), '0', ' , a') || ')'")},
        Tampering{"OfDeepNesting",
                  ofSchemaRow("streams",
                              "sql = 'CREATE TABLE streams (database_identifier, stream_id, seq, CHECK (' || "
                              "replace(hex(zeroblob(50000)), '0', '(') || '1))'")},
        Tampering{"WithoutLastRows",
                  inSchemaTable("DELETE FROM sqlite_master WHERE name = 'sqlite_sequence'"), 0, true},
        Tampering{"OfOtherLastRows",
                  ofSchemaRow("sqlite_sequence", "sql = 'CREATE TABLE sqlite_sequence (name, seq, more)'"), 0,
                  true},
        Tampering{"OfLastRowsWithoutRowIdentifiers",
                  ofSchemaRow("sqlite_sequence",
                              "sql = 'CREATE TABLE sqlite_sequence (name PRIMARY KEY, seq) WITHOUT ROWID'"),
                  0, true},
        Tampering{"OfLastRowsOnThePageOfEvents",
                  ofSchemaRow("sqlite_sequence",
                              "rootpage = (SELECT rootpage FROM sqlite_master WHERE name = "
                              "'events')")},
        Tampering{"WithTheGreatestLastRow", "UPDATE sqlite_sequence SET seq = 9223372036854775807"},
        Tampering{"WithLastRowsThatAreNone",
                  "UPDATE sqlite_sequence SET seq = 'x'; INSERT INTO sqlite_sequence VALUES ('events', -5), "
                  "('events', NULL), (NULL, 7), (x'00', x'00')"},
        Tampering{"OfAVersionBelowZero", "PRAGMA user_version = -2147483648"},
        Tampering{"OfAnEnormousVersion", "PRAGMA user_version = 2147483647"},
        Tampering{"OfAVersionBeforeTheFirst", "PRAGMA user_version = 0"}),
    nameOf);

// Schemas that call what has side effects

/// Statements that run into whatever the schema calls.
const std::string everyUse =
    "SELECT * FROM events; SELECT * FROM streams; SELECT * FROM event_content_parts; "
    "INSERT INTO events (type, client_id) VALUES (9, x'0909'); UPDATE events SET type = 7; "
    "UPDATE streams SET seq = 5; INSERT INTO event_content_parts (event_content_part_id, "
    "event_database_identifier) VALUES (77, 77); UPDATE event_content_parts SET purged = 1; "
    "DELETE FROM synced_changes; DELETE FROM events";

class SchemaWithSideEffects : public TamperedSchema {};

TEST_P(SchemaWithSideEffects, CausesNone) {
    ASSERT_NO_FATAL_FAILURE(useWhileItIsTamperedWith());
    EXPECT_EQ(sideEffects, 0) << "the schema called what it must not call";
    ASSERT_NO_FATAL_FAILURE(use());
    EXPECT_EQ(sideEffects, 0) << "the schema of a file that is opened called what it must not call";

    writeFile(path_, genuineStore());
    const AttackersConnection attacker(path_);
    ASSERT_EQ(attacker.attempt(GetParam().script), "");
    sideEffects = 0;
    for (std::size_t start = 0; start != std::string::npos; start = everyUse.find(';', start + 1)) {
        const std::string statement = everyUse.substr(start == 0 ? 0 : start + 1);
        static_cast<void>(attacker.attempt(statement.substr(0, statement.find(';'))));
    }
    EXPECT_GT(sideEffects, 0) << "nothing was proved: who trusts the schema is not harmed either";
}

INSTANTIATE_TEST_SUITE_P(
    In, SchemaWithSideEffects,
    testing::Values(
        Tampering{"ATriggerOnInsert",
                  "CREATE TRIGGER t AFTER INSERT ON events BEGIN SELECT side_effect(); END", 3031000},
        Tampering{
            "ATriggerOnUpdate",
            "CREATE TRIGGER t BEFORE UPDATE ON events BEGIN UPDATE events SET type = side_effect(); END",
            3031000},
        Tampering{"ATriggerOnDelete",
                  "CREATE TRIGGER t BEFORE DELETE ON synced_changes WHEN side_effect() BEGIN SELECT 1; END",
                  3031000},
        Tampering{"ATriggerOnParts",
                  "CREATE TRIGGER t AFTER INSERT ON event_content_parts BEGIN INSERT INTO messages (seq) "
                  "VALUES (side_effect(NEW.value)); END",
                  3031000},
        Tampering{
            "AView",
            inPlaceOf("streams",
                      "CREATE VIEW streams AS SELECT database_identifier, stream_id, side_effect(seq) AS "
                      "seq FROM stored"),
            3031000},
        Tampering{
            "TheConditionOfAView",
            inPlaceOf("events", "CREATE VIEW events AS SELECT * FROM stored WHERE side_effect(client_id)"),
            3031000},
        Tampering{
            "ATriggerOfAView",
            inPlaceOf("events",
                      "CREATE VIEW events AS SELECT * FROM stored; CREATE TRIGGER t INSTEAD OF INSERT ON "
                      "events BEGIN SELECT side_effect(NEW.type); END"),
            3031000},
        Tampering{
            "ACondition",
            remade("events",
                   "(database_identifier INTEGER PRIMARY KEY, type CHECK (side_effect(type)), creator_id, "
                   "seq, timestamp, preceding_seq, client_seq, subtype, member_id, target_seq, "
                   "stream_database_identifier, client_id, creator_name)",
                   eventColumns),
            3031000},
        Tampering{
            "ADefault",
            remade("events",
                   "(database_identifier INTEGER PRIMARY KEY, type, creator_id, seq, timestamp, "
                   "preceding_seq, client_seq, subtype, member_id, target_seq, "
                   "stream_database_identifier, client_id, creator_name, extra DEFAULT (side_effect()))",
                   eventColumns),
            3031000},
        Tampering{
            "AGeneratedColumn",
            remade("streams",
                   "(database_identifier INTEGER PRIMARY KEY, stream_id, seq AS (side_effect(stream_id)))",
                   "database_identifier, stream_id"),
            3031000},
        Tampering{"AGeneratedColumnThatIsStored",
                  remade("events",
                         "(database_identifier INTEGER PRIMARY KEY, type, creator_id, seq, timestamp, "
                         "preceding_seq, client_seq, subtype, member_id, target_seq, "
                         "stream_database_identifier, client_id, creator_name, extra AS (side_effect(type)) "
                         "STORED)",
                         eventColumns),
                  3031000},
        Tampering{"AnIndex", "CREATE INDEX i ON events (side_effect(type))", 3031000},
        Tampering{"TheConditionOfAnIndex", "CREATE INDEX i ON events (type) WHERE side_effect(client_id)",
                  3031000},
        Tampering{"AVirtualTableBehindAView",
                  "CREATE VIRTUAL TABLE x USING table_with_side_effects;" +
                      inPlaceOf("streams",
                                "CREATE VIEW streams AS SELECT database_identifier, stream_id, seq "
                                "FROM x UNION ALL SELECT * FROM stored"),
                  3031000}),
    nameOf);

// The engine's own dangerous functions refuse whoever trusts the schema too, so there is nothing to compare
// with.
INSTANTIATE_TEST_SUITE_P(
    WithCallsOf, TamperedSchema,
    testing::Values(
        Tampering{
            "AnExtension",
            inPlaceOf("streams",
                      "CREATE VIEW streams AS SELECT database_identifier, stream_id, "
                      "load_extension('../outside/deep/extension') AS seq FROM stored; CREATE TRIGGER t "
                      "AFTER INSERT ON events BEGIN SELECT load_extension('../outside/deep/extension'); "
                      "END")},
        Tampering{
            "ATokenizer",
            inPlaceOf("streams",
                      "CREATE VIEW streams AS SELECT database_identifier, stream_id, "
                      "fts3_tokenizer('evil', x'4141414141414141') AS seq FROM stored; CREATE TRIGGER t "
                      "AFTER INSERT ON events BEGIN SELECT fts3_tokenizer('simple', "
                      "x'4141414141414141'); END")},
        Tampering{
            "AFileWriter",
            "CREATE TRIGGER t AFTER INSERT ON events BEGIN SELECT writefile('../outside/notes', 'mine'); "
            "END; CREATE TRIGGER u AFTER UPDATE ON events BEGIN SELECT edit('x', 'touch outside/new'); "
            "END"},
        Tampering{"ATableForStatementsOnly",
                  "CREATE VIRTUAL TABLE x USING direct_table;" +
                      inPlaceOf("streams",
                                "CREATE VIEW streams AS SELECT database_identifier, stream_id, seq "
                                "FROM x UNION ALL SELECT * FROM stored"),
                  3031000},
        Tampering{"AnAttachment",
                  "CREATE TABLE notes (a); CREATE TRIGGER t AFTER INSERT ON events BEGIN SELECT "
                  "sqlite_attach('../outside/new.db', 'x', NULL); END"}),
    nameOf);

TEST_F(HostileFile, AViewThatNeverEndsFailsTheOperationsThatReadIt) {
    const Outcome outcome = use(
        [this](FMDatabase&) { tamper(inPlaceOf("streams", "CREATE VIEW streams AS " + endlessNumbers)); });
    ASSERT_TRUE(outcome.opened) << outcome.refusal.description();
    EXPECT_TRUE(outcome.stopped.contains("allEvents")) << "nothing was proved: the view ended";
    EXPECT_EQ(outcome.codes.at("allEvents"), SQLITE_CORRUPT);
}

TEST_F(HostileFile, ATriggerThatNeverEndsFailsItsOperationAndLeavesNothingBehind) {
    const Outcome outcome = use([this](FMDatabase&) {
        tamper(
            "CREATE TRIGGER t AFTER INSERT ON synced_changes BEGIN INSERT INTO messages (seq) SELECT seq "
            "FROM (" +
            endlessNumbers + "); END");
    });
    ASSERT_TRUE(outcome.opened) << outcome.refusal.description();
    EXPECT_EQ(outcome.stopped, std::set<std::string>{"recordChange"});
    EXPECT_EQ(outcome.codes.at("recordChange"), SQLITE_CORRUPT);
    EXPECT_EQ(
        scalar(*openHandle(path_), "SELECT COUNT(*) FROM messages WHERE event_database_identifier IS NULL"),
        "0")
        << "half of an endless statement was stored";
}

TEST_F(HostileFile, ASchemaThatGoesMissingIsFoundByEachOperation) {
    const Outcome outcome = use([this](FMDatabase& database) {
        std::string script;
        for (const std::string& table : tablesOf(database)) {
            script += "DROP TABLE " + table + ";";
        }
        tamper(script);
    });
    ASSERT_TRUE(outcome.opened) << outcome.refusal.description();
    for (const Operation& operation : everyOperation()) {
        if (operation.report != FailureReport::nothing) {
            EXPECT_TRUE(outcome.codes.contains(nameOf(operation))) << nameOf(operation) << " needs no table";
        }
    }
}

}  // namespace
}  // namespace zav::test
