#include "Private/Model/Repositories/ZAVSyncedChangeRepository.h"

namespace zav {

bool ZAVSyncedChangeRepository::recordChange(std::string_view tableName, ZAVDatabaseIdentifier rowIdentifier,
                                             ZAVSyncedChangeType type, ZAVError* error) const {
    if (!database().executeUpdate(
            "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES (?, ?, ?)",
            tableName, rowIdentifier, type)) {
        ZAVStoreError(error, database().lastError());
        return false;
    }
    return true;
}

}  // namespace zav
