#include <ZAVEventRepository/ZAVTransaction.h>

#include <utility>

#include "Private/Database/Internal/ZAVConnection.h"

namespace zav {

std::optional<ZAVTransaction> ZAVTransaction::begin(FMDatabase& database, ZAVError* error) {
    ZAVConnection& connection = database.connection();
    const auto number = connection.mayControlTransactions() ? connection.beginTransaction() : std::nullopt;
    if (!number) {
        ZAVStoreError(error, connection.lastError());
        return std::nullopt;
    }
    return ZAVTransaction(connection, *number);
}

bool ZAVTransaction::isOpen() const noexcept {
    return connection_ != nullptr && connection_->isInTransaction(number_);
}

bool ZAVTransaction::commit(ZAVError* error) {
    if (!isOpen()) {
        const ZAVError ended(ZAVErrorDomainDatabase, ZAVDatabaseErrorTransactionEnded,
                             "the transaction is no longer open");
        if (connection_ != nullptr) {
            std::exchange(connection_, nullptr)->fail(ended);
        }
        ZAVStoreError(error, ended);
        return false;
    }
    if (!connection_->commitTransaction()) {
        ZAVStoreError(error, connection_->lastError());
        rollback();
        return false;
    }
    connection_ = nullptr;
    return true;
}

void ZAVTransaction::rollback() noexcept {
    if (isOpen()) {
        connection_->endTransaction();
    }
    connection_ = nullptr;
}

}  // namespace zav
