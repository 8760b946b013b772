#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVDiskUsage.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// How far a checkpoint goes.
enum class ZAVCheckpointMode {
    passive,   ///< copies what can be copied without waiting for anybody
    complete,  ///< waits for whoever is in the way, as long as the handle waits for a lock, and copies all
    truncate,  ///< completes, and then has the log take no more than a page of the disk
};

/// What became of a checkpoint.
struct ZAVCheckpoint {
    std::int64_t frames = 0;  ///< pages in the write-ahead log
    std::int64_t copied = 0;  ///< of them those that are in the file too, now or since earlier

    /// Whether another connection kept it from going as far as was asked: one that reads an older state, one
    /// that writes, or another checkpoint.
    bool isHeldUp = false;
};

/// What became of a compaction.
struct ZAVCompaction {
    std::int64_t bytesBefore = 0;  ///< that the file and its log, if there is one, took on disk
    std::int64_t bytesAfter = 0;   ///< that they take now
    std::int64_t logBytes = 0;     ///< of them those of the log

    /// Whether the log could not be folded and cut off, since another connection reads from it or writes, or
    /// since writing failed or the caller had it end there. The free pages are given back when the log is
    /// folded next, and the log's own space by `ZAVDatabaseMaintenance::checkpoint`.
    bool isHeldUp = false;
};

/// The upkeep of a database: what a client does at idle, with a handle that does nothing else meanwhile.
class ZAV_EXPORT ZAVDatabaseMaintenance {
public:
    /// @param database the handle to work on; kept as long as this object lives. The thread that uses the
    /// handle uses this object.
    explicit ZAVDatabaseMaintenance(std::shared_ptr<FMDatabase> database);

    /// Folds the write-ahead log into the file. Whatever it waits for, it waits without a lock: it keeps
    /// nobody from reading, and from writing only while pages are copied.
    ///
    /// Done at idle, it spares the commits that would meet `FMDatabaseOptions::writeAheadLogPages` the time
    /// of copying. `truncate` may write the schema's version again as it is, to begin the log anew; other
    /// connections see a change then.
    /// @return nothing to copy where there is no write-ahead log. None on failure, with the reason in
    /// `error`; an open cursor or transaction of this handle is one.
    [[nodiscard]] std::optional<ZAVCheckpoint> checkpoint(ZAVCheckpointMode mode = ZAVCheckpointMode::passive,
                                                          ZAVError* error = nullptr) const;

    /// Tells what the database takes of the disk, at one moment, whoever writes meanwhile.
    ///
    /// With its tables the whole file is read, by a cursor that keeps the log from being begun anew. In a
    /// damaged file what the damage hides is not counted, or the call fails.
    /// @return none on failure, with the reason in `error`.
    [[nodiscard]] std::optional<ZAVDiskUsage> diskUsage(ZAVDiskUsageDetail detail = ZAVDiskUsageDetail::whole,
                                                        ZAVError* error = nullptr) const;

    /// Gives the free pages of the file back to the file system, and leaves of what was deleted nothing in
    /// it: the engine makes a copy of the content in a temporary file, without the free pages, and writes it
    /// over the database in one transaction, through the log. Then the log is folded and cut off, as by
    /// `truncate`. The file stays the same one, so that other handles go on working. A compaction that is
    /// killed, fails or is cancelled leaves the content as it was.
    ///
    /// It works on a connection of its own, opened as the handle was. Others read meanwhile, except where
    /// there is no write-ahead log; they write before or after, and wait for it as long as their
    /// `busyTimeout` says. A call that waits in vain fails with `SQLITE_BUSY`, and its message says that the
    /// database is being compacted: a file beside the database, its name with "-compacting" behind it, is
    /// locked as long. It is removed at the end; one that a kill left means nothing.
    ///
    /// For a while it takes the size of the content once in the directory of temporary files
    /// (`SQLITE_TMPDIR`, `TMPDIR`, `/var/tmp`) and once for the log. Both file systems are asked first
    /// whether they have it. The temporary file has no name, and is encrypted when the database is; an engine
    /// that was compiled with `TEMP_STORE=3` keeps it in memory instead.
    ///
    /// Tables of the application's own without an `INTEGER PRIMARY KEY` may get other row identifiers.
    ///
    /// @param progress is told how much of the work is done, from 0 to 1; empty for nobody.
    /// @param cancel is asked often, and answers true to end it; empty for never. Until the copy is written
    /// it then fails, and the content is as it was. After that the compaction is done, and only what is left
    /// of folding the log is not: `isHeldUp`. Both are called on this thread, must not use the handle, and
    /// may throw: that cancels it, and is thrown on when it has ended.
    /// @return none on failure, with the reason in `error`: among others `ZAVDatabaseErrorCannotCompact` for
    /// an open cursor or transaction of this handle, one that only reads, or a database in memory;
    /// `ZAVDatabaseErrorNoSpace`, with what is missing where, before anything is written;
    /// `ZAVDatabaseErrorCancelled`; and `SQLITE_BUSY` when another connection writes or compacts for longer
    /// than `busyTimeout`.
    [[nodiscard]] std::optional<ZAVCompaction> compact(const std::function<void(double)>& progress = {},
                                                       const std::function<bool()>& cancel = {},
                                                       ZAVError* error = nullptr) const;

private:
    [[nodiscard]] std::optional<ZAVCheckpoint> checkpoint(ZAVCheckpointMode mode,
                                                          std::chrono::milliseconds longest,
                                                          ZAVError* error) const;

    std::shared_ptr<FMDatabase> database_;
};

}  // namespace zav
