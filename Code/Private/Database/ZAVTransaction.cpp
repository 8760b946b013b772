#include <ZAVEventRepository/ZAVTransaction.h>

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

ZAVTransaction::ZAVTransaction(FMDatabase& database) noexcept
    : database_(&database), number_(++database.transactionNumber_) {}

bool ZAVTransaction::isOpen() const noexcept {
    return database_ != nullptr && database_->transactionNumber_ == number_ && database_->inTransaction();
}

bool ZAVTransaction::commit(ZAVError* error) {
    const auto fail = [&](const ZAVError& reason) {
        ZAVStoreError(error, reason);
        rollback();
        return false;
    };
    if (!isOpen()) {
        const ZAVError ended(ZAVErrorDomainDatabase, ZAVDatabaseErrorTransactionEnded,
                             "the transaction is no longer open");
        if (database_ != nullptr) {
            database_->fail(ended);
        }
        return fail(ended);
    }
    if (!database_->executeUpdate("COMMIT")) {
        return fail(database_->lastError());
    }
    database_ = nullptr;
    return true;
}

void ZAVTransaction::rollback() noexcept {
    if (isOpen()) {
        database_->rollback();
    }
    database_ = nullptr;
}

}  // namespace zav
