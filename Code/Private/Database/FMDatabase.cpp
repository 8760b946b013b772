#include <ZAVEventRepository/FMDatabase.h>

#include <sqlite3.h>

#include <algorithm>
#include <chrono>
#include <limits>
#include <new>
#include <utility>

#include "Private/Database/Internal/ZAVDatabaseFile.h"
#include "Private/Database/Internal/ZAVEncryption.h"
#include "Private/Database/Internal/ZAVInterruptionTimer.h"
#include "Private/Database/Internal/ZAVObservation.h"
#include "Private/Database/Internal/ZAVOptionsCheck.h"
#include "Private/Database/Internal/ZAVStatementBounds.h"
#include "Private/Database/Internal/ZAVStatementCache.h"

namespace zav {
namespace {

ZAVError engineError(sqlite3* connection) {
    return {ZAVErrorDomainSQLite, sqlite3_extended_errcode(connection), sqlite3_errmsg(connection)};
}

/// An engine that lacks one of these switches is older than the danger that it guards against.
void keepForeignHandsOff(sqlite3* connection) noexcept {
#ifdef SQLITE_DBCONFIG_DEFENSIVE
    sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
#endif
#ifdef SQLITE_DBCONFIG_TRUSTED_SCHEMA
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
#endif
#ifdef SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_LOAD_EXTENSION, 0, nullptr);
#endif
}

/// Runs an action when the scope is left, also by an exception.
template <class Action>
class Finally {
public:
    explicit Finally(Action action) noexcept : action_(std::move(action)) {}
    ~Finally() { action_(); }
    Finally(const Finally&) = delete;
    Finally& operator=(const Finally&) = delete;

private:
    Action action_;
};

/// The text must not be longer than the engine's limit, which is an `int`.
int prepareStatement(sqlite3* connection, std::string_view sql, sqlite3_stmt** statement,
                     const char** tail) noexcept {
    const int size = static_cast<int>(sql.size());
#ifdef SQLITE_PREPARE_PERSISTENT
    return sqlite3_prepare_v3(connection, sql.data(), size, SQLITE_PREPARE_PERSISTENT, statement, tail);
#else
    return sqlite3_prepare_v2(connection, sql.data(), size, statement, tail);
#endif
}

/// Asks the engine and not the file system, which would need memory for the path.
bool hasEmptyLog(sqlite3* connection) noexcept {
#ifdef SQLITE_FCNTL_JOURNAL_POINTER
    sqlite3_file* log = nullptr;
    if (sqlite3_file_control(connection, "main", SQLITE_FCNTL_JOURNAL_POINTER, &log) != SQLITE_OK) {
        return false;
    }
    sqlite3_int64 size = 0;
    return log == nullptr || log->pMethods == nullptr ||
           (log->pMethods->xFileSize(log, &size) == SQLITE_OK && size == 0);
#else
    static_cast<void>(connection);
    return false;
#endif
}

bool isBlank(std::string_view text) noexcept {
    return text.find_first_not_of(" \t\r\n\f;") == std::string_view::npos;
}

}  // namespace

std::shared_ptr<FMDatabase> FMDatabase::databaseWithPath(const std::string& path,
                                                         const FMDatabaseOptions& options, ZAVError* error) {
    int flags = SQLITE_OPEN_NOMUTEX;  // one thread at a time: the engine need not lock
    switch (options.access) {
        case FMDatabaseOptions::Access::readOnly:
            flags |= SQLITE_OPEN_READONLY;
            break;
        case FMDatabaseOptions::Access::readWrite:
            flags |= SQLITE_OPEN_READWRITE;
            break;
        case FMDatabaseOptions::Access::readWriteCreate:
            flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
            break;
    }
    ZAVDatabaseFile file;
    ZAVError objection = ZAVObjectionToOptions(options);
    if (!objection) {
        objection = file.find(path, options.vfs);
    }
    if (objection) {
        ZAVStoreError(error, objection);
        return nullptr;
    }
    if ((flags & SQLITE_OPEN_CREATE) != 0 && file.makeIfAbsent(options.newFileMode)) {
        flags &= ~SQLITE_OPEN_CREATE;  // the engine would make it with other permissions
    }
    const std::shared_ptr<FMDatabase> database(new FMDatabase(options.statementCacheCapacity));
    const char* vfs = options.vfs.empty() ? nullptr : options.vfs.c_str();
    if (sqlite3_open_v2(file.path().c_str(), &database->connection_, flags, vfs) != SQLITE_OK) {
        ZAVStoreError(error, engineError(database->connection_));
        return nullptr;
    }
    bool isAccepted = false;
    const Finally leaveAlone([&] {
        if (!isAccepted) {
            database->closeUntouched();
        }
    });
    database->bounds_ = std::make_unique<ZAVStatementBounds>(database->connection_);
    // The first look into the file reads its schema, whose pages may be damaged like any other's.
    ZAVStatementRun opening;
    database->bounds_->begin(opening);
    const ZAVStatementBounds::Charge charge(*database->bounds_, opening);
    isAccepted = database->configure(options);
    if (!isAccepted) {
        if (opening.hasPassedBounds) {
            database->failBeyondBounds();
        }
        ZAVStoreError(error, ZAVErrorOfKey(database->lastError(), database->connection_, path,
                                           options.key.has_value()));
    }
    return isAccepted ? database : nullptr;
}

FMDatabase::FMDatabase(std::size_t statementCacheCapacity)
    : statements_(std::make_unique<ZAVStatementCache>(statementCacheCapacity)) {}

FMDatabase::~FMDatabase() {
    close();
}

void FMDatabase::close() noexcept {
    if (statements_ != nullptr) {
        statements_->closeCursors();
    }
    observation_.reset();
    statements_.reset();
    if (connection_ != nullptr) {
        // Statements of the application's own may keep the connection alive.
        sqlite3_progress_handler(connection_, 0, nullptr, nullptr);
    }
    sqlite3_close_v2(std::exchange(connection_, nullptr));
}

bool FMDatabase::configure(const FMDatabaseOptions& options) {
    sqlite3_extended_result_codes(connection_, 1);
    constexpr std::chrono::milliseconds longestTimeout(std::numeric_limits<int>::max());
    busyTimeout_ = std::min(options.busyTimeout, longestTimeout);
    sqlite3_busy_timeout(connection_, static_cast<int>(busyTimeout_.count()));
    keepForeignHandsOff(connection_);
    if (options.key && ZAVUseKey(connection_, *options.key) != SQLITE_OK) {
        return failWithEngineError();
    }
    if (!executeStatements("PRAGMA cell_size_check=ON; PRAGMA cache_size=-" +
                           std::to_string(options.pageCacheKiB) +
                           "; PRAGMA wal_autocheckpoint=" + std::to_string(options.writeAheadLogPages))) {
        return false;
    }
    // Reading the version is the first look into the file: it tells whether there is a database in it at all.
    std::int64_t userVersion = 0;
    {
        auto rows = executeQuery("PRAGMA user_version");
        ZAVError error;
        if (!rows || (!rows->nextWithError(&error) && error)) {
            return false;
        }
        userVersion = rows->longLongIntForColumnIndex(0);
    }
    if (options.newestUserVersion && userVersion > *options.newestUserVersion) {
        return fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorNewerSchema,
                     "the database has schema version " + std::to_string(userVersion) +
                         ", but this version of the library knows only versions up to " +
                         std::to_string(*options.newestUserVersion)});
    }
    isDurable_ = options.synchronous == FMDatabaseOptions::Synchronous::full;
    // A journal's deletion is the commit, and it has to reach the device too: FULL alone does not wait for
    // that.
    if (!executeStatements(isDurable_ ? "PRAGMA synchronous=EXTRA" : "PRAGMA synchronous=NORMAL")) {
        return false;
    }
    return !options.writeAheadLog || options.access == FMDatabaseOptions::Access::readOnly ||
           useWriteAheadLog();
}

/// A file that is refused is left as it was found: not even its write-ahead log is folded into it. An empty
/// log has nothing to fold; it may be the one that opening made, and goes.
void FMDatabase::closeUntouched() noexcept {
    if (hasEmptyLog(connection_)) {
        close();
        return;
    }
#ifdef SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE
    if (sqlite3_db_config(connection_, SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr) == SQLITE_OK) {
        close();
        return;
    }
#endif
    // An older engine folds the log whenever the last connection goes. One that only reads cannot, so it goes
    // after this one.
    sqlite3_vfs* vfs = nullptr;
    sqlite3_file_control(connection_, "main", SQLITE_FCNTL_VFS_POINTER, &vfs);
    const char* const path = sqlite3_db_filename(connection_, "main");
    sqlite3* reader = nullptr;
    if (path != nullptr && *path != '\0') {
        sqlite3_open_v2(path, &reader, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX,
                        vfs == nullptr ? nullptr : vfs->zName);
        sqlite3_exec(reader, "PRAGMA user_version", nullptr, nullptr, nullptr);
    }
    close();
    sqlite3_close_v2(reader);
}

bool FMDatabase::useWriteAheadLog() {
    // While another connection does the same the engine fails at once instead of waiting.
    constexpr int pauseInMilliseconds = 2;
    const auto deadline = std::chrono::steady_clock::now() + busyTimeout_;
    while (!executeStatements("PRAGMA journal_mode=WAL")) {
        if ((lastError_.code() & 0xFF) != SQLITE_BUSY || std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        sqlite3_sleep(pauseInMilliseconds);
    }
    // Where the file system shares no memory, and in memory, the engine keeps to the journal without a word.
    auto mode = executeQuery("PRAGMA journal_mode");
    if (!mode || !mode->next()) {
        return false;
    }
    const bool hasLog = mode->stringForColumnIndex(0) == "wal";
    mode->close();
    // With a log nothing is deleted at a commit, and FULL is enough.
    return !isDurable_ || !hasLog || executeStatements("PRAGMA synchronous=FULL");
}

std::optional<FMResultSet> FMDatabase::executeQueryWithArgumentsInArray(std::string_view sql,
                                                                        std::span<const ZAVValue> arguments) {
    return query(statementWithArguments(sql, Bytes::copied, arguments), Reach::free);
}

bool FMDatabase::executeUpdateWithArgumentsInArray(std::string_view sql,
                                                   std::span<const ZAVValue> arguments) {
    return update(statementWithArguments(sql, Bytes::referredTo, arguments), Reach::free);
}

bool FMDatabase::executeBoundedUpdateWithArgumentsInArray(std::string_view sql,
                                                          std::span<const ZAVValue> arguments) {
    return update(statementWithArguments(sql, Bytes::referredTo, arguments), Reach::bounded);
}

bool FMDatabase::prepare(std::string_view sql) {
    ZAVStatement* const statement = lend(sql);
    if (statement == nullptr) {
        return false;
    }
    statements_->giveBack(*statement);
    return true;
}

bool FMDatabase::executeStatements(const std::string& script) {
    if (!leaveAbandonedTransaction()) {
        return false;
    }
    if (refuseUnreadable(script)) {
        return false;
    }
    const auto start = std::chrono::steady_clock::now();
    const bool succeeded = runScript(script.c_str());
    if (observation_ != nullptr && observation_->statements) {
        observation_->statements({script, std::chrono::steady_clock::now() - start, 0, succeeded});
    }
    return succeeded;
}

/// Statement by statement, so that what a failing one takes back is known to be its own.
bool FMDatabase::runScript(const char* script) {
    while (*script != '\0') {
        sqlite3_stmt* handle = nullptr;
        const int status = sqlite3_prepare_v2(connection_, script, -1, &handle, &script);
        ZAVStatementHandle statement(handle);
        if (status != SQLITE_OK) {
            return failWithEngineError();
        }
        const bool succeeded = statement == nullptr || runToEnd(statement.get());
        statement.reset();
        deliverChanges();
        if (!succeeded) {
            return false;
        }
    }
    return true;
}

bool FMDatabase::runToEnd(sqlite3_stmt* statement) {
    const auto changes = observation_ == nullptr ? nullptr : observation_->changes;
    std::size_t changesBefore = 0;
    int status = SQLITE_ROW;
    while (status == SQLITE_ROW) {
        status = changes == nullptr ? sqlite3_step(statement) : changes->step(statement, changesBefore);
    }
    return status == SQLITE_DONE || failWithEngineError();
}

int FMDatabase::changes() const noexcept {
    return sqlite3_changes(connection_);
}

std::int64_t FMDatabase::lastInsertRowId() const noexcept {
    return sqlite3_last_insert_rowid(connection_);
}

bool FMDatabase::inTransaction() const noexcept {
    return sqlite3_get_autocommit(connection_) == 0;
}

void FMDatabase::rollback() {
    // The engine undoes the transaction by itself after some failures; there is then nothing left to do.
    transactionIsAbandoned_ = false;
    if (!inTransaction()) {
        return;
    }
    try {
        executeUpdate("ROLLBACK");
    } catch (const std::bad_alloc&) {
        lastError_ = {ZAVErrorDomainSQLite, SQLITE_NOMEM, "out of memory"};  // short enough to need none
    }
    transactionIsAbandoned_ = inTransaction();
}

/// What is written into an abandoned transaction would be acknowledged, and lost.
bool FMDatabase::leaveAbandonedTransaction() {
    if (transactionIsAbandoned_) {
        rollback();
    }
    return !transactionIsAbandoned_;
}

std::size_t FMDatabase::openResultSets() const noexcept {
    return statements_->cursorCount();
}

ZAVStatement* FMDatabase::statementWithArguments(std::string_view sql, Bytes bytes,
                                                 std::span<const ZAVValue> arguments) {
    ZAVStatement* const statement = lendForValues(sql, arguments.size());
    if (statement == nullptr) {
        return nullptr;
    }
    int position = 0;
    for (const ZAVValue& argument : arguments) {
        if (!bind(*statement, ++position, argument, bytes)) {
            return nullptr;
        }
    }
    return statement;
}

bool FMDatabase::bindInteger(ZAVStatement& statement, int position, std::int64_t value) {
    return sqlite3_bind_int64(statement.handle(), position, value) == SQLITE_OK || discardUnbound(statement);
}

bool FMDatabase::bindReal(ZAVStatement& statement, int position, double value) {
    return sqlite3_bind_double(statement.handle(), position, value) == SQLITE_OK || discardUnbound(statement);
}

bool FMDatabase::bindBytes(ZAVStatement& statement, int position, const FMParameter& value, Bytes bytes) {
    statement.noteBytesAt(position);
    const void* content = value.bytes() == nullptr ? "" : value.bytes();
    sqlite3_destructor_type lifetime = SQLITE_STATIC;
    if (bytes == Bytes::copied) {
        if (const void* const kept = statement.keep(content, value.size())) {
            content = kept;
        } else {
            lifetime = SQLITE_TRANSIENT;
        }
    }
    sqlite3_stmt* const handle = statement.handle();
    const int status = value.kind() == FMParameter::Kind::text
                           ? sqlite3_bind_text64(handle, position, static_cast<const char*>(content),
                                                 value.size(), lifetime, SQLITE_UTF8)
                           : sqlite3_bind_blob64(handle, position, content, value.size(), lifetime);
    return status == SQLITE_OK || discardUnbound(statement);
}

bool FMDatabase::bindNull(ZAVStatement& statement, int position) {
    return sqlite3_bind_null(statement.handle(), position) == SQLITE_OK || discardUnbound(statement);
}

bool FMDatabase::discardUnbound(ZAVStatement& statement) {
    const Finally discard([&] { statements_->discard(statement); });
    return failWithEngineError();
}

std::optional<FMResultSet> FMDatabase::query(ZAVStatement* statement, Reach reach) {
    if (statement == nullptr) {
        return std::nullopt;
    }
    beginRun(*statement, reach);
    return FMResultSet(*this, *statement);
}

bool FMDatabase::update(ZAVStatement* statement, Reach reach) {
    if (statement == nullptr) {
        return false;
    }
    beginRun(*statement, reach);
    int status = SQLITE_ROW;
    while (status == SQLITE_ROW) {
        status = step(*statement);
    }
    if (status != SQLITE_DONE) {
        failAndDiscard(*statement);
        return false;
    }
    giveBack(*statement);
    return true;
}

void FMDatabase::beginRun(ZAVStatement& statement, Reach reach) const noexcept {
    if (reach == Reach::bounded) {
        bounds_->begin(statement.run);
    } else {
        statement.run.isBounded = false;
        statement.run.hasPassedBounds = false;
    }
}

int FMDatabase::step(ZAVStatement& statement) noexcept {
    if (!statement.run.isBounded) {
        return stepEngine(statement);
    }
    const ZAVStatementBounds::Charge charge(*bounds_, statement.run);
    if (statement.isUnprovedCount || observation_ != nullptr) [[unlikely]] {
        return bounds_->outcome(statement.run,
                                statement.isUnprovedCount ? stepCount(statement) : stepEngine(statement));
    }
    return bounds_->outcome(statement.run, sqlite3_step(statement.handle()));
}

int FMDatabase::stepEngine(ZAVStatement& statement) const noexcept {
    return observation_ == nullptr ? sqlite3_step(statement.handle()) : observation_->step(statement);
}

/// Counts the rows of a table for the first time. A count that takes long is interrupted; when a walk over
/// the same rows, which is bounded, comes to an end, it may take as long as that makes likely.
int FMDatabase::stepCount(ZAVStatement& statement) noexcept {
    constexpr std::chrono::seconds patience(2);
    if (openResultSets() > 1) {
        return stepEngine(statement);  // an interruption would end the others too
    }
    ZAVInterruptionTimer timer(connection_, patience);
    const int status = stepEngine(statement);
    if (!timer.stop()) {
        statement.isUnprovedCount = false;
        return status;
    }
    sqlite3_reset(statement.handle());
    const auto start = std::chrono::steady_clock::now();
    try {
        if (!executeBoundedUpdate(statement.sql() + " WHERE ? IS NULL", nullptr)) {
            return lastError_.code();
        }
    } catch (const std::bad_alloc&) {
        return SQLITE_NOMEM;
    }
    // Counting takes a fraction of what walking does.
    ZAVInterruptionTimer secondTimer(connection_, patience + 10 * (std::chrono::steady_clock::now() - start));
    const int secondStatus = stepEngine(statement);
    if (secondTimer.stop()) {
        bounds_->pass(statement.run);
    }
    return secondStatus;
}

/// Takes a statement back that ran, and says what the engine says of it at the end.
int FMDatabase::giveBack(ZAVStatement& statement) noexcept {
    if (observation_ != nullptr) {
        observation_->statementEnds(statement, true);
    }
    const int status = statements_->giveBack(statement);
    deliverChanges();
    return status;
}

/// Stores why the engine failed, and takes the statement out of use.
void FMDatabase::failAndDiscard(ZAVStatement& statement) {
    const Finally discard([&] { discardFailed(statement); });
    failRun(statement);
}

void FMDatabase::discardFailed(ZAVStatement& statement) noexcept {
    if (observation_ != nullptr) {
        observation_->statementEnds(statement, false);
    }
    statements_->discard(statement);
    deliverChanges();
}

void FMDatabase::deliverChanges() noexcept {
    if (observation_ != nullptr) {
        if (const auto changes = observation_->changes) {
            changes->deliver();
        }
    }
}

void FMDatabase::setStatementObserver(FMStatementObserver observer) {
    changeObservation([&](ZAVObservation& observation) { observation.statements = std::move(observer); });
    forgetCounts();
}

void FMDatabase::setChangeObserver(FMChangeObserver observer) {
    changeObservation([&](ZAVObservation& observation) {
        if (observation.changes != nullptr) {
            observation.changes->stop();  // it may live on for the delivery that this is called from
            observation.changes.reset();
        }
        if (observer) {
            observation.changes = std::make_shared<ZAVChangeCollector>(connection_, std::move(observer));
        }
    });
    statements_->forEachLent([](ZAVStatement& statement) { statement.changesBefore = 0; });
}

template <class Change>
void FMDatabase::changeObservation(const Change& change) {
    if (observation_ == nullptr) {
        observation_ = std::make_unique<ZAVObservation>();
    }
    change(*observation_);
    if (observation_->isIdle()) {
        observation_.reset();
        forgetCounts();
    }
}

/// What was counted for one observer is none of the next one's.
void FMDatabase::forgetCounts() noexcept {
    statements_->forEachLent([](ZAVStatement& statement) {
        statement.duration = {};
        statement.rows = 0;
    });
}

/// Lends the statement `sql`, from the cache or prepared now; null on failure.
ZAVStatement* FMDatabase::lend(std::string_view sql) {
    if (transactionIsAbandoned_ && !leaveAbandonedTransaction()) {
        return nullptr;
    }
    ZAVStatement* const statement = statements_->borrow(sql);
    return statement != nullptr ? statement : lendNew(sql);
}

/// Lends the statement `sql` to bind so many values to; null on failure.
ZAVStatement* FMDatabase::lendForValues(std::string_view sql, std::size_t valueCount) {
    ZAVStatement* const statement = lend(sql);
    if (statement == nullptr || statement->placeholderCount() == valueCount) {
        return statement;
    }
    const std::size_t placeholderCount = statement->placeholderCount();
    statements_->giveBack(*statement);  // before the message, which memory may not suffice for
    fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorWrongValueCount,
          "the statement has " + std::to_string(placeholderCount) + " placeholders, but " +
              std::to_string(valueCount) + " values were given: " + std::string(sql)});
    return nullptr;
}

/// Prepares the statement `sql` and lends it; null on failure.
ZAVStatement* FMDatabase::lendNew(std::string_view sql) {
    if (sql.data() == nullptr) {
        sql = "";  // the engine takes no null
    }
    if (refuseTooLong(sql) || refuseUnreadable(sql)) {
        return nullptr;
    }
    sqlite3_stmt* handle = nullptr;
    const char* tail = nullptr;
    // What is prepared is anybody's, but the schema that the engine may read for it is not.
    ZAVStatementRun reading;
    reading.textSize = sql.size();
    bounds_->begin(reading);
    const ZAVStatementBounds::Charge charge(*bounds_, reading);
    const int status = prepareStatement(connection_, sql, &handle, &tail);
    ZAVStatementHandle statement(handle);
    if (status != SQLITE_OK) {
        static_cast<void>(reading.hasPassedBounds ? failBeyondBounds() : failWithEngineError());
        return nullptr;
    }
    if (statement == nullptr) {
        fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorNoStatement, "the text holds no statement"});
        return nullptr;
    }
    const std::string_view rest = sql.substr(static_cast<std::size_t>(tail - sql.data()));
    if (!isBlank(rest)) {
        statement.reset();
        fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorTrailingText,
              "there is text after the first statement: " + std::string(rest)});
        return nullptr;
    }
    return &statements_->add(std::move(statement), sql);
}

/// The engine reads no further than a NUL, and says nothing of it.
bool FMDatabase::refuseUnreadable(std::string_view sql) {
    const std::size_t position = sql.find('\0');
    if (position == std::string_view::npos) {
        return false;
    }
    fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorNulInText,
          "the text of a statement holds a NUL, after: " + std::string(sql.substr(0, position))});
    return true;
}

bool FMDatabase::refuseTooLong(std::string_view sql) {
    const int longest = sqlite3_limit(connection_, SQLITE_LIMIT_SQL_LENGTH, -1);
    if (sql.size() <= static_cast<std::size_t>(longest)) {
        return false;
    }
    fail({ZAVErrorDomainSQLite, SQLITE_TOOBIG,
          "the text of a statement has " + std::to_string(sql.size()) + " bytes; the engine takes " +
              std::to_string(longest)});
    return true;
}

bool FMDatabase::fail(ZAVError error) {
    lastError_ = std::move(error);
    return false;
}

bool FMDatabase::failWithEngineError() {
    // A failure may have ended the transaction: whoever began it must not take a later one for it.
    if (!inTransaction()) {
        ++transactionNumber_;
    }
    return fail(engineError(connection_));
}

/// The reason why a run failed: the engine's, or that it passed its bounds.
bool FMDatabase::failRun(const ZAVStatement& statement) {
    return statement.run.hasPassedBounds ? failBeyondBounds() : failWithEngineError();
}

bool FMDatabase::failBeyondBounds() {
    failWithEngineError();
    return fail(ZAVStatementBounds::error());
}

}  // namespace zav
