#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <ZAVEventRepository/FMObservation.h>
#include <ZAVEventRepository/FMParameter.h>
#include <ZAVEventRepository/FMResultSet.h>
#include <ZAVEventRepository/ZAVDatabaseError.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVValue.h>

struct sqlite3;

namespace zav {

class ZAVConnection;

/// A handle on one SQLite database: one connection, with its prepared statements.
///
/// A handle is used by one thread at a time. It takes any number of open cursors at once. Statements are
/// prepared once and kept, keyed by their text, so a caller may pass the same text as often as it likes.
///
/// Failures are reported by result, with the reason in `lastError`; nothing here throws but memory running
/// out.
///
/// In a damaged file the pages of a table may lead to one another, so that a statement never ends. Bounded
/// statements, as the repositories' are, end all the same: see `executeBoundedQuery`. The handle is the
/// progress handler of its connection for that; an application that installs one of its own on
/// `sqliteHandle` takes its place, and rows alone are bounded then.
class ZAV_EXPORT FMDatabase {
public:
    /// Opens a database file, or makes one.
    ///
    /// A file of unknown origin can do no harm: the engine's defensive mode is on, functions named in the
    /// schema are not trusted, cells are checked as pages are read, and no extension can be loaded.
    ///
    /// A path is a path, also one that begins with `file:` on an engine that takes URIs. Refused are an empty
    /// path and one with a NUL; a file that is not a regular one, or has another name too (a hard link),
    /// under which its journal and log would not be found; and one beside which something stands as its
    /// journal, log or shared memory that is not a regular file, has another name too, or names a further
    /// file.
    ///
    /// A file that is made is only its owner's to read; see `FMDatabaseOptions::newFileMode`. When opening
    /// fails after it was made it stays, empty: another process may be using it already.
    ///
    /// @param path the file, in the file system's own encoding; exactly ":memory:" for a database in memory.
    /// @param options what `FMDatabaseOptions` says; an invalid one is refused.
    /// @param error receives the reason on failure.
    /// @return the open handle; null when the file cannot be opened or is not a database.
    [[nodiscard]] static std::shared_ptr<FMDatabase> databaseWithPath(const std::string& path,
                                                                      const FMDatabaseOptions& options = {},
                                                                      ZAVError* error = nullptr);

    /// For the library's own use: a handle on an open connection.
    explicit FMDatabase(std::unique_ptr<ZAVConnection> connection) noexcept;
    FMDatabase(const FMDatabase&) = delete;
    FMDatabase& operator=(const FMDatabase&) = delete;

    /// Closes the connection. Cursors that are still open are closed with it, and their ends are
    /// reported to the observers as any other end of a statement.
    ~FMDatabase();

    /// Runs a query. A text that holds a NUL, or is longer than the engine's limit for statements, is
    /// refused, here and in all other calls. Each value goes to the placeholder at its position; their number
    /// must be that of the placeholders. The values are copied: the cursor depends on none of them.
    /// @return a cursor before the first row, or none on failure.
    template <class... Values>
    [[nodiscard]] std::optional<FMResultSet> executeQuery(std::string_view sql, const Values&... values) {
        return query(sql, {FMParameter(values)...}, Reach::free);
    }

    /// As `executeQuery`, for a statement that meets each row of the file a few times at most. When it yields
    /// more rows, or takes more of the engine's steps, than a sound file of this size allows, the file is
    /// damaged, and the cursor fails with `SQLITE_CORRUPT`. So does a bounded cursor that was open meanwhile,
    /// at its next row. The bound grows with the file and its log and is far from what any sound one needs;
    /// a join of everything with everything, or one with another database, would meet it.
    template <class... Values>
    [[nodiscard]] std::optional<FMResultSet> executeBoundedQuery(std::string_view sql,
                                                                 const Values&... values) {
        return query(sql, {FMParameter(values)...}, Reach::bounded);
    }

    /// Runs a statement to its end. Rows that it may yield are passed over.
    /// @return whether it succeeded.
    template <class... Values>
    bool executeUpdate(std::string_view sql, const Values&... values) {
        return update(sql, {FMParameter(values)...}, Reach::free);
    }

    /// As `executeUpdate`, bounded as a query by `executeBoundedQuery` is. A statement that is ended in this
    /// way takes the whole transaction back.
    template <class... Values>
    bool executeBoundedUpdate(std::string_view sql, const Values&... values) {
        return update(sql, {FMParameter(values)...}, Reach::bounded);
    }

    /// Prepares a statement ahead of its use, and keeps it if any are kept, so that running it needs no
    /// memory.
    bool prepare(std::string_view sql);

    /// `executeQuery` and `executeUpdate` for a list of values whose length is known only at run time.
    [[nodiscard]] std::optional<FMResultSet> executeQueryWithArgumentsInArray(
        std::string_view sql, std::span<const ZAVValue> arguments);

    /// As `executeUpdate`, for a list of values.
    /// @return whether it succeeded.
    bool executeUpdateWithArgumentsInArray(std::string_view sql, std::span<const ZAVValue> arguments);

    /// As `executeBoundedUpdate`, for a list of values.
    /// @return whether it succeeded.
    bool executeBoundedUpdateWithArgumentsInArray(std::string_view sql, std::span<const ZAVValue> arguments);

    /// Runs the statements of a script one after the other, without values, and stops at the first that
    /// fails. A script that holds a NUL is refused as a whole.
    bool executeStatements(const std::string& script);

    /// Lets one connection read while another writes, from now on and for whoever opens the file; see
    /// `FMDatabaseOptions::writeAheadLog`, which does this on opening.
    bool useWriteAheadLog();

    /// The error of the most recent failed call on this handle or one of its cursors; empty before the first.
    [[nodiscard]] const ZAVError& lastError() const noexcept;

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

    /// Reports each run of a statement on this handle to `observer`, once it has ended, and each script; an
    /// empty one ends that. For seeing what the store does, and how long it takes. Of a statement that is
    /// running already, what it does from now on is reported.
    void setStatementObserver(FMStatementObserver observer);

    /// Reports the rows that each commit on this handle changed in the database file to `observer`, after
    /// the statement that committed; an empty one ends that. For showing conversations while they change.
    /// Changes wait in memory for their commit; those made before it was set are not reported.
    ///
    /// What is reported was committed: nothing that a failed statement or script, `ROLLBACK` or `ROLLBACK TO`
    /// took back. What a statement stored before it failed (`INSERT OR FAIL`) is reported.
    ///
    /// Keyed values, whose tables have no row identifiers, are reported by their object, and only as far as
    /// `ZAVKeyedValueRepository` changes them. Not reported, although committed, are: a row that another one
    /// replaced (`INSERT OR REPLACE`); the removal of all rows of a table by one statement without a
    /// condition; and what triggers, which the event store has none of, wrote before the first row of a
    /// statement failed under `OR FAIL`. What runs on `sqliteHandle`, past this class, is reported with the
    /// next statement on this handle, and `ROLLBACK TO` must not be run there.
    ///
    /// It takes the place of the engine's update, commit and rollback hooks of the connection.
    void setChangeObserver(FMChangeObserver observer);

    /// How many cursors are open.
    [[nodiscard]] std::size_t openResultSets() const noexcept;

    /// The engine's own connection, for what this class does not cover. It stays the handle's property. Null
    /// where a shared library hides the engine inside (no `ZAV_EXPORT_ENGINE`): no other may be given it.
    [[nodiscard]] sqlite3* sqliteHandle() const noexcept;

    /// For the library's own use: what the handle works through.
    [[nodiscard]] ZAVConnection& connection() const noexcept { return *connection_; }

private:
    /// That of the connection's runs, which this header does not know.
    enum class Reach : bool { free, bounded };

    [[nodiscard]] std::optional<FMResultSet> query(std::string_view sql,
                                                   std::initializer_list<FMParameter> values, Reach reach);
    bool update(std::string_view sql, std::initializer_list<FMParameter> values, Reach reach);

    std::unique_ptr<ZAVConnection> connection_;
};

}  // namespace zav
