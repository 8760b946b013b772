#pragma once

#include <sqlite3.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <ZAVEventRepository/FMObservation.h>
#include <ZAVEventRepository/FMParameter.h>
#include <ZAVEventRepository/FMResultSet.h>
#include <ZAVEventRepository/ZAVDatabaseError.h>
#include <ZAVEventRepository/ZAVError.h>

#include "Private/Database/Internal/ZAVCheckpointGuard.h"
#include "Private/Database/Internal/ZAVKeptOptions.h"
#include "Private/Database/Internal/ZAVLockWait.h"
#include "Private/Database/Internal/ZAVObserverRegistry.h"
#include "Private/Database/Internal/ZAVSQL.h"
#include "Private/Database/Internal/ZAVStatementBounds.h"
#include "Private/Database/Internal/ZAVStatementCache.h"

namespace zav {

/// Closes a connection of the engine.
struct ZAVEngineCloser {
    void operator()(sqlite3* engine) const noexcept;
};

/// A connection of the engine that is closed with its owner.
using ZAVEngineHandle = std::unique_ptr<sqlite3, ZAVEngineCloser>;

/// The savepoints of whoever holds a transaction have this name, and nobody else's may.
inline constexpr const char* ZAVHoldersSavepoint = "zav_work";

/// One connection to a database: the engine's, with the statements prepared on it, the error of the last
/// failed call, and who watches. The handle, its cursors, the scoped transaction and the schema work through
/// it.
///
/// A statement's life is lend, bind, `query`, `step` until there is no further row, and `giveBack`, or
/// `discardFailed` when a step failed; `update` does all but the first two. What fails stores its reason as
/// `lastError`.
class ZAVConnection {
public:
    /// What opening decided, for calls that come later.
    struct Settings {
        std::size_t statementCacheCapacity = 0;
        std::chrono::milliseconds busyTimeout{0};
        bool isDurable = false;  ///< a commit waits for the device
    };

    /// @param engine an open connection.
    ZAVConnection(ZAVEngineHandle engine, const Settings& settings);
    ~ZAVConnection();
    ZAVConnection(const ZAVConnection&) = delete;
    ZAVConnection& operator=(const ZAVConnection&) = delete;

    /// Closes the cursors and the engine's connection. Nothing but the destructor may be called after it.
    void close() noexcept;

    /// The engine's connection; null once closed.
    [[nodiscard]] sqlite3* engine() const noexcept { return engine_.get(); }
    [[nodiscard]] const Settings& settings() const noexcept { return settings_; }
    [[nodiscard]] ZAVStatementBounds& bounds() noexcept { return bounds_; }
    [[nodiscard]] ZAVCheckpointGuard& checkpoints() noexcept { return checkpoints_; }
    [[nodiscard]] ZAVLockWait& lockWait() noexcept { return lockWait_; }

    /// What the connection was opened with; null when nobody said so.
    [[nodiscard]] const ZAVKeptOptions* keptOptions() const noexcept { return keptOptions_.get(); }
    void keepOptions(const FMDatabaseOptions& options) {
        keptOptions_ = std::make_unique<const ZAVKeptOptions>(options);
    }

    /// The error of the most recent call that failed.
    [[nodiscard]] const ZAVError& lastError() const noexcept { return lastError_; }

    /// Stores an error as the last one. Answers false.
    bool fail(ZAVError error);

    /// The same with the reason that the engine gives for its most recent failure. Of a lock that could not
    /// be had it says so when it is a compaction's.
    bool failWithEngineError();

    // Statements

    /// Whether a run ends where a sound file would have ended it.
    enum class Reach : bool { free, bounded };

    /// The statement with this text, from the cache or prepared now; null on failure.
    [[nodiscard]] ZAVStatement* lend(ZAVSQL sql) {
        if ((isBlocked_ || isInterrupted()) && !unblock()) [[unlikely]] {
            return nullptr;
        }
        ZAVStatement* const statement = statements_.borrow(sql);
        return statement != nullptr ? statement : lendNew(sql);
    }

    /// The same for so many values, which must be the number of its placeholders; null on failure.
    [[nodiscard]] ZAVStatement* lend(ZAVSQL sql, std::size_t valueCount) {
        ZAVStatement* const statement = lend(sql);
        return statement == nullptr || statement->placeholderCount() == valueCount
                   ? statement
                   : refuseValues(*statement, sql.text(), valueCount);
    }

    /// Whether a statement keeps a copy of the texts and byte strings bound to it. Those that it only refers
    /// to must stay as they are until it is given back.
    enum class Bytes : bool { referredTo, copied };

    /// The statement with this text, with values bound to its placeholders; null on failure.
    template <class... Values>
    [[nodiscard]] ZAVStatement* lendWithValues(ZAVSQL sql, [[maybe_unused]] Bytes bytes,
                                               const Values&... values) {
        ZAVStatement* const statement = lend(sql, sizeof...(Values));
        // Value by value, and not from an array: the compiler knows the kind of most.
        [[maybe_unused]] int position = 0;
        return statement != nullptr && (bind(*statement, ++position, FMParameter(values), bytes) && ...)
                   ? statement
                   : nullptr;
    }

    /// Binds one value. On failure the statement is discarded.
    [[nodiscard]] bool bind(ZAVStatement& statement, int position, const FMParameter& value, Bytes bytes) {
        switch (value.kind()) {
            case FMParameter::Kind::integer:
                return bind(statement, position, value.integer());
            case FMParameter::Kind::real:
                return bind(statement, position, value.real());
            case FMParameter::Kind::text:
            case FMParameter::Kind::blob:
                return bindBytes(statement, position, value, bytes);
            case FMParameter::Kind::null:
                break;
        }
        return bind(statement, position, nullptr);
    }
    [[nodiscard]] bool bind(ZAVStatement& statement, int position, std::int64_t value) {
        statement.noteNumberAt(position);
        return isBound(statement, sqlite3_bind_int64(statement.handle(), position, value));
    }
    [[nodiscard]] bool bind(ZAVStatement& statement, int position, double value) {
        statement.noteNumberAt(position);
        return isBound(statement, sqlite3_bind_double(statement.handle(), position, value));
    }
    [[nodiscard]] bool bind(ZAVStatement& statement, int position, std::nullptr_t) {
        return statement.holdsNullAt(position) ||
               isBound(statement, sqlite3_bind_null(statement.handle(), position));
    }
    [[nodiscard]] bool bindBytes(ZAVStatement& statement, int position, const FMParameter& value,
                                 Bytes bytes);

    /// A cursor over a lent statement whose values are bound; none for null.
    [[nodiscard]] std::optional<FMResultSet> query(ZAVStatement* statement, Reach reach) {
        if (statement == nullptr) {
            return std::nullopt;
        }
        begin(*statement, reach);
        return FMResultSet(*this, *statement);
    }

    /// Runs a lent statement whose values are bound to its end, and takes it back. False for null, and on
    /// failure.
    bool update(ZAVStatement* statement, Reach reach) {
        if (statement == nullptr) {
            return false;
        }
        begin(*statement, reach);
        return finish(*statement);
    }

    /// Goes to the next row. Answers as the engine does, and that the file is damaged when the run has passed
    /// its bounds.
    [[nodiscard]] int step(ZAVStatement& statement) noexcept;

    /// One step without a bound, for those who watch.
    [[nodiscard]] int stepUnbounded(ZAVStatement& statement) const noexcept;

    /// Takes back a statement that ran. Answers what the engine says of its last row.
    int giveBack(ZAVStatement& statement) noexcept;

    /// Takes back a statement whose step failed, with the reason as the last error.
    void discardFailed(ZAVStatement& statement);

    /// Takes back a statement that was never begun.
    void giveBackUnused(ZAVStatement& statement) noexcept { statements_.giveBack(statement); }

    /// Stores as the last error that a run has passed its bounds. Answers false.
    bool failBeyondBounds();

    /// How many cursors are open.
    [[nodiscard]] std::size_t cursorCount() const noexcept { return statements_.cursorCount(); }

    /// Runs the statements of a script one after the other, and stops at the first that fails.
    bool runScript(const std::string& script);

    // Transactions

    /// Begins a transaction that holds the write lock. Answers the number that tells it from others; none on
    /// failure.
    [[nodiscard]] std::optional<std::uint64_t> beginTransaction();

    /// Whether the transaction of this number is open.
    [[nodiscard]] bool isInTransaction(std::uint64_t number) const noexcept {
        return number == transactionNumber_ && isInTransaction();
    }
    [[nodiscard]] bool isInTransaction() const noexcept;

    /// Makes the open transaction permanent. On failure it is still open, unless the engine has undone it.
    bool commitTransaction();

    /// Undoes the open transaction, if there is one. When the engine cannot, the transaction is abandoned:
    /// each later call tries again first, and fails as long as that does.
    void endTransaction() noexcept;

    /// Has the open transaction be its holder's alone, until it is let go of: `mayControlTransactions` denies
    /// everybody else, and once the engine has ended the transaction nothing runs any more, lest it be stored
    /// on its own. The last error stays the one with which it ended.
    void holdTransaction() noexcept { isHeld_ = true; }
    void letGoOfTransaction() noexcept;

    /// Whether `sql` may run while somebody may hold the transaction: false, with an error, for a statement
    /// that begins or ends one, or a savepoint of the holder's name.
    [[nodiscard]] bool mayControlTransactions(std::string_view sql) {
        return !isHeld_ || !controlsTransactions(sql) || refuseControl();
    }

    /// The same for what has no text.
    [[nodiscard]] bool mayControlTransactions() { return !isHeld_ || refuseControl(); }

    /// Has what runs on this connection fail, what is to run, and waiting for a lock, with
    /// `SQLITE_INTERRUPT`, until that is ended. Any thread may call it while the connection is open.
    void interrupt() noexcept;
    void endInterruption() noexcept { isInterrupted_.store(false, std::memory_order_relaxed); }
    [[nodiscard]] bool isInterrupted() const noexcept {
        return isInterrupted_.load(std::memory_order_relaxed);
    }

    /// Gives back memory that was taken to be faster: pages of the file, and statements unless one is lent.
    void releaseMemory() noexcept;

    /// Closes every open cursor, each of which answers from now on that it was open for too long.
    void expireCursors() noexcept { statements_.closeCursors(&FMResultSet::expire); }

    // Observation

    void setStatementObserver(FMStatementObserver observer);
    void setChangeObserver(FMChangeObserver observer);

    /// Who collects changes; null when nobody watches. It may be replaced whenever it delivers.
    [[nodiscard]] std::shared_ptr<ZAVChangeCollector> changeCollector() const noexcept {
        return observation_ == nullptr ? nullptr : observation_->changes;
    }

private:
    [[nodiscard]] ZAVStatement* lendNew(ZAVSQL sql);
    ZAVStatement* refuseValues(ZAVStatement& statement, std::string_view sql, std::size_t valueCount);
    [[nodiscard]] ZAVStatementHandle prepare(std::string_view sql);
    [[nodiscard]] bool isReadable(std::string_view sql);
    [[nodiscard]] bool isShortEnough(std::string_view sql);
    [[nodiscard]] bool isBound(ZAVStatement& statement, int status) {
        return status == SQLITE_OK || discardUnbound(statement);
    }
    bool discardUnbound(ZAVStatement& statement);
    [[nodiscard]] bool failToPrepare();
    void begin(ZAVStatement& statement, Reach reach) noexcept {
        if (reach == Reach::bounded) {
            bounds_.begin(statement.run);
        } else {
            statement.run.isBounded = false;
            statement.run.hasPassedBounds = false;
        }
    }
    bool finish(ZAVStatement& statement);
    [[nodiscard]] int stepWatched(ZAVStatement& statement) noexcept;
    [[nodiscard]] bool runStatements(const char* script);
    [[nodiscard]] bool runToEnd(sqlite3_stmt* statement);
    [[nodiscard]] bool unblock() noexcept;
    [[nodiscard]] static bool controlsTransactions(std::string_view sql);
    bool refuseControl();
    void noteEndOfTransaction() noexcept;
    void deliverChanges() noexcept;
    template <class Change>
    void changeObservation(const Change& change);

    ZAVEngineHandle engine_;
    Settings settings_;
    ZAVStatementCache statements_;
    std::atomic<bool> isInterrupted_{false};
    ZAVStatementBounds bounds_;
    ZAVCheckpointGuard checkpoints_;
    ZAVLockWait lockWait_;
    std::unique_ptr<ZAVObserverRegistry> observation_;  ///< null unless somebody watches
    std::unique_ptr<const ZAVKeptOptions> keptOptions_;
    ZAVError lastError_;
    std::uint64_t transactionNumber_ = 0;  ///< another once the transaction that had it has ended
    bool isHeld_ = false;                  ///< the open transaction, by somebody who alone may end it
    bool isBlocked_ = false;  ///< by a transaction that was abandoned, or one that is held and has ended
};

}  // namespace zav
