#include "Private/Database/ZAVTransaction.h"

namespace zav {

std::optional<ZAVTransaction> ZAVTransaction::begin(FMDatabase& database, ZAVError* error) {
    if (!database.executeUpdate("BEGIN IMMEDIATE")) {
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
    FMDatabase* const database = std::exchange(database_, nullptr);
    // The engine rolls some failures back by itself; there is then nothing left to undo.
    if (database != nullptr && database->inTransaction()) {
        database->executeStatements("ROLLBACK");
    }
}

}  // namespace zav
