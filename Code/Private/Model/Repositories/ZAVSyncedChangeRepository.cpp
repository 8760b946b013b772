#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>

#include "Private/Model/Repositories/Internal/ZAVRepositoryStatements.h"

namespace zav {

bool ZAVSyncedChangeRepository::recordChange(std::string_view tableName, ZAVDatabaseIdentifier rowIdentifier,
                                             ZAVSyncedChangeType type, ZAVError* error) const {
    return runUpdate(database(), error,
                     "INSERT INTO synced_changes (table_name, row_identifier, change_type) VALUES (?, ?, ?)",
                     tableName, rowIdentifier, type);
}

}  // namespace zav
