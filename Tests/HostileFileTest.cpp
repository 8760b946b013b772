#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "Operations/Catalogue.h"
#include "Operations/Description.h"
#include "Operations/FilledStore.h"
#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"
#include "Support/TemporaryDirectory.h"
#include "Support/TestStore.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

// What a hostile file could reach in the application that opens it

/// Counts the calls of what a schema must never be able to call.
std::atomic<int> sideEffects{0};

/// What an operation fails with that would have gone on forever.
constexpr std::string_view beyondBounds =
    "database disk image is malformed: a statement met more than a file of this size can hold";

void causeSideEffect(sqlite3_context* context, int, sqlite3_value**) {
    ++sideEffects;
    sqlite3_result_int(context, 1);
}

/// A virtual table without rows. Opening it is a side effect. One that is made with a reason to be direct is
/// for statements only and not for schemas.
struct TableWithSideEffects {
    static int connect(sqlite3* connection, void* direct, int, const char* const*, sqlite3_vtab** table,
                       char**) {
        *table = static_cast<sqlite3_vtab*>(sqlite3_malloc(sizeof(sqlite3_vtab)));
        std::memset(*table, 0, sizeof(sqlite3_vtab));
#ifdef SQLITE_VTAB_DIRECTONLY
        if (direct != nullptr) {
            sqlite3_vtab_config(connection, SQLITE_VTAB_DIRECTONLY);
        }
#else
        static_cast<void>(direct);
#endif
        return sqlite3_declare_vtab(connection, "CREATE TABLE x (database_identifier, stream_id, seq)");
    }
    static int disconnect(sqlite3_vtab* table) {
        sqlite3_free(table);
        return SQLITE_OK;
    }
    static int bestIndex(sqlite3_vtab*, sqlite3_index_info*) {
        return SQLITE_OK;
    }
    static int open(sqlite3_vtab*, sqlite3_vtab_cursor** cursor) {
        ++sideEffects;
        *cursor = static_cast<sqlite3_vtab_cursor*>(sqlite3_malloc(sizeof(sqlite3_vtab_cursor)));
        return SQLITE_OK;
    }
    static int close(sqlite3_vtab_cursor* cursor) {
        sqlite3_free(cursor);
        return SQLITE_OK;
    }
    static int filter(sqlite3_vtab_cursor*, int, const char*, int, sqlite3_value**) {
        return SQLITE_OK;
    }
    static int next(sqlite3_vtab_cursor*) {
        return SQLITE_OK;
    }
    static int eof(sqlite3_vtab_cursor*) {
        return 1;
    }
    static int column(sqlite3_vtab_cursor*, sqlite3_context*, int) {
        return SQLITE_OK;
    }
    static int rowid(sqlite3_vtab_cursor*, sqlite3_int64*) {
        return SQLITE_OK;
    }

    static const sqlite3_module* module() {
        static const sqlite3_module functions = [] {
            sqlite3_module made{};
            made.xCreate = connect;
            made.xConnect = connect;
            made.xBestIndex = bestIndex;
            made.xDisconnect = disconnect;
            made.xDestroy = disconnect;
            made.xOpen = open;
            made.xClose = close;
            made.xFilter = filter;
            made.xNext = next;
            made.xEof = eof;
            made.xColumn = column;
            made.xRowid = rowid;
            return made;
        }();
        return &functions;
    }
};

int equip(sqlite3* connection, char**, const void*) {
    sqlite3_create_function_v2(connection, "side_effect", -1, SQLITE_UTF8 | SQLITE_DETERMINISTIC, nullptr,
                               causeSideEffect, nullptr, nullptr, nullptr);
    static char direct;
    sqlite3_create_module_v2(connection, "table_with_side_effects", TableWithSideEffects::module(), nullptr,
                             nullptr);
    sqlite3_create_module_v2(connection, "direct_table", TableWithSideEffects::module(), &direct, nullptr);
    return SQLITE_OK;
}

/// While it lives each connection of the process, from its very beginning, knows a function and a virtual
/// table with side effects.
class EquippedConnections {
public:
    EquippedConnections() { sqlite3_auto_extension(entry()); }
    ~EquippedConnections() { sqlite3_cancel_auto_extension(entry()); }
    EquippedConnections(const EquippedConnections&) = delete;
    EquippedConnections& operator=(const EquippedConnections&) = delete;

private:
    static void (*entry())() { return reinterpret_cast<void (*)()>(equip); }
};

// What the engine does outside the database

/// The engine's own file system, which tells which files were opened and removed through it.
class WatchedFileSystem {
public:
    static constexpr const char* name = "zav-watched";

    WatchedFileSystem() : original_(sqlite3_vfs_find(nullptr)), watched_(*original_) {
        watched_.zName = name;
        watched_.pNext = nullptr;
        watched_.pAppData = this;
        watched_.xOpen = open;
        watched_.xDelete = remove;
        if (sqlite3_vfs_register(&watched_, 0) != SQLITE_OK) {
            throw std::runtime_error("cannot watch the file system");
        }
    }
    ~WatchedFileSystem() { sqlite3_vfs_unregister(&watched_); }
    WatchedFileSystem(const WatchedFileSystem&) = delete;
    WatchedFileSystem& operator=(const WatchedFileSystem&) = delete;

    /// "opened PATH" and "removed PATH", each once. Temporary files, which have no name, are left out.
    [[nodiscard]] const std::set<std::string>& uses() const { return uses_; }

    /// Files that would have made the caller wait until somebody writes into them. They were not opened.
    [[nodiscard]] const Lines& waits() const { return waits_; }

private:
    static WatchedFileSystem& self(sqlite3_vfs* vfs) {
        return *static_cast<WatchedFileSystem*>(vfs->pAppData);
    }

    static int open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags, int* flagsOut) {
        WatchedFileSystem& watch = self(vfs);
        if (path != nullptr) {
            watch.uses_.insert(std::string("opened ") + path);
            struct stat status {};
            if (::lstat(path, &status) == 0 && S_ISFIFO(status.st_mode) &&
                (flags & SQLITE_OPEN_READONLY) != 0) {
                watch.waits_.emplace_back(path);
                file->pMethods = nullptr;
                return SQLITE_CANTOPEN;
            }
        }
        return watch.original_->xOpen(watch.original_, path, file, flags, flagsOut);
    }

    static int remove(sqlite3_vfs* vfs, const char* path, int synchronise) {
        WatchedFileSystem& watch = self(vfs);
        watch.uses_.insert(std::string("removed ") + path);
        return watch.original_->xDelete(watch.original_, path, synchronise);
    }

    sqlite3_vfs* original_;
    sqlite3_vfs watched_;
    std::set<std::string> uses_;
    Lines waits_;
};

void writeFile(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << bytes).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

/// A tree of files beside a database, none of which is any business of whoever opens the database.
class Surroundings {
public:
    explicit Surroundings(fs::path root) : root_(std::move(root)) {
        fs::create_directories(root_ / "deep" / "empty");
        writeFile(notes(), "files/1\nnot for you\n");
        writeFile((root_ / "deep" / "image").string(), std::string(5000, '\xFE'));
        writeFile((root_ / "deep" / "extension.so").string(), "no program");
        fs::create_symlink("notes", root_ / "link");
        before_ = state();
    }

    [[nodiscard]] std::string notes() const { return (root_ / "notes").string(); }

    void expectUntouched() const {
        EXPECT_EQ(state(), before_) << "something beside the database was made, changed or removed";
    }

private:
    /// Of each path its kind, size, times of change and bytes.
    [[nodiscard]] std::map<std::string, std::string> state() const {
        std::map<std::string, std::string> entries;
        const auto add = [&](const fs::path& path) {
            struct stat status {};
            if (::lstat(path.c_str(), &status) != 0) {
                throw std::runtime_error("cannot look at " + path.string());
            }
            entries[path.string()] =
                std::to_string(status.st_mode) + " " + std::to_string(status.st_size) + " " +
                std::to_string(status.st_mtim.tv_sec) + "." + std::to_string(status.st_mtim.tv_nsec) + " " +
                std::to_string(status.st_ctim.tv_sec) + "." + std::to_string(status.st_ctim.tv_nsec) + " " +
                (S_ISREG(status.st_mode) ? bytesOfFile(path.string()) : "");
        };
        add(root_);
        for (const auto& entry : fs::recursive_directory_iterator(root_)) {
            add(entry.path());
        }
        return entries;
    }

    fs::path root_;
    std::map<std::string, std::string> before_;
};

// A database in hostile hands

std::shared_ptr<FMDatabase> openStore(const std::string& path) {
    FMDatabaseOptions options;
    options.synchronous = FMDatabaseOptions::Synchronous::normal;
    ZAVError error;
    auto database = ZAVDatabaseSchema::openDatabase(path, options, &error);
    if (!database) {
        throw std::runtime_error("cannot make a store: " + error.description());
    }
    return database;
}

/// The bytes of a store that `fillStore` has filled and that has been closed.
const std::string& genuineStore() {
    static const std::string bytes = [] {
        const TemporaryDirectory directory;
        const std::string path = directory.file("store.db");
        fillStore(openStore(path));
        return bytesOfFile(path);
    }();
    return bytes;
}

/// A connection as an attacker has it: it trusts the schema, and lets the schema table be written.
class AttackersConnection {
public:
    explicit AttackersConnection(const std::string& path) {
        if (sqlite3_open(path.c_str(), &connection_) != SQLITE_OK) {
            throw std::runtime_error("cannot open " + path);
        }
#ifdef SQLITE_DBCONFIG_DEFENSIVE
        sqlite3_db_config(connection_, SQLITE_DBCONFIG_DEFENSIVE, 0, nullptr);
#endif
#ifdef SQLITE_DBCONFIG_TRUSTED_SCHEMA
        sqlite3_db_config(connection_, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 1, nullptr);
#endif
        static_cast<void>(attempt("PRAGMA synchronous=OFF"));
    }
    ~AttackersConnection() {
        sqlite3_close(connection_);
    }
    AttackersConnection(const AttackersConnection&) = delete;
    AttackersConnection& operator=(const AttackersConnection&) = delete;

    /// Runs a script; the error's text, empty on success.
    [[nodiscard]] std::string attempt(const std::string& script) const {
        return sqlite3_exec(connection_, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK
                   ? ""
                   : sqlite3_errmsg(connection_);
    }

private:
    sqlite3* connection_ = nullptr;
};

/// The names of the tables that the event store makes.
Lines tablesOf(FMDatabase& database) {
    Lines names;
    auto rows = database.executeQuery(
        "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%' ORDER BY name");
    while (rows && rows->next()) {
        names.push_back(rows->stringForColumnIndex(0).value_or(""));
    }
    return names;
}

/// What came of opening a file and running every operation on it.
struct Outcome {
    bool opened = false;
    ZAVError refusal;                  ///< why it was not opened
    std::set<std::string> succeeded;   ///< operations without an error
    std::map<std::string, int> codes;  ///< the errors of those that failed, without the engine's extensions
    std::set<std::string> stopped;     ///< operations that would have gone on forever
};

class HostileFile : public testing::Test {
protected:
    HostileFile() : surroundings_(fs::path(directory_.path()) / "outside") {
        fs::create_directory(directory_.path() / "client");
        writeFile(path_, genuineStore());
        sideEffects = 0;
    }

    void tamper(const std::string& script) const {
        const std::string failure = AttackersConnection(path_).attempt(script);
        ASSERT_EQ(failure, "") << script;
    }

    /// Opens the file as an application does, runs every operation, and expects that each works or fails as
    /// it promises and that nothing but the database is touched. `work` sees the handle before the
    /// operations.
    Outcome use(const std::function<void(FMDatabase&)>& work = [](FMDatabase&) {}) {
        Outcome outcome;
        const LogCapture log;
        {
            FMDatabaseOptions options;
            options.vfs = WatchedFileSystem::name;
            options.busyTimeout = std::chrono::milliseconds(100);
            options.synchronous = FMDatabaseOptions::Synchronous::normal;
            const auto database = ZAVDatabaseSchema::openDatabase(path_, options, &outcome.refusal);
            outcome.opened = database != nullptr;
            EXPECT_NE(outcome.refusal.message(), beyondBounds) << "opening went on and on";
            EXPECT_NE(outcome.opened, static_cast<bool>(outcome.refusal)) << outcome.refusal.description();
            if (database) {
                expectDefences(*database);
                work(*database);
                for (const Operation& operation : everyOperation()) {
                    callOf(operation, database, log, outcome);
                }
            }
        }
        expectNothingElseTouched();
        return outcome;
    }

    void expectNothingElseTouched() const {
        surroundings_.expectUntouched();
        const std::string file = fs::weakly_canonical(path_).string();
        for (const std::string& usage : watch_.uses()) {
            EXPECT_TRUE(isOfTheDatabase(usage.substr(usage.find(' ') + 1), file))
                << "the engine " << usage << ", which is none of the database's files";
        }
        for (const auto& entry : fs::directory_iterator(directory_.path() / "client")) {
            EXPECT_TRUE(isOfTheDatabase(entry.path().string(), path_)) << entry.path() << " was made";
        }
        EXPECT_EQ(watch_.waits(), Lines{}) << "opening the file waits for somebody to write";
    }

    TemporaryDirectory directory_;
    const std::string path_ = (directory_.path() / "client" / "store.db").string();
    const Surroundings surroundings_;

private:
    static bool isOfTheDatabase(const std::string& path, const std::string& database) {
        return path == database || path == database + "-wal" || path == database + "-shm" ||
               path == database + "-journal";
    }

    static void expectDefences(FMDatabase& database) {
#ifdef SQLITE_DBCONFIG_DEFENSIVE
        if (sqlite3_libversion_number() >= 3026000) {
            int defensive = 0;
            sqlite3_db_config(database.sqliteHandle(), SQLITE_DBCONFIG_DEFENSIVE, -1, &defensive);
            EXPECT_EQ(defensive, 1);
            database.executeStatements("PRAGMA writable_schema=ON");
            EXPECT_FALSE(database.executeStatements("UPDATE sqlite_master SET sql = sql WHERE 0"))
                << "the schema table can be written";
        }
#endif
        if (sqlite3_libversion_number() >= 3031000) {
            EXPECT_EQ(scalar(database, "PRAGMA trusted_schema"), "0");
        }
        EXPECT_EQ(scalar(database, "PRAGMA cell_size_check"), "1");
        EXPECT_EQ(scalar(database, "SELECT 1"), "1");
        EXPECT_FALSE(database.executeStatements("SELECT load_extension('outside/deep/extension')"))
            << "an extension can be loaded";
        EXPECT_TRUE(database.lastError().message() == "not authorized" ||
                    database.lastError().message().starts_with("no such function"))
            << "an extension was looked for: " << database.lastError().description();
    }

    static bool isErrorLine(const LogRecord& line) {
        return line.flag == DDLogFlagError;
    }

    static void callOf(const Operation& operation, const std::shared_ptr<FMDatabase>& database,
                       const LogCapture& log, Outcome& outcome) {
        SCOPED_TRACE(nameOf(operation));
        const auto linesBefore = log.records().size();
        ZAVError error;
        Answer answer;
        bool threw = false;
        try {
            answer = operation.call(ZAVEventRepository(database), &error);
        } catch (const NSInternalInconsistencyException&) {
            threw = true;
        } catch (const std::exception& other) {
            ADD_FAILURE() << "threw " << other.what();
        }
        const auto lines = log.records();
        const bool reported =
            std::any_of(lines.begin() + static_cast<std::ptrdiff_t>(linesBefore), lines.end(), isErrorLine);
        if (reported) {
            EXPECT_TRUE(error) << "an error line was written, but the caller was told nothing";
        }
        if (error) {
            EXPECT_FALSE(error.message().empty());
            EXPECT_NE(error.code(), 0);
            outcome.codes[nameOf(operation)] = error.code() & 0xFF;
        } else if (!threw) {
            outcome.succeeded.insert(nameOf(operation));
        }
        // What fails while an event's own values are read is told, but the event is read all the same.
        const bool failedBesideAnEvent = error && !reported && operation.report == FailureReport::errorLine;
        if (failedBesideAnEvent && !threw) {
            EXPECT_TRUE(answer.value == "set" || answer.value == "event" || answer.value == "null")
                << answer.value;
        } else if (error && !threw) {
            EXPECT_EQ(answer.value, operation.answerOnFailure) << error.description();
        }
        if (error.message() == beyondBounds) {
            outcome.stopped.insert(nameOf(operation));
        }
        EXPECT_EQ(database->openResultSets(), 0U) << "a cursor stayed open";
        EXPECT_EQ(busyStatements(*database), 0) << "a statement is still under way";
        EXPECT_FALSE(database->inTransaction()) << "a transaction stayed open";
    }

    const EquippedConnections equipped_;
    const WatchedFileSystem watch_;
};

// Changes of the schema

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

const std::string eventColumns =
    "database_identifier, type, creator_id, seq, timestamp, preceding_seq, client_seq, subtype, member_id, "
    "target_seq, stream_database_identifier, client_id, creator_name";

/// Puts something else in the place of a table, whose rows stay in `stored`.
std::string inPlaceOf(const std::string& table, const std::string& statement) {
    return "ALTER TABLE " + table + " RENAME TO stored; " + statement + ";";
}

/// Makes a table anew with other columns, and copies the rows of those that are named.
std::string remade(const std::string& table, const std::string& definition, const std::string& columns) {
    return inPlaceOf(table, "CREATE TABLE " + table + " " + definition) + "INSERT INTO " + table + " (" +
           columns + ") SELECT " + columns + " FROM stored; DROP TABLE stored;";
}

std::string inSchemaTable(const std::string& change) {
    return "PRAGMA writable_schema=ON; " + change + ";";
}

std::string ofSchemaRow(const std::string& name, const std::string& change) {
    return inSchemaTable("UPDATE sqlite_master SET " + change + " WHERE name = '" + name + "'");
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

/// The first line in which two texts differ, from both; empty when they do not.
std::string firstDifference(const Lines& left, const Lines& right) {
    const auto lineOf = [](const Lines& lines, std::size_t index) {
        return index < lines.size() ? lines[index].substr(0, 300) : std::string("nothing");
    };
    const auto [one, other] = std::mismatch(left.begin(), left.end(), right.begin(), right.end());
    if (one == left.end() && other == right.end()) {
        return {};
    }
    const auto index = static_cast<std::size_t>(one - left.begin());
    return lineOf(left, index) + "\n" + lineOf(right, index);
}

// What is refused, and what is the application's own

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
    FMDatabaseOptions options;
    options.access = FMDatabaseOptions::Access::readOnly;
    ZAVError error;
    EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, options, &error), nullptr);
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

// Databases of another form

struct Form {
    const char* name;
    const char* script;
    const char* question;
    const char* answer;
};

void PrintTo(const Form& form, std::ostream* stream) {
    *stream << form.script;
}

/// What every operation answers on a store that `fillStore` has filled, one after the other.
Lines answersOn(const std::shared_ptr<FMDatabase>& database) {
    Lines texts;
    for (const Operation& operation : everyOperation()) {
        ZAVError error;
        texts.push_back(nameOf(operation));
        for (std::string& line : operation.call(ZAVEventRepository(database), &error).text()) {
            texts.push_back(std::move(line));
        }
        EXPECT_FALSE(error) << nameOf(operation) << ": " << error.description();
    }
    return texts;
}

class FileOfAnotherForm : public testing::TestWithParam<Form> {};

TEST_P(FileOfAnotherForm, AnswersLikeAnyOther) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("other.db");
    ASSERT_EQ(AttackersConnection(path).attempt(std::string(GetParam().script) +
                                                "; CREATE TABLE t (a); DROP TABLE t"),
              "");
    const auto other = openStore(path);
    EXPECT_EQ(scalar(*other, GetParam().question), GetParam().answer) << "nothing was proved";
    fillStore(other);
    const auto usual = openStore(directory.file("usual.db"));
    fillStore(usual);
    EXPECT_EQ(firstDifference(answersOn(other), answersOn(usual)), "");
    EXPECT_EQ(firstDifference(rowsOfAllTables(*other), rowsOfAllTables(*usual)), "");
    EXPECT_EQ(scalar(*other, "PRAGMA integrity_check"), "ok");
}

INSTANTIATE_TEST_SUITE_P(
    Such, FileOfAnotherForm,
    testing::Values(Form{"AsUTF16", "PRAGMA encoding='UTF-16le'", "PRAGMA encoding", "UTF-16le"},
                    Form{"AsUTF16BigEnd", "PRAGMA encoding='UTF-16be'", "PRAGMA encoding", "UTF-16be"},
                    Form{"AsTheSmallestPages", "PRAGMA page_size=512", "PRAGMA page_size", "512"},
                    Form{"AsTheLargestPages", "PRAGMA page_size=65536", "PRAGMA page_size", "65536"},
                    Form{"AsOneThatShrinks", "PRAGMA auto_vacuum=FULL", "PRAGMA auto_vacuum", "1"},
                    Form{"AsOneThatMayShrink", "PRAGMA auto_vacuum=INCREMENTAL", "PRAGMA auto_vacuum", "2"},
                    Form{"AsAnotherApplications", "PRAGMA application_id=1234567", "PRAGMA application_id",
                         "1234567"}),
    [](const testing::TestParamInfo<Form>& form) { return std::string(form.param.name); });

TEST_F(HostileFile, ColumnsInAnotherOrderAndMoreOfThemChangeNoAnswer) {
    const std::string copy = directory_.file("usual.db");
    writeFile(copy, genuineStore());
    tamper(
        remade("events",
               "(creator_name TEXT, more DEFAULT 'more', client_id BLOB NOT NULL, stream_database_identifier "
               "INTEGER, target_seq INTEGER, member_id TEXT, subtype INTEGER, client_seq INTEGER, "
               "preceding_seq INTEGER, timestamp INTEGER, seq INTEGER, creator_id TEXT, type INTEGER NOT "
               "NULL, database_identifier INTEGER PRIMARY KEY AUTOINCREMENT, UNIQUE "
               "(stream_database_identifier, seq))",
               eventColumns) +
        "CREATE INDEX events_without_seq ON events (stream_database_identifier) WHERE seq IS NULL;" +
        remade("streams",
               "(more, seq INTEGER, stream_id BLOB UNIQUE, database_identifier INTEGER PRIMARY KEY "
               "AUTOINCREMENT)",
               "database_identifier, stream_id, seq"));
    EXPECT_EQ(firstDifference(answersOn(openStore(path_)), answersOn(openStore(copy))), "");
}

// Files that are not what they seem

struct Disguise {
    const char* name;
    const char* suffix;
    std::function<void(const std::string& path, const std::string& target)> put;
};

void PrintTo(const Disguise& disguise, std::ostream* stream) {
    *stream << disguise.name;
}

void putDirectory(const std::string& path, const std::string&) {
    fs::create_directory(path);
}

void putQueue(const std::string& path, const std::string&) {
    if (::mkfifo(path.c_str(), 0600) != 0) {
        throw std::runtime_error(std::string("mkfifo: ") + std::strerror(errno));
    }
}

void putLink(const std::string& path, const std::string& target) {
    fs::create_symlink(target, path);
}

void putGarbage(const std::string& path, const std::string&) {
    std::string garbage;
    for (std::uint64_t number = 0; number < 70000; ++number) {
        garbage += static_cast<char>(number * number / 7);
    }
    writeFile(path, garbage);
}

class DisguisedFile : public HostileFile, public testing::WithParamInterface<Disguise> {};

TEST_P(DisguisedFile, IsRefusedOrUsedWithoutHarm) {
    const std::string path = path_ + GetParam().suffix;
    fs::remove(path);
    GetParam().put(path, surroundings_.notes());
    if (path == path_) {
        ZAVError error;
        EXPECT_EQ(ZAVDatabaseSchema::openDatabase(path_, {}, &error), nullptr) << "this is no database";
        EXPECT_TRUE(error);
        surroundings_.expectUntouched();
    } else {
        use();
    }
}

INSTANTIATE_TEST_SUITE_P(As, DisguisedFile,
                         testing::Values(Disguise{"ADirectory", "", putDirectory},
                                         Disguise{"AQueue", "", putQueue},
                                         Disguise{"ALinkToNoDatabase", "", putLink},
                                         Disguise{"AJournalThatIsADirectory", "-journal", putDirectory},
                                         Disguise{"AJournalThatIsAQueue", "-journal", putQueue},
                                         Disguise{"AJournalThatIsALink", "-journal", putLink},
                                         Disguise{"AJournalOfGarbage", "-journal", putGarbage},
                                         Disguise{"ALogThatIsADirectory", "-wal", putDirectory},
                                         Disguise{"ALogThatIsAQueue", "-wal", putQueue},
                                         Disguise{"ALogThatIsALink", "-wal", putLink},
                                         Disguise{"ALogOfGarbage", "-wal", putGarbage},
                                         Disguise{"ASharedMemoryThatIsADirectory", "-shm", putDirectory},
                                         Disguise{"ASharedMemoryThatIsAQueue", "-shm", putQueue},
                                         Disguise{"ASharedMemoryThatIsALink", "-shm", putLink},
                                         Disguise{"ASharedMemoryOfGarbage", "-shm", putGarbage}),
                         [](const testing::TestParamInfo<Disguise>& disguise) {
                             return std::string(disguise.param.name);
                         });

void putOtherName(const std::string& path, const std::string& target) {
    fs::create_hard_link(target, path);
}

class CompanionOfAFile : public HostileFile,
                         public testing::WithParamInterface<std::tuple<const char*, Disguise>> {};

TEST_P(CompanionOfAFile, ThatIsNotItsOwnIsRefusedByName) {
    const auto& [suffix, disguise] = GetParam();
    const std::string companion = path_ + suffix;
    const std::string target = directory_.file("target");
    writeFile(target, "not for you");
    disguise.put(companion, target);
    for (const auto access :
         {FMDatabaseOptions::Access::readOnly, FMDatabaseOptions::Access::readWriteCreate}) {
        FMDatabaseOptions options;
        options.access = access;
        ZAVError error;
        EXPECT_EQ(FMDatabase::databaseWithPath(path_, options, &error), nullptr) << companion << " was used";
        EXPECT_EQ(error.code(), 6) << error.description();
        EXPECT_NE(error.message().find(suffix), std::string::npos) << error.message();
    }
    fs::remove(path_);
    EXPECT_EQ(FMDatabase::databaseWithPath(path_), nullptr) << companion << " was used for a new file";
    EXPECT_FALSE(fs::exists(path_)) << "a file was made that was then refused";
    EXPECT_EQ(bytesOfFile(target), "not for you");
}

INSTANTIATE_TEST_SUITE_P(As, CompanionOfAFile,
                         testing::Combine(testing::Values("-journal", "-wal", "-shm"),
                                          testing::Values(Disguise{"ADirectory", "", putDirectory},
                                                          Disguise{"AQueue", "", putQueue},
                                                          Disguise{"ALink", "", putLink},
                                                          Disguise{"AnotherName", "", putOtherName})),
                         [](const auto& companion) {
                             return std::string(std::get<1>(companion.param).name) + "As" +
                                    (std::get<0>(companion.param) + 1);
                         });

TEST_F(HostileFile, BehindALinkIsUsedWhereItLies) {
    const std::string elsewhere = directory_.file("elsewhere.db");
    fs::rename(path_, elsewhere);
    fs::create_symlink(elsewhere, path_);
    const Outcome outcome = use();
    EXPECT_EQ(outcome.succeeded.size(), everyOperation().size()) << "a store may be reached through a link";
    EXPECT_TRUE(fs::is_symlink(path_)) << "the link was replaced";
}

/// Acts as a user without privileges while it lives, if the process has any.
class WithoutPrivileges {
public:
    static constexpr uid_t nobody = 65534;

    WithoutPrivileges() : privileged_(::geteuid() == 0) {
        if (privileged_ && ::seteuid(nobody) != 0) {
            throw std::runtime_error(std::string("seteuid: ") + std::strerror(errno));
        }
    }
    ~WithoutPrivileges() {
        if (privileged_ && ::seteuid(0) != 0) {
            std::terminate();
        }
    }
    WithoutPrivileges(const WithoutPrivileges&) = delete;
    WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;

private:
    bool privileged_;
};

TEST_F(HostileFile, ThatMayOnlyBeReadIsReadAndNotWritten) {
    const fs::path client = directory_.path() / "client";
    if (::geteuid() == 0) {
        ASSERT_EQ(::chown(directory_.path().c_str(), WithoutPrivileges::nobody, 0), 0);
        ASSERT_EQ(::chown(client.c_str(), WithoutPrivileges::nobody, 0), 0);
    }
    fs::permissions(path_, fs::perms(0444));
    Outcome outcome;
    {
        const WithoutPrivileges unprivileged;
        outcome = use();
    }
    EXPECT_EQ(bytesOfFile(path_), genuineStore()) << "a file that may only be read was written";
    ASSERT_TRUE(outcome.opened) << outcome.refusal.description();
    EXPECT_EQ(outcome.codes["persistEvents"], SQLITE_READONLY);
    EXPECT_EQ(outcome.codes["deleteEvents"], SQLITE_READONLY);
    EXPECT_TRUE(outcome.succeeded.contains("allEvents")) << "what may be read is read";
}

TEST_F(HostileFile, InADirectoryThatMayOnlyBeReadIsRefusedOrOnlyRead) {
    const fs::path client = directory_.path() / "client";
    fs::permissions(directory_.path(), fs::perms(0755));
    fs::permissions(client, fs::perms(0555));
    fs::permissions(path_, fs::perms(0444));
    Outcome outcome;
    {
        const WithoutPrivileges unprivileged;
        outcome = use();
    }
    fs::permissions(client, fs::perms(0755));
    EXPECT_EQ(bytesOfFile(path_), genuineStore());
    EXPECT_FALSE(outcome.succeeded.contains("persistEvents"));
}

// Logs and journals from elsewhere

TEST_F(HostileFile, BesideTheLogOfAnotherDatabaseIsRefusedOrUsedWithoutHarm) {
    const std::string other = directory_.file("other.db");
    {
        FMDatabaseOptions options;
        const auto writer = openHandle(other, options);
        run(*writer,
            "CREATE TABLE streams (a); CREATE TABLE notes (b); INSERT INTO notes VALUES (zeroblob(50000)); "
            "PRAGMA user_version=1");
        writeFile(path_ + "-wal", bytesOfFile(other + "-wal"));
        ASSERT_GT(fs::file_size(path_ + "-wal"), 50000U);
    }
    const Outcome outcome = use();
    EXPECT_FALSE(outcome.succeeded.contains("persistEvents")) << "nothing was proved: the log was ignored";
}

/// A journal that puts pages back, as the engine leaves one when it dies in the middle of a transaction.
std::string journalOf(std::string_view pages, const std::string& superJournal = "") {
    constexpr std::uint32_t pageSize = 4096;
    constexpr std::uint32_t sectorSize = 512;
    constexpr std::uint32_t nonce = 1;
    static constexpr std::string_view magic("\xD9\xD5\x05\xF9\x20\xA1\x63\xD7", 8);
    const auto number = [](std::uint64_t value) {
        std::string bytes;
        for (const int shift : {24, 16, 8, 0}) {
            bytes += static_cast<char>((value >> shift) & 0xFF);
        }
        return bytes;
    };
    const std::uint64_t count = pages.size() / pageSize;
    std::string journal(magic);
    journal += number(count) + number(nonce) + number(count) + number(sectorSize) + number(pageSize);
    journal.resize(sectorSize, '\0');
    for (std::uint64_t index = 0; index < count; ++index) {
        const std::string_view page = pages.substr(index * pageSize, pageSize);
        std::uint32_t checksum = nonce;
        for (std::uint32_t position = pageSize - 200; position > 0 && position < pageSize; position -= 200) {
            checksum += static_cast<unsigned char>(page[position]);
        }
        journal += number(index + 1) + std::string(page) + number(checksum);
    }
    if (!superJournal.empty()) {
        std::uint32_t checksum = 0;
        for (const char character : superJournal) {
            checksum += static_cast<std::uint32_t>(static_cast<signed char>(character));
        }
        // The record's page number is that of the page which locks are taken on.
        journal += number(0x40000000U / pageSize + 1) + superJournal + number(superJournal.size()) +
                   number(checksum) + std::string(magic);
    }
    return journal;
}

TEST_F(HostileFile, BesideTheJournalOfAnotherDatabaseIsRefusedOrUsedWithoutHarm) {
    const std::string other = directory_.file("other.db");
    {
        FMDatabaseOptions options;
        options.writeAheadLog = false;
        run(*openHandle(other, options),
            "CREATE TABLE notes (b); INSERT INTO notes VALUES (zeroblob(20000))");
    }
    writeFile(path_ + "-journal", journalOf(bytesOfFile(other)));
    const Outcome outcome = use();
    EXPECT_FALSE(outcome.opened) << "nothing was proved: the journal was ignored";
    EXPECT_EQ(outcome.refusal.code(), ZAVDatabaseErrorForeignSchema) << outcome.refusal.description();
}

TEST_F(HostileFile, BesideAJournalOfItsOwnIsPutBackAndUsed) {
    tamper("DELETE FROM events");
    ASSERT_NE(bytesOfFile(path_), genuineStore());
    writeFile(path_ + "-journal", journalOf(genuineStore()));
    const Outcome outcome = use([](FMDatabase& database) {
        EXPECT_EQ(scalar(database, "SELECT COUNT(*) FROM events"), "24") << "the journal was ignored";
    });
    EXPECT_EQ(outcome.succeeded.size(), everyOperation().size());
}

TEST_F(HostileFile, BesideAJournalThatNamesAnotherFileLeavesThatFileAlone) {
    writeFile(path_ + "-journal", journalOf(genuineStore(), surroundings_.notes()));
    use();
    EXPECT_TRUE(fs::exists(surroundings_.notes())) << "a journal had a file removed that it named";
}

TEST_F(HostileFile, BehindALinkBesideAJournalThatNamesAnotherFileLeavesThatFileAlone) {
    fs::create_directory(directory_.path() / "real");
    const std::string real = (directory_.path() / "real" / "kept.db").string();
    fs::rename(path_, real);
    fs::create_symlink("../client/../real/kept.db", path_);
    writeFile(real + "-journal", journalOf(genuineStore(), surroundings_.notes()));
    ZAVError error;
    EXPECT_EQ(FMDatabase::databaseWithPath(path_, {}, &error), nullptr)
        << "the journal beside the file was used";
    EXPECT_EQ(error.code(), 6) << error.description();
    EXPECT_TRUE(fs::exists(surroundings_.notes())) << "a journal had a file removed that it named";
}

TEST_F(HostileFile, BesideAJournalThatNamesADatabaseLeavesThatDatabaseAlone) {
    const std::string other = directory_.file("other.db");
    writeFile(other, genuineStore());
    writeFile(path_ + "-journal", journalOf(genuineStore(), other));
    use();
    EXPECT_EQ(bytesOfFile(other), genuineStore()) << "a journal had another database removed";
}

// Data that look like something else

/// Texts of an attacker who hopes that they end up in a statement, a format or a path.
const Lines hostileTexts{"'); DROP TABLE events; --",
                         "x' OR '1'='1",
                         "\"events\"",
                         "%@ %s %n %lld",
                         "?1 :a @b $c",
                         "../../outside/notes",
                         "a\r\nb\x1B[2J",
                         std::string("zero\0byte", 9),
                         "\xE2\x80\xAE\xF0\x9F\x92\xA3",
                         std::string(100000, '\'')};

TEST(HostileData, AreStoredAsTheyAre) {
    const TestStore store;
    store.addStream(uuidNumber(200));
    for (const std::string& text : hostileTexts) {
        auto event = makeEvent(EventType_MESSAGE, uuidNumber(200), 1);
        event->set_creator_id(text);
        event->set_creator_name(text);
        event->set_member_id(text);
        event->set_client_id(ZAVData::fromText(text));
        event->set_transient_metadata(ZAVDictionary{{text, text}});
        auto part = makeTextPart(text);
        part->set_media_type(text);
        event->set_content(std::vector<std::shared_ptr<ZAVTContent>>{part});
        ZAVError error;
        ASSERT_TRUE(store.repository().persistEvents({event}, &error)) << error.description();
        const auto read = store.repository().eventForDatabaseIdentifier(event->databaseIdentifier(), &error);
        ASSERT_NE(read, nullptr) << error.description();
        EXPECT_EQ(read->creator_id(), text);
        EXPECT_EQ(read->creator_name(), text);
        EXPECT_EQ(read->member_id(), text);
        EXPECT_EQ(read->client_id(), ZAVData::fromText(text));
        EXPECT_EQ(describeMetadata(*read), Lines{text + "=" + text});
        ASSERT_EQ(partsOf(*read).size(), 1U);
        EXPECT_EQ(partsOf(*read)[0]->media_type(), text);
        EXPECT_EQ(partsOf(*read)[0]->body(), ZAVData::fromText(text));
    }
    EXPECT_EQ(store.repository().countOfEvents(), hostileTexts.size());
}

TEST(HostileData, InALookupFindNothingElse) {
    const TestStore store;
    fillStore(store.sharedDatabase());
    const Lines before = rowsOfAllTables(store.database());
    for (const std::string& text : hostileTexts) {
        ZAVError error;
        EXPECT_FALSE(
            store.repository().persistConversationsParticipantsSeq(5, text, uuidNumber(0xAA), &error) &&
            store.database().changes() != 0)
            << text;
        if (const auto url = ZAVURL::URLWithString(text)) {
            EXPECT_EQ(store.repository().eventContentForExternalContentURL(*url, &error), nullptr);
        }
        EXPECT_FALSE(error) << error.description();
    }
    EXPECT_EQ(rowsOfAllTables(store.database()), before);
}

TEST(HostileData, InTheListOfTypesChangeNothing) {
    const TestStore store;
    fillStore(store.sharedDatabase());
    const Lines before = rowsOfAllTables(store.database());
    const LogCapture log;
    Lines types = hostileTexts;
    types.insert(types.end(),
                 {"x') OR 1) LIMIT 1; DELETE FROM events; --", "x')) UNION SELECT * FROM sqlite_master --",
                  "x') OR load_extension('x') OR type IN ('x", "x') /*"});
    for (const std::string& type : types) {
        ZAVError error;
        const auto parts = store.repository().eventContentsHavingExpiredDownloadURLsWithAutoDownloadMIMETypes(
            {{type}}, 1, 10, &error);
        EXPECT_NE(parts.has_value(), static_cast<bool>(error)) << type << ": " << error.description();
        EXPECT_EQ(store.database().openResultSets(), 0U) << type;
    }
    EXPECT_EQ(rowsOfAllTables(store.database()), before) << "reading a queue changed the database";
}

}  // namespace
}  // namespace zav::test
