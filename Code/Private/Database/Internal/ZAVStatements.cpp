#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

void storeLastError(const FMDatabase& database, ZAVError* error) {
    ZAVStoreError(error, database.lastError());
}

bool runUpdateWithArguments(FMDatabase& database, ZAVError* error, std::string_view statement,
                            std::span<const ZAVValue> arguments) {
    const bool succeeded = database.executeBoundedUpdateWithArgumentsInArray(statement, arguments);
    if (!succeeded) {
        storeLastError(database, error);
    }
    return succeeded;
}

}  // namespace zav
