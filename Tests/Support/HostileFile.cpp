#include "Support/HostileFile.h"

#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVDatabaseSchema.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <utility>

#include "Operations/Catalogue.h"
#include "Operations/FilledStore.h"
#include "Support/DatabaseHandles.h"
#include "Support/LogCapture.h"

namespace zav::test {
namespace {

namespace fs = std::filesystem;
using Lines = std::vector<std::string>;

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

bool isOfTheDatabase(const std::string& path, const std::string& database) {
    return path == database || path == database + "-wal" || path == database + "-shm" ||
           path == database + "-journal";
}

bool isErrorLine(const LogRecord& line) {
    return line.flag == DDLogFlagError;
}

void expectDefences(FMDatabase& database) {
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

void callOf(const Operation& operation, const std::shared_ptr<FMDatabase>& database, const LogCapture& log,
            Outcome& outcome) {
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
        EXPECT_EQ(answer.value, operation.answers.failing) << error.description();
    }
    if (error.message() == beyondBounds) {
        outcome.stopped.insert(nameOf(operation));
    }
    EXPECT_EQ(database->openResultSets(), 0U) << "a cursor stayed open";
    EXPECT_EQ(busyStatements(*database), 0) << "a statement is still under way";
    EXPECT_FALSE(database->inTransaction()) << "a transaction stayed open";
}

}  // namespace

std::atomic<int> sideEffects{0};

// What the engine does outside the database

EquippedConnections::EquippedConnections() {
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(equip));
}

EquippedConnections::~EquippedConnections() {
    sqlite3_cancel_auto_extension(reinterpret_cast<void (*)()>(equip));
}

WatchedFileSystem::WatchedFileSystem() : original_(sqlite3_vfs_find(nullptr)), watched_(*original_) {
    watched_.zName = name;
    watched_.pNext = nullptr;
    watched_.pAppData = this;
    watched_.xOpen = open;
    watched_.xDelete = remove;
    if (sqlite3_vfs_register(&watched_, 0) != SQLITE_OK) {
        throw std::runtime_error("cannot watch the file system");
    }
}

int WatchedFileSystem::open(sqlite3_vfs* vfs, const char* path, sqlite3_file* file, int flags,
                            int* flagsOut) {
    WatchedFileSystem& watch = *static_cast<WatchedFileSystem*>(vfs->pAppData);
    if (path != nullptr) {
        watch.uses_.insert(std::string("opened ") + path);
        struct stat status {};
        if (::lstat(path, &status) == 0 && S_ISFIFO(status.st_mode) && (flags & SQLITE_OPEN_READONLY) != 0) {
            watch.waits_.emplace_back(path);
            file->pMethods = nullptr;
            return SQLITE_CANTOPEN;
        }
    }
    return watch.original_->xOpen(watch.original_, path, file, flags, flagsOut);
}

int WatchedFileSystem::remove(sqlite3_vfs* vfs, const char* path, int synchronise) {
    WatchedFileSystem& watch = *static_cast<WatchedFileSystem*>(vfs->pAppData);
    watch.uses_.insert(std::string("removed ") + path);
    return watch.original_->xDelete(watch.original_, path, synchronise);
}

void writeFile(const std::string& path, std::string_view bytes) {
    std::ofstream file(path, std::ios::binary);
    if (!(file << bytes).flush()) {
        throw std::runtime_error("cannot write " + path);
    }
}

Surroundings::Surroundings(fs::path root) : root_(std::move(root)) {
    fs::create_directories(root_ / "deep" / "empty");
    writeFile(notes(), "files/1\nnot for you\n");
    writeFile((root_ / "deep" / "image").string(), std::string(5000, '\xFE'));
    writeFile((root_ / "deep" / "extension.so").string(), "no program");
    fs::create_symlink("notes", root_ / "link");
    before_ = state();
}

void Surroundings::expectUntouched() const {
    EXPECT_EQ(state(), before_) << "something beside the database was made, changed or removed";
}

std::map<std::string, std::string> Surroundings::state() const {
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

const std::string& genuineStore() {
    static const std::string bytes = [] {
        const TemporaryDirectory directory;
        const std::string path = directory.file("store.db");
        fillStore(openStore(path));
        return bytesOfFile(path);
    }();
    return bytes;
}

AttackersConnection::AttackersConnection(const std::string& path) {
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

AttackersConnection::~AttackersConnection() {
    sqlite3_close(connection_);
}

std::string AttackersConnection::attempt(const std::string& script) const {
    return sqlite3_exec(connection_, script.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK
               ? ""
               : sqlite3_errmsg(connection_);
}

Lines tablesOf(FMDatabase& database) {
    Lines names;
    auto rows = database.executeQuery(
        "SELECT name FROM sqlite_master WHERE type = 'table' AND name NOT LIKE 'sqlite%' ORDER BY name");
    while (rows && rows->next()) {
        names.push_back(rows->stringForColumnIndex(0).value_or(""));
    }
    return names;
}

HostileFile::HostileFile() : surroundings_(fs::path(directory_.path()) / "outside") {
    fs::create_directory(directory_.path() / "client");
    writeFile(path_, genuineStore());
    sideEffects = 0;
}

void HostileFile::tamper(const std::string& script) const {
    const std::string failure = AttackersConnection(path_).attempt(script);
    ASSERT_EQ(failure, "") << script;
}

Outcome HostileFile::use(const std::function<void(FMDatabase&)>& work) {
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

void HostileFile::expectNothingElseTouched() const {
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

}  // namespace zav::test
