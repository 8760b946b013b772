#pragma once

#include <cstdint>
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

private:
    std::shared_ptr<FMDatabase> database_;
};

}  // namespace zav
