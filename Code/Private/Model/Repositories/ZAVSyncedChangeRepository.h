#pragma once

#include <string_view>

#include <ZAVEventRepository/ZAVDatabaseRepository.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVSyncedChangeType.h>

namespace zav {

/// Records which rows changed and wait to be processed by synchronisation.
class ZAV_EXPORT ZAVSyncedChangeRepository : public ZAVDatabaseRepository {
public:
    /// Sets a repository on an open handle, which it shares.
    /// @throws NSInternalInconsistencyException when there is none.
    using ZAVDatabaseRepository::ZAVDatabaseRepository;

    /// Records one change.
    /// @param tableName the changed table, such as `ZAVSyncedChangeTableNameEvents`.
    /// @param rowIdentifier the changed row.
    bool recordChange(std::string_view tableName, ZAVDatabaseIdentifier rowIdentifier,
                      ZAVSyncedChangeType type, ZAVError* error = nullptr) const;
};

}  // namespace zav
