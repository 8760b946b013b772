#include "Store/Internal/ZAVDownload.h"

#include <system_error>
#include <utility>

#include <ZAVEventRepository/ZAVDate.h>

#include "Private/Database/Internal/ZAVStatements.h"
#include "Store/Internal/ZAVContentFailure.h"

namespace zav {

ZAVDownload::ZAVDownload(ZAVStoreCore& core, const ZAVContentDirectory& root, ZAVPartOfContent part,
                         const ZAVContentPath& path)
    : core_(core), part_(std::move(part)), place_(root.path() + "/" + part_.filePath) {
    file_.emplace(root, path);
}

bool ZAVDownload::expectUsable(ZAVError* error) const {
    if (!file_) {
        ZAVStoreError(error, ZAVErrorOfContent(place_, "was finished, or could not be written"));
    }
    return file_.has_value();
}

bool ZAVDownload::append(std::span<const std::uint8_t> bytes, ZAVError* error) {
    if (!expectUsable(error)) {
        return false;
    }
    const bool succeeded = ZAVSucceeds(place_, error, [&] { file_->append(bytes); });
    if (!succeeded) {
        file_.reset();
    }
    return succeeded;
}

bool ZAVDownload::finish(ZAVError* error) {
    if (!expectUsable(error)) {
        return false;
    }
    ZAVError failure;
    const bool succeeded = ZAVSucceeds(place_, &failure, [&] {
        file_->sync();
        const auto outcome = core_.write(
            [&](const ZAVRepositories& repositories) { return complete(repositories, &failure); });
        if (outcome.state != ZAVWorkOutcome::State::done) {
            throw ZAVContentFailure(outcome.error ? outcome.error : failure);
        }
    });
    file_.reset();
    if (!succeeded) {
        ZAVStoreError(error, failure);
    }
    return succeeded;
}

/// The file gets its name under the lock: the row may have gone while it was written.
bool ZAVDownload::complete(const ZAVRepositories& repositories, ZAVError* error) {
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
        ZAVStoreError(error, ZAVErrorOfStore(ZAVEventStoreErrorNoContent,
                                             place_ + ": no part waits for this download any more"));
        return false;
    }
    file_->moveIntoPlace();
    return true;
}

}  // namespace zav
