#include "Store/Internal/ZAVStoreHandle.h"

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

/// Answers whether a call has succeeded; if not, the reason is in `error`.
bool answered(bool succeeded, const ZAVConnection& connection, ZAVError* error) {
    if (!succeeded) {
        ZAVStoreError(error, connection.lastError());
    }
    return succeeded;
}

bool runOn(ZAVConnection& connection, ZAVSQL statement, ZAVError* error) {
    return answered(connection.update(connection.lend(statement), ZAVConnection::Reach::free), connection,
                    error);
}

}  // namespace

ZAVStoreHandle::ZAVStoreHandle(const std::shared_ptr<FMDatabase>& database)
    : database_(database), repositories_(database) {}

ZAVTransactionHold::ZAVTransactionHold(ZAVConnection& connection) noexcept : connection_(connection) {
    connection_.holdTransaction();
}

ZAVTransactionHold::~ZAVTransactionHold() {
    connection_.expireCursors();
    connection_.endTransaction();
    connection_.letGoOfTransaction();
}

ZAVSnapshot::ZAVSnapshot(ZAVStoreHandle& handle, ZAVWorkControl& control, ZAVError* error)
    : control_(control) {
    ZAVConnection& connection = handle.connection();
    // The engine takes the snapshot with the first look into the file.
    if (runOn(connection, "BEGIN", error) && runOn(connection, "PRAGMA schema_version", error)) {
        hold_.emplace(connection);
    } else {
        control.pass();
        connection.endTransaction();
    }
}

ZAVWorkTransaction::ZAVWorkTransaction(ZAVStoreHandle& handle, ZAVWorkControl& control, ZAVError* error)
    : control_(control), connection_(handle.connection()), number_(connection_.beginTransaction()) {
    if (number_) {
        hold_.emplace(connection_);
    } else {
        ZAVStoreError(error, connection_.lastError());
    }
}

bool ZAVWorkTransaction::isStillOpen(ZAVError* error) const {
    return answered(connection_.isInTransaction(*number_), connection_, error);
}

bool ZAVWorkTransaction::commit(ZAVError* error) {
    connection_.expireCursors();  // an open one would keep this commit from folding the log
    return answered(connection_.commitTransaction(), connection_, error);
}

ZAVWorkSavepoint::ZAVWorkSavepoint(ZAVStoreHandle& handle, ZAVError* error)
    : connection_(handle.connection()), isSet_(run("SAVEPOINT zav_work", error)) {}

ZAVWorkSavepoint::~ZAVWorkSavepoint() {
    if (isSet_ && (!run("ROLLBACK TO zav_work", nullptr) || !run("RELEASE zav_work", nullptr))) {
        connection_.endTransaction();  // what is to be taken back must not be committed with the rest
    }
}

bool ZAVWorkSavepoint::isStillOpen(ZAVError* error) const {
    // One that is held has no successor.
    return answered(connection_.isInTransaction(), connection_, error);
}

bool ZAVWorkSavepoint::keep(ZAVError* error) {
    isSet_ = !run("RELEASE zav_work", error);
    return !isSet_;
}

bool ZAVWorkSavepoint::run(const char* statement, ZAVError* error) {
    return runOn(connection_, std::string_view(statement), error);
}

}  // namespace zav
