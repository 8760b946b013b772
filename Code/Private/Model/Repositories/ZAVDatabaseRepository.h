#pragma once

#include <memory>
#include <utility>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/NSInternalInconsistencyException.h>
#include <ZAVEventRepository/ZAVExport.h>

namespace zav {

/// Base of the repositories: holds the open database handle that they work through.
///
/// A repository shares the handle and never opens, closes or reconfigures it. It keeps no state of its own
/// between calls, so that any number of repositories may stand on one handle, all of them on the handle's one
/// thread.
class ZAV_EXPORT ZAVDatabaseRepository {
public:
    /// @param database an open handle.
    /// @throws NSInternalInconsistencyException when it is null, because opening it has failed, for example.
    explicit ZAVDatabaseRepository(std::shared_ptr<FMDatabase> database) : database_(std::move(database)) {
        if (database_ == nullptr) {
            throw NSInternalInconsistencyException("A repository needs an open database handle.");
        }
    }
    virtual ~ZAVDatabaseRepository() = default;

    /// The handle, alive for as long as the repository.
    [[nodiscard]] FMDatabase& database() const noexcept { return *database_; }

protected:
    /// A copy stands on the same handle.
    ZAVDatabaseRepository(const ZAVDatabaseRepository&) = default;

    /// Moves this repository to the handle of another.
    ZAVDatabaseRepository& operator=(const ZAVDatabaseRepository&) = default;

    /// The handle itself, to set a further repository on it.
    [[nodiscard]] const std::shared_ptr<FMDatabase>& sharedDatabase() const noexcept { return database_; }

private:
    std::shared_ptr<FMDatabase> database_;
};

}  // namespace zav
