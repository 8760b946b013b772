#include <ZAVEventRepository/ZAVContentCache.h>

#include <algorithm>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVContentParts.h"
#include "Store/Internal/ZAVContentPurge.h"
#include "Store/Internal/ZAVContentRepair.h"
#include "Store/Internal/ZAVContentSession.h"
#include "Store/Internal/ZAVDownload.h"
#include "Store/Internal/ZAVOpenedContent.h"
#include "Store/Internal/ZAVPartialFile.h"
#include "Store/Internal/ZAVStoreCore.h"

namespace zav {
namespace {

void expectNoWork(const ZAVStoreCore& core, const char* operation) {
    if (core.isInWork()) {
        throw ZAVContentFailure(ZAVErrorOfStore(
            ZAVEventStoreErrorInWork,
            std::string(operation) + " within a work: files are removed when their marks are committed"));
    }
}

/// Whether the directory is not there yet, nor a part that should have its file in it. A directory that is
/// missed by a part is an error: it may be the wrong one.
bool hasNothingYet(ZAVStoreCore& core) {
    if (ZAVStatusOfFile(core.owner().contentDirectoryPath())) {
        return false;
    }
    std::optional<bool> isMissed;
    ZAVError failure;
    ZAVExpectDone(core.read([&](const ZAVRepositories& repositories) {
        isMissed =
            readNumber<bool>(repositories.events.database(), &failure,
                             "SELECT EXISTS (SELECT 1 FROM event_content_parts WHERE file_path IS NOT NULL"
                             " AND transfer_status IN (0, 1, 4) AND (purged = 0 OR purged IS NULL))");
    }));
    if (!isMissed) {
        throw ZAVContentFailure(failure);
    }
    return !*isMissed;
}

/// Opens the file of a part, whose path stands in its row.
std::unique_ptr<ZAVOpenedContent> openFile(const ZAVStoreCore& core, const std::string& text) {
    const ZAVContentDirectory root(core.owner().contentDirectoryPath());
    const ZAVContentPath path = ZAVParsedContentPath(text);
    const auto found = root.find(path.names());
    if (found && ZAVIsFileOfDatabase(found->status.identity, core.databasePath())) {
        throw ZAVNoContent(text + ": belongs to the database");
    }
    auto file =
        found ? found->directory.openForReading(path.names().back(), found->status.identity) : std::nullopt;
    if (!file) {
        throw ZAVNoContent(text + ": the file is not there");
    }
    return std::make_unique<ZAVOpenedContent>(
        ZAVOpenedContent{*std::move(file), found->status.size, root.path() + "/" + text});
}

}  // namespace

/// When parts were accessed, until it is recorded.
class ZAVContentCache::Accesses {
public:
    /// Answers whether it is the first that is to be recorded.
    bool note(ZAVDatabaseIdentifier event, std::int64_t index) {
        const std::lock_guard lock(mutex_);
        const bool isFirst = times_.empty();
        times_[{event, index}] = ZAVNow();
        return isFirst;
    }

    [[nodiscard]] bool areThere() {
        const std::lock_guard lock(mutex_);
        return !times_.empty();
    }

    /// Records them, in a transaction that holds the write lock.
    bool record(const ZAVRepositories& repositories, ZAVError* error) {
        Times times;
        {
            const std::lock_guard lock(mutex_);
            times.swap(times_);
        }
        return std::all_of(times.begin(), times.end(), [&](const auto& entry) {
            return runUpdate(repositories.events.database(), error,
                             "UPDATE event_content_parts SET last_accessed = ?"
                             " WHERE event_database_identifier = ? AND event_content_part_id = ?"
                             " AND (last_accessed IS NULL OR last_accessed < ?)",
                             entry.second, entry.first.first, entry.first.second, entry.second);
        });
    }

private:
    using Times = std::map<std::pair<ZAVDatabaseIdentifier, std::int64_t>, ZAVDate>;

    std::mutex mutex_;
    Times times_;
};

ZAVContentCache::ZAVContentCache(ZAVStoreCore& core) : core_(core), accesses_(std::make_shared<Accesses>()) {}

ZAVContentCache::~ZAVContentCache() = default;

std::optional<ZAVURL> ZAVContentCache::put(const ZAVUUID& clientID, std::size_t index,
                                           std::span<const std::uint8_t> bytes, ZAVError* error) {
    const std::string root = core_.owner().contentDirectoryPath();
    return ZAVAnswerOf(root, error, [&] {
        ZAVURL place = ZAVPlacedFile(core_.owner(), clientID, index);
        ZAVPartialFile partial(ZAVContentDirectory::make(root), ZAVParsedContentPath(place.relativePath()));
        partial.append(bytes);
        partial.sync();
        partial.moveIntoPlace();
        return place;
    });
}

std::optional<ZAVContentWriter> ZAVContentCache::beginDownload(ZAVDatabaseIdentifier event,
                                                               std::int64_t index, ZAVError* error) {
    return ZAVAnswerOf(core_.owner().contentDirectoryPath(), error, [&] {
        return ZAVContentWriter(ZAVDownload::begin(core_, event, index, ZAVDownloadKind::whole));
    });
}

std::optional<ZAVContentWriter> ZAVContentCache::resumeDownload(ZAVDatabaseIdentifier event,
                                                                std::int64_t index, ZAVError* error) {
    return ZAVAnswerOf(core_.owner().contentDirectoryPath(), error, [&] {
        return ZAVContentWriter(ZAVDownload::begin(core_, event, index, ZAVDownloadKind::resumed));
    });
}

std::optional<ZAVContentFile> ZAVContentCache::open(ZAVDatabaseIdentifier event, std::int64_t index,
                                                    ZAVError* error) {
    return ZAVAnswerOf(core_.owner().contentDirectoryPath(), error, [&] {
        std::shared_ptr<ZAVEventContent> part;
        ZAVExpectDone(core_.read(
            [&](const ZAVRepositories& repositories) { part = ZAVPartAt(repositories, event, index); }));
        const auto status = part->transferStatus();
        if (!part->fileURL() || part->isPurged() || status == ZAVContentTransferReadyForDownload ||
            status == ZAVContentTransferDownloading) {
            throw ZAVNoContent(ZAVNameOfPart(event, index) +
                               " has no file here: it was purged, or is to be downloaded");
        }
        ZAVContentFile file(openFile(core_, part->fileURL()->relativePath()));
        if (accesses_->note(event, index)) {
            recordAccessesLater();
        }
        return file;
    });
}

bool ZAVContentCache::recordAccesses(ZAVError* error) {
    const auto record = [&](const ZAVRepositories& repositories) {
        return accesses_->record(repositories, error);
    };
    return !accesses_->areThere() || ZAVIsDone(core_.write(record), error);
}

std::function<bool(const ZAVRepositories&)> ZAVContentCache::recordingOfAccesses() {
    if (!accesses_->areThere()) {
        return {};
    }
    return [accesses = accesses_](const ZAVRepositories& repositories) {
        return accesses->areThere() && accesses->record(repositories, nullptr);
    };
}

void ZAVContentCache::recordAccessesLater() noexcept {
    core_.writeLater(std::chrono::minutes(1), [accesses = accesses_](const ZAVRepositories& repositories) {
        return accesses->areThere() && accesses->record(repositories, nullptr);
    });
}

std::optional<ZAVContentUsage> ZAVContentCache::bytesOnDisk(ZAVError* error) {
    ZAVContentUsage usage;
    const auto add = [&](const FMResultSet& row) {
        const auto bytes = static_cast<std::uint64_t>(row.longLongIntForColumnIndex(2));
        usage.total += bytes;
        usage.byStatus[static_cast<ZAVContentTransferStatus>(row.longLongIntForColumnIndex(0))] += bytes;
        usage.byStream[row.columnIndexIsNull(1) ? ZAVDatabaseIdentifierNotSet
                                                : row.longLongIntForColumnIndex(1)] += bytes;
    };
    bool areRead = false;
    const auto look = [&](const ZAVRepositories& repositories) {
        areRead = visitRows(
            repositories.events.database(), error,
            "SELECT parts.transfer_status, events.stream_database_identifier, CAST(TOTAL(parts.size) AS INTEGER)"
            " FROM event_content_parts AS parts LEFT JOIN events"
            " ON events.database_identifier = parts.event_database_identifier"
            " WHERE parts.transfer_status IN (0, 1, 4) AND parts.file_path IS NOT NULL"
            " AND parts.size > 0 AND (parts.purged = 0 OR parts.purged IS NULL)"
            " GROUP BY parts.transfer_status, events.stream_database_identifier",
            add);
    };
    return ZAVIsDone(core_.read(look), error) && areRead ? std::optional(std::move(usage)) : std::nullopt;
}

std::optional<ZAVPurgeResult> ZAVContentCache::purge(const ZAVPurgePolicy& policy,
                                                     const ZAVPurgeObserver& observer, ZAVError* error) {
    return ZAVAnswerOf(core_.owner().contentDirectoryPath(), error, [&] {
        expectNoWork(core_, "purging");
        ZAVError failure;
        if (!policy.changesNothing && !recordAccesses(&failure)) {
            throw ZAVContentFailure(failure);
        }
        if (hasNothingYet(core_)) {
            return ZAVPurgeResult();
        }
        ZAVContentSession session(core_);
        return ZAVContentPurge(session, policy, observer).run();
    });
}

namespace {

/// Looks for orphans, or repairs what there is of them.
std::optional<ZAVContentOrphans> settledOrphans(ZAVStoreCore& core, std::chrono::seconds age,
                                                ZAVContentOrphans (ZAVContentRepair::*settle)(),
                                                ZAVError* error) {
    const ZAVStoreOwner& owner = core.owner();
    return ZAVAnswerOf(owner.contentDirectoryPath(), error, [&] {
        if (settle == &ZAVContentRepair::repair) {
            expectNoWork(core, "repairing");
        }
        std::vector<std::string> folders =
            ZAVParsedContentPath(ZAVPlacedFile(owner, ZAVUUID(), 0).relativePath()).names();
        folders.resize(folders.size() - 2);  // without the event and the file
        if (hasNothingYet(core)) {
            return ZAVContentOrphans();
        }
        ZAVContentSession session(core);
        // Of the exact clock: that of `std::time` may be behind the one that files are dated by.
        const auto unchangedSince = std::chrono::system_clock::now() - age;
        ZAVContentRepair repair(session, std::move(folders),
                                std::chrono::system_clock::to_time_t(unchangedSince));
        return (repair.*settle)();
    });
}

}  // namespace

std::optional<ZAVContentOrphans> ZAVContentCache::findOrphans(std::chrono::seconds age, ZAVError* error) {
    return settledOrphans(core_, age, &ZAVContentRepair::find, error);
}

std::optional<ZAVContentOrphans> ZAVContentCache::repair(std::chrono::seconds age, ZAVError* error) {
    return settledOrphans(core_, age, &ZAVContentRepair::repair, error);
}

}  // namespace zav
