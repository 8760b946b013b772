#include <sqlite3.h>

#include <chrono>
#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVDatabaseEngine.h>
#include <ZAVEventRepository/ZAVDatabaseMaintenance.h>

#include "Private/Database/Internal/ZAVCompactionCourse.h"
#include "Private/Database/Internal/ZAVCompactionMarker.h"
#include "Private/Database/Internal/ZAVCompactionSpace.h"
#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVOpenFiles.h"
#include "Private/Database/Internal/ZAVPatience.h"
#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

using Milliseconds = std::chrono::milliseconds;

ZAVError cannotCompact(const char* reason) {
    return {ZAVErrorDomainDatabase, ZAVDatabaseErrorCannotCompact,
            std::string("cannot compact the database: ") + reason};
}

/// Why a handle cannot have its database compacted, if there is a reason.
ZAVError objectionToCompaction(ZAVConnection& connection) {
    sqlite3* const engine = connection.engine();
    const char* const path = sqlite3_db_filename(engine, "main");
    int hasMoved = 0;
    if (connection.keptOptions() == nullptr || path == nullptr || *path == '\0') {
        return cannotCompact("it has no file of its own");
    }
    if (connection.checkpoints().isInUse("main")) {
        return cannotCompact("this handle has an open cursor or transaction");
    }
    if (sqlite3_db_readonly(engine, "main") == 1) {
        return cannotCompact("this handle only reads");
    }
    if (sqlite3_file_control(engine, "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved) == SQLITE_OK &&
        hasMoved != 0) {
        return cannotCompact("another file stands in its place");
    }
    return {};
}

std::string directoryOf(const std::string& path) {
    const std::size_t end = path.rfind('/');
    return end == std::string::npos ? "." : end == 0 ? "/" : path.substr(0, end);
}

/// Where the engine puts temporary files; empty when it does not say, or has none.
std::string temporaryDirectory(sqlite3* engine) {
    char* name = nullptr;
    if (ZAVDatabaseEngine::hasCompileOption("TEMP_STORE=3") ||
        sqlite3_file_control(engine, "main", SQLITE_FCNTL_TEMPFILENAME, &name) != SQLITE_OK ||
        name == nullptr) {
        return {};
    }
    std::string directory = directoryOf(name);
    sqlite3_free(name);
    return directory;
}

std::int64_t bytesOfContent(const ZAVDiskUsage& usage) noexcept {
    return (usage.pages - usage.freePages) * usage.pageSize;
}

/// What is written beside the database: a log has the new pages, a journal the old ones, each with a header.
std::int64_t bytesForLog(const ZAVDiskUsage& usage, bool usesLog) noexcept {
    constexpr std::int64_t header = 24;
    return (usesLog ? usage.pages - usage.freePages : usage.pages) * (usage.pageSize + header);
}

std::int64_t bytesOfLog(sqlite3* engine) noexcept {
    return static_cast<std::int64_t>(ZAVSizeOfLog(engine).value_or(0));
}

std::int64_t bytesOnDisk(sqlite3* engine) noexcept {
    return static_cast<std::int64_t>(ZAVSizeOfFile(engine).value_or(0)) + bytesOfLog(engine);
}

/// The connection that a compaction works on.
class CompactingHandle {
public:
    /// @param course must outlive this.
    CompactingHandle(ZAVConnection& like, ZAVCompactionCourse& course)
        : files_(vfsOf(like.engine()), course), course_(course) {
        ZAVKeptOptions kept(*like.keptOptions());
        kept.options.access = FMDatabaseOptions::Access::readWrite;
        kept.options.vfs = files_.name();
        // The log is folded when all is done, and may then be ended.
        kept.options.writeAheadLogPages = 0;
        database_ = FMDatabase::databaseWithPath(sqlite3_db_filename(like.engine(), "main"), kept.options,
                                                 &openingError_);
        if (database_) {
            database_->connection().lockWait().setEarlyEnd([this] { return !course_.mayGoOn(); });
        }
    }

    [[nodiscard]] const std::shared_ptr<FMDatabase>& database() const { return database_; }
    [[nodiscard]] const ZAVError& openingError() const { return openingError_; }

    /// Rewrites the database. False on failure, with the reason in `error`.
    bool rewrite(ZAVError* error) {
        sqlite3* const engine = database_->connection().engine();
        // What an encrypted database sorts stays in memory elsewhere; here nothing is sorted. Pages are
        // written as they come: no page of the copy changes twice.
        if (!database_->executeStatements("PRAGMA temp_store=FILE; PRAGMA cache_spill=1")) {
            ZAVStoreError(error, database_->lastError());
            return false;
        }
        sqlite3_progress_handler(engine, stepsBetweenLooks, lookWhetherToGoOn, &course_);
        const bool isRewritten = course_.mayGoOn() && database_->executeStatements("VACUUM");
        sqlite3_progress_handler(engine, 0, nullptr, nullptr);
        if (!isRewritten) {
            ZAVStoreError(error, errorOfRewriting());
        }
        return isRewritten;
    }

private:
    static constexpr int stepsBetweenLooks = 1000;

    static sqlite3_vfs& vfsOf(sqlite3* engine) noexcept {
        sqlite3_vfs* vfs = nullptr;
        sqlite3_file_control(engine, "main", SQLITE_FCNTL_VFS_POINTER, &vfs);
        return vfs != nullptr ? *vfs : *sqlite3_vfs_find(nullptr);
    }

    static int lookWhetherToGoOn(void* course) noexcept {
        return static_cast<ZAVCompactionCourse*>(course)->mayGoOn() ? 0 : 1;
    }

    [[nodiscard]] ZAVError errorOfRewriting() const {
        if (course_.isCancelled()) {
            return {ZAVErrorDomainDatabase, ZAVDatabaseErrorCancelled,
                    "the compaction was cancelled; the database is as it was"};
        }
        if (course_.isEndless()) {
            return ZAVStatementBounds::error();
        }
        const ZAVError& error = database_->lastError();
        return error.code() == SQLITE_BUSY
                   ? ZAVError(ZAVErrorDomainSQLite, SQLITE_BUSY,
                              "the database cannot be compacted while another connection writes")
                   : error;
    }

    ZAVWatchedFiles files_;
    ZAVCompactionCourse& course_;
    ZAVError openingError_;
    std::shared_ptr<FMDatabase> database_;  ///< closed before its files go
};

/// Folds a log and cuts it off, attempt by attempt, for so long at most. Answers whether it is done.
template <class Attempt>
bool foldPatiently(const Attempt& attempt, ZAVCompactionCourse& course, Milliseconds longest) {
    constexpr Milliseconds longestPause(10);
    ZAVPatience patience(longest, longestPause);
    for (;;) {
        const std::optional<ZAVCheckpoint> checkpoint = attempt();
        const bool isDone = checkpoint && !checkpoint->isHeldUp;
        if (isDone || !checkpoint || !course.mayGoOn() || !patience.pause()) {
            return isDone;
        }
    }
}

}  // namespace

std::optional<ZAVCompaction> ZAVDatabaseMaintenance::compact(const std::function<void(double)>& progress,
                                                             const std::function<bool()>& cancel,
                                                             ZAVError* error) const {
    ZAVConnection& connection = database_->connection();
    const auto fail = [&](const ZAVError& reason) {
        failWith(*database_, reason, error);
        return std::nullopt;
    };
    if (const ZAVError objection = objectionToCompaction(connection)) {
        return fail(objection);
    }
    const auto usage = diskUsage(ZAVDiskUsageDetail::whole, error);
    const auto usesLog = usage ? usesWriteAheadLog(*database_, error) : std::nullopt;
    if (!usesLog) {
        return std::nullopt;
    }
    const std::int64_t contentBytes = bytesOfContent(*usage);
    const std::int64_t logBytes = bytesForLog(*usage, *usesLog);
    const std::string path = sqlite3_db_filename(connection.engine(), "main");
    if (const ZAVError objection = ZAVCompactionSpace::objection(
            {{temporaryDirectory(connection.engine()), contentBytes}, {directoryOf(path), logBytes}})) {
        return fail(objection);
    }
    ZAVError failure;
    const auto marker = ZAVCompactionMarker::hold(path, &failure);
    if (!marker) {
        return fail(failure);
    }
    ZAVCompaction result;
    result.bytesBefore = bytesOnDisk(connection.engine());
    const std::int64_t logBytesBefore = bytesOfLog(connection.engine());
    ZAVCompactionCourse course(progress, cancel, contentBytes, logBytes);
    {
        CompactingHandle compacting(connection, course);
        if (!compacting.database()) {
            return fail(compacting.openingError());
        }
        const bool isRewritten = compacting.rewrite(&failure);
        const ZAVDatabaseMaintenance maintenance(compacting.database());
        const auto fold = [&] {
            return maintenance.checkpoint(ZAVCheckpointMode::truncate, Milliseconds::zero(), nullptr);
        };
        if (isRewritten) {
            result.isHeldUp = !foldPatiently(fold, course, connection.settings().busyTimeout);
        } else if (bytesOfLog(connection.engine()) > logBytesBefore) {
            course.pass();  // what the transaction left behind takes space
            static_cast<void>(fold());
        }
        course.rethrow();
        if (!isRewritten) {
            return fail(failure);
        }
    }
    // The handle's engine looks at the log before it tells of it.
    static_cast<void>(readNumber(*database_, nullptr, "PRAGMA schema_version"));
    result.bytesAfter = bytesOnDisk(connection.engine());
    result.logBytes = bytesOfLog(connection.engine());
    if (!result.isHeldUp) {
        course.finish();
        course.rethrow();
    }
    return result;
}

}  // namespace zav
