#include "Store/Internal/ZAVDownload.h"

#include <limits>
#include <utility>

#include <ZAVEventRepository/ZAVDate.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVContentFailure.h"
#include "Store/Internal/ZAVContentNames.h"
#include "Store/Internal/ZAVContentParts.h"
#include "Store/Internal/ZAVContentRows.h"

namespace zav {
namespace {

/// Whether it can be tried again when the store is resumed.
bool isOfSuspendedStore(const ZAVError& error) {
    return error.code() == ZAVEventStoreErrorSuspended && error.domain() == ZAVErrorDomainEventStore;
}

}  // namespace

std::unique_ptr<ZAVDownload> ZAVDownload::begin(ZAVStoreCore& core, ZAVDatabaseIdentifier event,
                                                std::int64_t index, ZAVDownloadKind kind) {
    std::optional<ZAVContentDirectory> root;
    Part part;
    ZAVExpectDone(core.write([&](const ZAVRepositories& repositories) {
        part = start(repositories, core.owner(), event, index);
        root.emplace(ZAVContentDirectory::make(core.owner().contentDirectoryPath()));
        if (kind == ZAVDownloadKind::resumed) {
            takeBack(repositories.events.database(), *root, part);
        }
        return true;
    }));
    const ZAVContentPath path = ZAVParsedContentPath(part.filePath);
    const std::string place = root->path() + "/" + part.filePath;
    std::unique_ptr<ZAVDownload> download(new ZAVDownload(core, std::move(part), place));
    if (kind == ZAVDownloadKind::whole) {
        download->file_.emplace(*root, path);
    } else {
        const std::uint64_t size = download->part_.size;
        download->file_.emplace(
            *root, path,
            ZAVPartialToResume{download->part_.number,
                               size != 0 ? size : std::numeric_limits<std::uint64_t>::max(),
                               core.databasePath()});
        download->size_ = download->file_->size();
    }
    return download;
}

ZAVDownload::ZAVDownload(ZAVStoreCore& core, Part part, std::string place)
    : core_(core), part_(std::move(part)), place_(std::move(place)) {}

/// Has a part downloaded from now on, and answers where to.
ZAVDownload::Part ZAVDownload::start(const ZAVRepositories& repositories, const ZAVStoreOwner& owner,
                                     ZAVDatabaseIdentifier event, std::int64_t index) {
    const auto part = ZAVPartAt(repositories, event, index);
    const auto status = part->transferStatus();
    const bool isWanted = status == ZAVContentTransferReadyForDownload ||
                          status == ZAVContentTransferDownloading ||
                          (status == ZAVContentTransferComplete && part->isPurged());
    if (!isWanted) {
        throw ZAVNoContent(ZAVNameOfPart(event, index) + " waits for no download");
    }
    const auto file = part->fileURL()
                          ? *part->fileURL()
                          : ZAVPlacedFile(owner, part->eventClientID(), static_cast<std::uint64_t>(index));
    ZAVError failure;
    if (!runUpdate(repositories.events.database(), &failure,
                   "UPDATE event_content_parts SET transfer_status = 3, file_path = ?"
                   " WHERE event_database_identifier = ? AND event_content_part_id = ?",
                   file.relativePath(), event, index)) {
        throw ZAVContentFailure(failure);
    }
    return {event, index, file.relativePath(),
            part->size() > 0 ? static_cast<std::uint64_t>(part->size()) : 0, ZAVNumberOfPart(event, index)};
}

/// A download that was killed between giving the file its name and committing that it is complete has left a
/// whole file, which this part alone names. It is gone on with, and there is nothing to fetch.
void ZAVDownload::takeBack(FMDatabase& database, const ZAVContentDirectory& root, const Part& part) {
    const ZAVContentPath path = ZAVParsedContentPath(part.filePath);
    const auto found = root.find(path.names());
    if (!found || !found->status.isRegular || found->status.names != 1 || part.size == 0 ||
        found->status.size != part.size) {
        return;
    }
    ZAVContentRows rows(database, root.path());
    rows.refresh();
    const auto place = rows.location(part.filePath);
    if (place && rows.naming(*place).size() == 1 && !rows.isOfDatabase(found->status.identity)) {
        const std::string& name = path.names().back();
        found->directory.renameToFreeName(name, ZAVPartialNameOfPart(name, part.number));
    }
}

bool ZAVDownload::expectUsable(ZAVError* error) const {
    if (!file_) {
        ZAVStoreError(error, ZAVErrorOfContent(place_, "was finished, or could not be written"));
    }
    return file_.has_value();
}

/// Does something to the file. What fails is answered, and nothing more can be done to it then.
template <class Work>
bool ZAVDownload::change(ZAVError* error, const Work& work) {
    if (!expectUsable(error)) {
        return false;
    }
    if (isWhole_) {
        ZAVStoreError(error, ZAVErrorOfContent(place_, "is being finished"));
        return false;
    }
    const bool succeeded = ZAVSucceeds(place_, error, work);
    size_ = file_->size();
    if (!succeeded) {
        file_.reset();
    }
    return succeeded;
}

bool ZAVDownload::append(std::span<const std::uint8_t> bytes, ZAVError* error) {
    return change(error, [&] { file_->append(bytes); });
}

bool ZAVDownload::startOver(ZAVError* error) {
    return change(error, [&] { file_->startOver(); });
}

bool ZAVDownload::finish(ZAVError* error) {
    if (!expectUsable(error)) {
        return false;
    }
    isWhole_ = true;
    ZAVError failure;
    const bool isPartOfWork = core_.isInWork();
    const bool succeeded = ZAVSucceeds(place_, &failure, [&] {
        file_->sync();
        const auto outcome = core_.write([&](const ZAVRepositories& repositories) {
            return complete(repositories, isPartOfWork, &failure);
        });
        ZAVExpectDone(outcome, failure);
    });
    if (!isOfSuspendedStore(failure)) {
        file_.reset();
    }
    if (!succeeded) {
        ZAVStoreError(error, failure);
    }
    return succeeded;
}

/// The file gets its name under the lock: the row may have gone while it was written.
bool ZAVDownload::complete(const ZAVRepositories& repositories, bool isPartOfWork, ZAVError* error) {
    FMDatabase& database = repositories.events.database();
    if (!runUpdate(
            database, error,
            "UPDATE event_content_parts SET transfer_status = 4, size = ?, purged = 0, last_accessed = ?"
            " WHERE event_database_identifier = ? AND event_content_part_id = ? AND file_path = ?"
            " AND transfer_status IN (2, 3)",
            static_cast<std::int64_t>(file_->size()), ZAVNow(), part_.event, part_.index, part_.filePath)) {
        return false;
    }
    if (database.changes() == 0) {
        file_->discard();  // nobody will go on with it
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorNoContent,
                                             place_ + ": no part waits for this download any more"));
        return false;
    }
    if (const ZAVError stopped = isPartOfWork ? ZAVError() : core_.passPointOfNoReturn()) {
        ZAVStoreError(error, stopped);
        return false;
    }
    file_->moveIntoPlace();
    return true;
}

}  // namespace zav
