#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

void storeLastError(const FMDatabase& database, ZAVError* error) {
    ZAVStoreError(error, database.lastError());
}

}  // namespace zav
