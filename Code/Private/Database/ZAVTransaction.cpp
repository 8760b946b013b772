#include "Private/Database/ZAVTransaction.h"

namespace zav {

std::optional<ZAVTransaction> ZAVTransaction::begin(FMDatabase& database, ZAVError* error) {
    // What ends a transaction is made ready before it begins, for when memory is short.
    if (!database.prepare("ROLLBACK") || !database.prepare("COMMIT") ||
        !database.executeUpdate("BEGIN IMMEDIATE")) {
        ZAVStoreError(error, database.lastError());
        return std::nullopt;
    }
    return ZAVTransaction(database);
}

bool ZAVTransaction::commit(ZAVError* error) {
    if (database_ == nullptr || !database_->executeUpdate("COMMIT")) {
        if (database_ != nullptr) {
            ZAVStoreError(error, database_->lastError());
        }
        rollback();
        return false;
    }
    database_ = nullptr;
    return true;
}

void ZAVTransaction::rollback() noexcept {
    if (FMDatabase* const database = std::exchange(database_, nullptr)) {
        database->rollback();
    }
}

}  // namespace zav
