#include "Store/Internal/ZAVStoreHandle.h"

#include "Private/Database/Internal/ZAVConnection.h"
#include "Private/Database/Internal/ZAVStatements.h"

namespace zav {
namespace {

bool runOn(ZAVConnection& connection, ZAVSQL statement, ZAVError* error) {
    const bool succeeded = connection.update(connection.lend(statement), ZAVConnection::Reach::free);
    if (!succeeded) {
        ZAVStoreError(error, connection.lastError());
    }
    return succeeded;
}

}  // namespace

ZAVStoreHandle::ZAVStoreHandle(const std::shared_ptr<FMDatabase>& database)
    : database_(database), repositories_(database) {}

ZAVSnapshot::ZAVSnapshot(ZAVStoreHandle& handle, ZAVError* error)
    : connection_(handle.connection()),
      // The engine takes the snapshot with the first look into the file.
      isTaken_(runOn(connection_, "BEGIN", error) && runOn(connection_, "PRAGMA schema_version", error)) {
    if (isTaken_) {
        connection_.holdTransaction();
    } else {
        connection_.endTransaction();
    }
}

ZAVSnapshot::~ZAVSnapshot() {
    if (isTaken_) {
        connection_.expireCursors();
        connection_.endTransaction();
        connection_.letGoOfTransaction();
    }
}

ZAVWorkTransaction::ZAVWorkTransaction(ZAVStoreHandle& handle, ZAVError* error)
    : connection_(handle.connection()) {
    const auto number = connection_.beginTransaction();
    if (!number) {
        ZAVStoreError(error, connection_.lastError());
        return;
    }
    number_ = *number;
    isBegun_ = true;
    connection_.holdTransaction();
}

ZAVWorkTransaction::~ZAVWorkTransaction() {
    if (isBegun_) {
        connection_.expireCursors();
        connection_.endTransaction();
        connection_.letGoOfTransaction();
    }
}

bool ZAVWorkTransaction::isStillOpen(ZAVError* error) const {
    if (connection_.isInTransaction(number_)) {
        return true;
    }
    ZAVStoreError(error, connection_.lastError());
    return false;
}

bool ZAVWorkTransaction::commit(ZAVError* error) {
    connection_.expireCursors();  // an open one would keep this commit from folding the log
    if (connection_.commitTransaction()) {
        return true;
    }
    ZAVStoreError(error, connection_.lastError());
    return false;
}

ZAVWorkSavepoint::ZAVWorkSavepoint(ZAVStoreHandle& handle, ZAVError* error)
    : connection_(handle.connection()), isSet_(run("SAVEPOINT zav_work", error)) {}

ZAVWorkSavepoint::~ZAVWorkSavepoint() {
    if (isSet_ && (!run("ROLLBACK TO zav_work", nullptr) || !run("RELEASE zav_work", nullptr))) {
        connection_.endTransaction();  // what is to be taken back must not be committed with the rest
    }
}

bool ZAVWorkSavepoint::keep(ZAVError* error) {
    isSet_ = !run("RELEASE zav_work", error);
    return !isSet_;
}

bool ZAVWorkSavepoint::run(const char* statement, ZAVError* error) {
    return runOn(connection_, std::string_view(statement), error);
}

}  // namespace zav
