#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Private/Database/FMDatabaseOptions.h"
#include "Private/Database/FMParameter.h"
#include "Private/Database/FMResultSet.h"
#include "Private/Foundation/ZAVError.h"
#include "Private/Foundation/ZAVExport.h"
#include "Private/Foundation/ZAVValue.h"

struct sqlite3;

namespace zav {

class ZAVStatementCache;

/// A handle on one SQLite database: one connection, with its prepared statements.
///
/// A handle is used by one thread at a time. It takes any number of open cursors at once. Statements are
/// prepared once and kept, keyed by their text, so a caller may pass the same text as often as it likes.
///
/// Failures are reported by result, with the reason in `lastError`; nothing here throws but memory running
/// out.
class ZAV_EXPORT FMDatabase {
public:
    /// Opens a database file, or makes one.
    ///
    /// Foreign hands are kept off: the engine's defensive mode is on, functions named in the schema are not
    /// trusted, cells are checked as pages are read, and no extension can be loaded.
    ///
    /// @param path the file, in the file system's own encoding; ":memory:" for a database in memory.
    /// @param error receives the reason on failure.
    /// @return the open handle; null when the file cannot be opened or is no database.
    [[nodiscard]] static std::shared_ptr<FMDatabase> databaseWithPath(const std::string& path,
                                                                      const FMDatabaseOptions& options = {},
                                                                      ZAVError* error = nullptr);

    FMDatabase(const FMDatabase&) = delete;
    FMDatabase& operator=(const FMDatabase&) = delete;

    /// Closes the connection. Cursors that are still open are closed with it.
    ~FMDatabase();

    /// Runs a query. Each value goes to the placeholder at its position; their number must be that of the
    /// placeholders. The values are copied: the cursor depends on none of them.
    /// @return a cursor before the first row, or none on failure.
    template <class... Values>
    [[nodiscard]] std::optional<FMResultSet> executeQuery(std::string_view sql, const Values&... values) {
        const std::array<FMParameter, sizeof...(Values)> parameters{FMParameter(values)...};
        return query(sql, parameters);
    }

    /// Runs a statement to its end. Rows that it may yield are passed over.
    /// @return whether it succeeded.
    template <class... Values>
    bool executeUpdate(std::string_view sql, const Values&... values) {
        const std::array<FMParameter, sizeof...(Values)> parameters{FMParameter(values)...};
        return update(sql, parameters);
    }

    /// Prepares a statement ahead of its use and keeps it, so that running it needs no memory.
    bool prepare(std::string_view sql);

    /// `executeQuery` and `executeUpdate` for a list of values whose length is known only at run time.
    [[nodiscard]] std::optional<FMResultSet> executeQueryWithArgumentsInArray(
        std::string_view sql, std::span<const ZAVValue> arguments);

    /// As `executeUpdate`, for a list of values.
    /// @return whether it succeeded.
    bool executeUpdateWithArgumentsInArray(std::string_view sql, std::span<const ZAVValue> arguments);

    /// Runs the statements of a script one after the other, without values, and stops at the first that
    /// fails.
    bool executeStatements(const std::string& script);

    /// Lets one connection read while another writes, from now on and for whoever opens the file; see
    /// `FMDatabaseOptions::writeAheadLog`, which does this on opening.
    bool useWriteAheadLog();

    /// The error of the most recent failed call on this handle or one of its cursors; empty before the first.
    [[nodiscard]] const ZAVError& lastError() const noexcept { return lastError_; }

    /// Rows changed by the most recent insert, update or delete.
    [[nodiscard]] int changes() const noexcept;

    /// Row identifier of the most recently inserted row.
    [[nodiscard]] std::int64_t lastInsertRowId() const noexcept;

    /// Whether a transaction is open.
    [[nodiscard]] bool inTransaction() const noexcept;

    /// Undoes the open transaction, if there is one. When the engine cannot, for want of memory, say, the
    /// transaction is abandoned: nothing runs on this handle until it has been undone, which each call tries
    /// first.
    void rollback();

    /// How many cursors are open.
    [[nodiscard]] std::size_t openResultSets() const noexcept;

    /// The engine's own connection, for what this class does not cover. It stays the handle's property.
    [[nodiscard]] sqlite3* sqliteHandle() const noexcept { return connection_; }

private:
    friend class FMResultSet;
    friend class ZAVDatabaseSchema;
    friend class ZAVTransaction;

    FMDatabase(sqlite3* connection, std::size_t statementCacheCapacity);

    [[nodiscard]] bool configure(const FMDatabaseOptions& options);
    void leaveUntouchedOnClose() noexcept;
    [[nodiscard]] std::optional<FMResultSet> query(std::string_view sql, std::span<const FMParameter> values);
    bool update(std::string_view sql, std::span<const FMParameter> values);
    [[nodiscard]] ZAVStatement* borrow(std::string_view sql, std::span<const FMParameter> values,
                                       bool copyValues);
    [[nodiscard]] ZAVStatement* lend(std::string_view sql);
    [[nodiscard]] bool leaveAbandonedTransaction();
    bool fail(ZAVError error);
    bool failWithEngineError();

    sqlite3* connection_;
    std::unique_ptr<ZAVStatementCache> statements_;
    ZAVError lastError_;
    std::chrono::milliseconds busyTimeout_{0};
    std::uint64_t transactionNumber_ =
        0;  ///< another one for each transaction that a `ZAVTransaction` begins
    bool isDurable_ = false;
    bool transactionIsAbandoned_ = false;
};

}  // namespace zav
