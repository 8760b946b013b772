#include "Private/Database/Internal/ZAVDatabaseOpening.h"

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <optional>
#include <utility>

#include "Private/Database/Internal/ZAVDatabaseFile.h"
#include "Private/Database/Internal/ZAVEncryption.h"
#include "Private/Database/Internal/ZAVOpenFiles.h"
#include "Private/Database/Internal/ZAVOptionsCheck.h"
#include "Private/Database/Internal/ZAVPatience.h"
#include "Private/Database/Internal/ZAVReadingError.h"
#include "Private/Database/Internal/ZAVWipedKey.h"

namespace zav {
namespace {

/// What moments can be reckoned with.
constexpr std::chrono::milliseconds longestTimeout(std::numeric_limits<int>::max());

int flagsFor(FMDatabaseOptions::Access access) noexcept {
    constexpr int always = SQLITE_OPEN_NOMUTEX;  // one thread at a time: the engine need not lock
    switch (access) {
        case FMDatabaseOptions::Access::readOnly:
            return always | SQLITE_OPEN_READONLY;
        case FMDatabaseOptions::Access::readWrite:
            return always | SQLITE_OPEN_READWRITE;
        case FMDatabaseOptions::Access::readWriteCreate:
            break;
    }
    return always | SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
}

/// Whether there is a key when there ought to be one, and whether it can be used.
ZAVError objectionToProvided(const std::optional<std::string>& key) {
    return key ? ZAVObjectionToKey(key)
               : ZAVError(ZAVErrorDomainDatabase, ZAVDatabaseErrorNoKey,
                          "there is no key: the function that gives it had none");
}

/// The engine's connection; null on failure.
ZAVEngineHandle openEngine(const std::string& path, const FMDatabaseOptions& options, ZAVError* error) {
    ZAVDatabaseFile file;
    if (const ZAVError objection = file.find(path, options.vfs)) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    int flags = flagsFor(options.access);
    if ((flags & SQLITE_OPEN_CREATE) != 0 && file.makeIfAbsent(options.newFileMode)) {
        flags &= ~SQLITE_OPEN_CREATE;  // the engine would make it with other permissions
    }
    sqlite3* opened = nullptr;
    const char* const vfs = options.vfs.empty() ? nullptr : options.vfs.c_str();
    const int status = sqlite3_open_v2(file.path().c_str(), &opened, flags, vfs);
    ZAVEngineHandle engine(opened);
    if (status != SQLITE_OK) {
        ZAVStoreError(error,
                      {ZAVErrorDomainSQLite, sqlite3_extended_errcode(opened), sqlite3_errmsg(opened)});
        return nullptr;
    }
    return engine;
}

ZAVConnection::Settings settingsFrom(const FMDatabaseOptions& options) noexcept {
    return {options.statementCacheCapacity, std::min(options.busyTimeout, longestTimeout),
            options.synchronous == FMDatabaseOptions::Synchronous::full};
}

/// Switches off what a file of unknown origin could use against its reader. An engine that lacks one of these
/// switches is older than the danger that it guards against.
void refuseHostileSchema(sqlite3* engine) noexcept {
    sqlite3_db_config(engine, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
#ifdef SQLITE_DBCONFIG_DEFENSIVE
    sqlite3_db_config(engine, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
#endif
#ifdef SQLITE_DBCONFIG_TRUSTED_SCHEMA
    sqlite3_db_config(engine, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
#endif
}

/// Has a statement keep its plan whatever is bound to it. Some engines plan a `LIMIT ?` anew for each number,
/// and a queue then prepares its statement at every call.
void keepPlans(sqlite3* engine) noexcept {
#ifdef SQLITE_DBCONFIG_ENABLE_QPSG
    sqlite3_db_config(engine, SQLITE_DBCONFIG_ENABLE_QPSG, 1, nullptr);
#else
    static_cast<void>(engine);
#endif
}

/// Reading the version is the first look into the file: it tells whether there is a database in it at all.
bool hasKnownVersion(ZAVConnection& connection, std::optional<std::int32_t> newest) {
    auto rows = connection.query(connection.lend("PRAGMA user_version"), ZAVConnection::Reach::free);
    ZAVError error;
    if (!rows || (!rows->nextWithError(&error) && error)) {
        return false;
    }
    const std::int64_t version = rows->longLongIntForColumnIndex(0);
    return !newest || version <= *newest || connection.fail(ZAVErrorOfNewerSchema(version, *newest));
}

/// Has a transaction keep the pages that it changes until it is committed, up to a limit. The engine would
/// write them to the log as soon as they fill the cache, and then again and again: new entries of the indexes
/// of URLs and `client_id`s change pages all over a large file.
std::string spillFor(std::int32_t pageCacheKiB) {
    constexpr std::int64_t multiple = 4;
    constexpr std::int64_t most = std::numeric_limits<std::int32_t>::max();
    return pageCacheKiB == 0
               ? ""
               : "; PRAGMA cache_spill=-" + std::to_string(std::min(multiple * pageCacheKiB, most));
}

bool configure(ZAVConnection& connection, const FMDatabaseOptions& options,
               const std::optional<std::string>& key) {
    sqlite3* const engine = connection.engine();
    sqlite3_extended_result_codes(engine, 1);
    refuseHostileSchema(engine);
    keepPlans(engine);
    if (key && ZAVUseKey(engine, *key) != SQLITE_OK) {
        return connection.failWithEngineError();
    }
    // A journal's deletion is the commit, and it has to reach the device too: FULL alone does not wait for
    // that.
    connection.checkpoints().setLimits({options.writeAheadLogPages, options.writeAheadLogCeiling,
                                        std::min(options.writeAheadLogWait, longestTimeout)});
    // What an engine does by default about deleted content depends on who compiled it.
    return connection.runScript("PRAGMA cell_size_check=ON; PRAGMA cache_size=-" +
                                std::to_string(options.pageCacheKiB) + spillFor(options.pageCacheKiB) +
                                "; PRAGMA secure_delete=" + (options.secureDelete ? "ON" : "OFF")) &&
           hasKnownVersion(connection, options.newestUserVersion) &&
           connection.runScript(connection.settings().isDurable ? "PRAGMA synchronous=EXTRA"
                                                                : "PRAGMA synchronous=NORMAL") &&
           (!options.writeAheadLog || options.access == FMDatabaseOptions::Access::readOnly ||
            ZAVUseWriteAheadLog(connection));
}

/// Whether the engine will leave the log alone when the connection is closed.
bool keepsLogOnClose(sqlite3* engine) noexcept {
#ifdef SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE
    return sqlite3_db_config(engine, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr) == SQLITE_OK;
#else
    static_cast<void>(engine);
    return false;
#endif
}

/// A connection to the same file that only reads; null when there can be none.
ZAVEngineHandle readerBeside(sqlite3* engine) noexcept {
    sqlite3_vfs* vfs = nullptr;
    sqlite3_file_control(engine, "main", SQLITE_FCNTL_VFS_POINTER, &vfs);
    const char* const path = sqlite3_db_filename(engine, "main");
    sqlite3* reader = nullptr;
    if (path != nullptr && *path != '\0') {
        sqlite3_open_v2(path, &reader, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                        vfs == nullptr ? nullptr : vfs->zName);
        sqlite3_exec(reader, "PRAGMA user_version", nullptr, nullptr, nullptr);
    }
    return ZAVEngineHandle(reader);
}

std::unique_ptr<ZAVConnection> openWithKey(const std::string& path, const FMDatabaseOptions& options,
                                           const std::optional<std::string>& key, ZAVError* error) {
    ZAVEngineHandle engine = openEngine(path, options, error);
    if (engine == nullptr) {
        return nullptr;
    }
    auto connection = std::make_unique<ZAVConnection>(std::move(engine), settingsFrom(options));
    // The first look into the file reads its schema, whose pages may be damaged like any other's.
    ZAVStatementRun opening;
    connection->bounds().begin(opening);
    const ZAVStatementBounds::Charge charge(connection->bounds(), opening);
    try {
        if (configure(*connection, options, key)) {
            connection->keepOptions(options);
            return connection;
        }
        if (opening.hasPassedBounds) {
            connection->failBeyondBounds();
        }
        const ZAVError reason =
            ZAVErrorOfKey(connection->lastError(), connection->engine(), path, key.has_value());
        ZAVStoreError(error, options.access == FMDatabaseOptions::Access::readOnly
                                 ? ZAVErrorOfReading(reason, connection->engine())
                                 : reason);
    } catch (...) {
        ZAVCloseUntouched(*connection);
        throw;
    }
    ZAVCloseUntouched(*connection);
    return nullptr;
}

}  // namespace

std::unique_ptr<ZAVConnection> ZAVOpenDatabase(const std::string& path, const FMDatabaseOptions& options,
                                               ZAVError* error) {
    if (const ZAVError objection = ZAVObjectionToOptions(options)) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    if (!options.keyProvider) {
        return openWithKey(path, options, options.key, error);
    }
    const ZAVWipedKey provided(options.keyProvider);
    if (const ZAVError objection = objectionToProvided(provided.key())) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    return openWithKey(path, options, provided.key(), error);
}

ZAVError ZAVErrorOfNewerSchema(std::int64_t version, std::int64_t newest) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorNewerSchema,
            "the database has schema version " + std::to_string(version) +
                ", but this version of the library knows only versions up to " + std::to_string(newest)};
}

bool ZAVUseWriteAheadLog(ZAVConnection& connection) {
    // While another connection does the same the engine fails at once instead of waiting.
    constexpr std::chrono::milliseconds longestPause(2);
    ZAVPatience patience(connection.settings().busyTimeout, longestPause);
    while (!connection.runScript("PRAGMA journal_mode=WAL")) {
        if ((connection.lastError().code() & 0xFF) != SQLITE_BUSY || !patience.pause()) {
            return false;
        }
    }
    // Where the file system shares no memory, and in memory, the engine keeps to the journal without a word.
    auto mode = connection.query(connection.lend("PRAGMA journal_mode"), ZAVConnection::Reach::free);
    if (!mode || !mode->next()) {
        return false;
    }
    const bool hasLog = mode->stringForColumnIndex(0) == "wal";
    mode->close();
    // With a log nothing is deleted at a commit, and FULL is enough.
    return !connection.settings().isDurable || !hasLog || connection.runScript("PRAGMA synchronous=FULL");
}

void ZAVCloseUntouched(ZAVConnection& connection) noexcept {
    // An older engine folds the log whenever the last connection goes. One that only reads cannot, so it goes
    // after this one.
    ZAVEngineHandle lastToGo;
    if (ZAVSizeOfLog(connection.engine()) != 0 && !keepsLogOnClose(connection.engine())) {
        lastToGo = readerBeside(connection.engine());
    }
    connection.close();
}

}  // namespace zav
