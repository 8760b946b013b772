#include "Private/Database/Internal/ZAVConnection.h"

#include <sqlite3.h>

#include <new>
#include <utility>

#include "Private/Database/Internal/ZAVCompactionMarker.h"
#include "Private/Database/Internal/ZAVSavepointStatement.h"
#include "Private/Database/Internal/ZAVWatchedCount.h"

namespace zav {
namespace {

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
int prepareStatement(sqlite3* engine, std::string_view sql, sqlite3_stmt** statement,
                     const char** tail) noexcept {
    const int size = static_cast<int>(sql.size());
#ifdef SQLITE_PREPARE_PERSISTENT
    return sqlite3_prepare_v3(engine, sql.data(), size, SQLITE_PREPARE_PERSISTENT, statement, tail);
#else
    return sqlite3_prepare_v2(engine, sql.data(), size, statement, tail);
#endif
}

bool isBeingCompacted(sqlite3* engine) {
    const char* const path = sqlite3_db_filename(engine, "main");
    return path != nullptr && *path != '\0' && ZAVCompactionMarker::isHeld(path);
}

bool isBlank(std::string_view text) noexcept {
    return text.find_first_not_of(" \t\r\n\f;") == std::string_view::npos;
}

}  // namespace

void ZAVEngineCloser::operator()(sqlite3* engine) const noexcept {
    // Statements of the application's own may keep the connection alive.
    sqlite3_progress_handler(engine, 0, nullptr, nullptr);
    sqlite3_busy_handler(engine, nullptr, nullptr);
    ZAVCheckpointGuard::leave(engine);
    sqlite3_close_v2(engine);
}

ZAVConnection::ZAVConnection(ZAVEngineHandle engine, const Settings& settings)
    : engine_(std::move(engine)),
      settings_(settings),
      statements_(settings.statementCacheCapacity),
      bounds_(engine_.get(), isInterrupted_),
      checkpoints_(engine_.get(), statements_),
      lockWait_(engine_.get(), settings.busyTimeout) {
    lockWait_.setEarlyEnd([this] { return isInterrupted(); });
}

ZAVConnection::~ZAVConnection() {
    close();
}

void ZAVConnection::close() noexcept {
    statements_.closeCursors(&FMResultSet::close);
    observation_.reset();
    statements_.clear();
    engine_.reset();
}

bool ZAVConnection::fail(ZAVError error) {
    lastError_ = std::move(error);
    return false;
}

bool ZAVConnection::failWithEngineError() {
    const int status = sqlite3_extended_errcode(engine());
    const char* const message = sqlite3_errmsg(engine());
    return fail({ZAVErrorDomainSQLite, status,
                 status == SQLITE_BUSY && isBeingCompacted(engine())
                     ? message + std::string(": the database is being compacted")
                     : message});
}

bool ZAVConnection::failBeyondBounds() {
    return fail(ZAVStatementBounds::error());
}

ZAVStatement* ZAVConnection::refuseValues(ZAVStatement& statement, std::string_view sql,
                                          std::size_t valueCount) {
    const std::size_t placeholderCount = statement.placeholderCount();
    giveBackUnused(statement);  // before the message, which memory may not suffice for
    fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorWrongValueCount,
          "the statement has " + std::to_string(placeholderCount) + " placeholders, but " +
              std::to_string(valueCount) + " values were given: " + std::string(sql)});
    return nullptr;
}

ZAVStatement* ZAVConnection::lendNew(ZAVSQL sql) {
    // The engine takes no null.
    const std::string_view text = sql.text().data() == nullptr ? std::string_view("") : sql.text();
    ZAVStatementHandle statement = isShortEnough(text) && isReadable(text) ? prepare(text) : nullptr;
    return statement == nullptr ? nullptr : &statements_.add(std::move(statement), sql);
}

ZAVStatementHandle ZAVConnection::prepare(std::string_view sql) {
    sqlite3_stmt* handle = nullptr;
    const char* tail = nullptr;
    // What is prepared may be anything, but the schema that the engine may read for it is bounded.
    ZAVStatementRun reading;
    reading.textSize = sql.size();
    bounds_.begin(reading);
    const ZAVStatementBounds::Charge charge(bounds_, reading);
    const int status = prepareStatement(engine(), sql, &handle, &tail);
    ZAVStatementHandle statement(handle);
    if (status != SQLITE_OK) {
        noteEndOfTransaction();
        static_cast<void>(reading.hasPassedBounds ? failBeyondBounds() : failToPrepare());
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
    }
    return statement;
}

bool ZAVConnection::failToPrepare() {
    const auto refusal = checkpoints_.takeRefusal();
    return refusal ? fail(*refusal) : failWithEngineError();
}

/// The engine reads no further than a NUL, and does not report it.
bool ZAVConnection::isReadable(std::string_view sql) {
    const std::size_t position = sql.find('\0');
    return position == std::string_view::npos ||
           fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorNulInText,
                 "the text of a statement holds a NUL, after: " + std::string(sql.substr(0, position))});
}

bool ZAVConnection::isShortEnough(std::string_view sql) {
    const int longest = sqlite3_limit(engine(), SQLITE_LIMIT_SQL_LENGTH, -1);
    return sql.size() <= static_cast<std::size_t>(longest) ||
           fail({ZAVErrorDomainSQLite, SQLITE_TOOBIG,
                 "the text of a statement has " + std::to_string(sql.size()) + " bytes; the engine takes " +
                     std::to_string(longest)});
}

bool ZAVConnection::bindBytes(ZAVStatement& statement, int position, const FMParameter& value, Bytes bytes) {
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
    return isBound(statement, value.kind() == FMParameter::Kind::text
                                  ? sqlite3_bind_text64(handle, position, static_cast<const char*>(content),
                                                        value.size(), lifetime, SQLITE_UTF8)
                                  : sqlite3_bind_blob64(handle, position, content, value.size(), lifetime));
}

bool ZAVConnection::discardUnbound(ZAVStatement& statement) {
    const Finally discard([&] { statements_.discard(statement); });
    return failWithEngineError();
}

int ZAVConnection::step(ZAVStatement& statement) noexcept {
    if (!statement.run.isBounded || statement.isUnprovedCount || observation_ != nullptr) [[unlikely]] {
        return stepWatched(statement);
    }
    const ZAVStatementBounds::Charge charge(bounds_, statement.run);
    return bounds_.outcome(statement.run, sqlite3_step(statement.handle()));
}

int ZAVConnection::stepWatched(ZAVStatement& statement) noexcept {
    if (!statement.run.isBounded) {
        return stepUnbounded(statement);
    }
    const ZAVStatementBounds::Charge charge(bounds_, statement.run);
    return bounds_.outcome(statement.run, statement.isUnprovedCount ? ZAVStepWatchedCount(*this, statement)
                                                                    : stepUnbounded(statement));
}

int ZAVConnection::stepUnbounded(ZAVStatement& statement) const noexcept {
    return observation_ == nullptr ? sqlite3_step(statement.handle()) : observation_->step(statement);
}

bool ZAVConnection::finish(ZAVStatement& statement) {
    int status = SQLITE_ROW;
    while (status == SQLITE_ROW) {
        status = step(statement);
    }
    if (status != SQLITE_DONE) {
        discardFailed(statement);
        return false;
    }
    giveBack(statement);
    return true;
}

int ZAVConnection::giveBack(ZAVStatement& statement) noexcept {
    if (observation_ != nullptr) {
        observation_->statementEnds(statement, true);
    }
    const int status = statements_.giveBack(statement);
    if (status != SQLITE_OK) [[unlikely]] {
        noteEndOfTransaction();
    }
    deliverChanges();
    return status;
}

void ZAVConnection::discardFailed(ZAVStatement& statement) {
    const Finally discard([&] {
        if (observation_ != nullptr) {
            observation_->statementEnds(statement, false);
        }
        statements_.discard(statement);
        deliverChanges();
    });
    noteEndOfTransaction();
    static_cast<void>(statement.run.hasPassedBounds ? failBeyondBounds() : failWithEngineError());
}

bool ZAVConnection::runScript(const std::string& script) {
    if (((isBlocked_ || isInterrupted()) && !unblock()) || !isReadable(script)) {
        return false;
    }
    const auto start = std::chrono::steady_clock::now();
    const bool succeeded = runStatements(script.c_str());
    if (observation_ != nullptr && observation_->statements) {
        observation_->statements({script, std::chrono::steady_clock::now() - start, 0, succeeded});
    }
    return succeeded;
}

/// Statement by statement, so that what a failing one takes back is known to be its own.
bool ZAVConnection::runStatements(const char* script) {
    while (*script != '\0') {
        sqlite3_stmt* handle = nullptr;
        const int status = sqlite3_prepare_v2(engine(), script, -1, &handle, &script);
        ZAVStatementHandle statement(handle);
        const bool succeeded =
            status == SQLITE_OK ? statement == nullptr || runToEnd(statement.get()) : failToPrepare();
        if (!succeeded) {
            noteEndOfTransaction();
        }
        statement.reset();
        deliverChanges();
        if (!succeeded) {
            return false;
        }
    }
    return true;
}

bool ZAVConnection::runToEnd(sqlite3_stmt* statement) {
    if (!mayControlTransactions(sqlite3_sql(statement))) {
        return false;
    }
    const auto changes = observation_ == nullptr ? nullptr : observation_->changes;
    std::size_t changesBefore = 0;
    int status = SQLITE_ROW;
    while (status == SQLITE_ROW) {
        status = changes == nullptr ? sqlite3_step(statement) : changes->step(statement, changesBefore);
    }
    return status == SQLITE_DONE || failWithEngineError();
}

std::optional<std::uint64_t> ZAVConnection::beginTransaction() {
    // What ends a transaction is made ready before it begins, for when memory is short.
    for (const ZAVSQL ending : {ZAVSQL("ROLLBACK"), ZAVSQL("COMMIT")}) {
        ZAVStatement* const statement = lend(ending);
        if (statement == nullptr) {
            return std::nullopt;
        }
        giveBackUnused(*statement);
    }
    lockWait_.letAnotherGoFirst();
    return update(lend("BEGIN IMMEDIATE"), Reach::free) ? std::optional(++transactionNumber_) : std::nullopt;
}

bool ZAVConnection::commitTransaction() {
    return update(lend("COMMIT"), Reach::free);
}

bool ZAVConnection::isInTransaction() const noexcept {
    return sqlite3_get_autocommit(engine()) == 0;
}

void ZAVConnection::endTransaction() noexcept {
    // The engine undoes the transaction by itself after some failures; there is then nothing left to do.
    isBlocked_ = false;
    if (!isInTransaction()) {
        return;
    }
    try {
        update(lend("ROLLBACK"), Reach::free);
    } catch (const std::bad_alloc&) {
        lastError_ = {ZAVErrorDomainSQLite, SQLITE_NOMEM, "out of memory"};  // short enough to need none
    }
    isBlocked_ = isHeld_ || isInTransaction();
}

void ZAVConnection::interrupt() noexcept {
    isInterrupted_.store(true, std::memory_order_relaxed);
    // The engine looks at its own flag within a step, and forgets it when none of its statements is running.
    sqlite3_interrupt(engine());
}

void ZAVConnection::releaseMemory() noexcept {
    if (statements_.cursorCount() == 0) {
        statements_.clear();
    }
    sqlite3_db_release_memory(engine());
}

/// What is written into an abandoned transaction would be acknowledged, and lost; what is written after one
/// that is held has ended would be stored on its own.
bool ZAVConnection::unblock() noexcept {
    if (isInterrupted()) {
        return fail({ZAVErrorDomainSQLite, SQLITE_INTERRUPT, "interrupted"});  // short enough for no memory
    }
    if (isBlocked_ && isInTransaction()) {
        endTransaction();
    }
    return !isBlocked_;
}

void ZAVConnection::letGoOfTransaction() noexcept {
    isHeld_ = false;
    isBlocked_ = isBlocked_ && isInTransaction();
}

bool ZAVConnection::controlsTransactions(std::string_view sql) {
    using Kind = ZAVSavepointStatement::Kind;
    const ZAVSavepointStatement statement(sql);
    return statement.kind == Kind::transaction ||
           (statement.kind != Kind::none &&
            sqlite3_stricmp(statement.name.c_str(), ZAVHoldersSavepoint) == 0);
}

bool ZAVConnection::refuseControl() {
    return fail({ZAVErrorDomainDatabase, ZAVDatabaseErrorTransactionOfAnother,
                 "the transaction is the store's, which alone begins and ends it"});
}

/// After a failure, with which the engine may have undone the transaction: whoever began it must not take a
/// later one for it.
void ZAVConnection::noteEndOfTransaction() noexcept {
    if (!isInTransaction()) {
        ++transactionNumber_;
        isBlocked_ = isHeld_;
    }
}

void ZAVConnection::deliverChanges() noexcept {
    if (observation_ != nullptr) {
        if (const auto changes = observation_->changes) {
            changes->deliver();
        }
    }
}

void ZAVConnection::setStatementObserver(FMStatementObserver observer) {
    changeObservation(
        [&](ZAVObserverRegistry& observation) { observation.statements = std::move(observer); });
    // What was counted for one observer does not count for the next one.
    statements_.forEachLent([](ZAVStatement& statement) {
        statement.duration = {};
        statement.rows = 0;
    });
}

void ZAVConnection::setChangeObserver(FMChangeObserver observer) {
    changeObservation([&](ZAVObserverRegistry& observation) {
        if (observation.changes != nullptr) {
            observation.changes->stop();  // it may live on for the delivery that this is called from
            observation.changes.reset();
        }
        if (observer) {
            observation.changes = std::make_shared<ZAVChangeCollector>(engine(), std::move(observer));
        }
    });
    statements_.forEachLent([](ZAVStatement& statement) { statement.changesBefore = 0; });
}

template <class Change>
void ZAVConnection::changeObservation(const Change& change) {
    if (observation_ == nullptr) {
        observation_ = std::make_unique<ZAVObserverRegistry>();
    }
    change(*observation_);
    if (!observation_->statements && observation_->changes == nullptr) {
        observation_.reset();
    }
}

}  // namespace zav
