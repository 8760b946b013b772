#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {

bool failWith(FMDatabase& database, const ZAVError& reason, ZAVError* error) {
    ZAVStoreError(error, reason);
    return database.connection().fail(reason);
}

std::optional<bool> usesWriteAheadLog(FMDatabase& database, ZAVError* error) {
    auto mode = runQuery(database, error, "PRAGMA journal_mode");
    if (!mode || !mode->nextWithError(error)) {
        return std::nullopt;
    }
    return mode->stringForColumnIndex(0) == "wal";
}

}  // namespace zav
