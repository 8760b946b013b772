#include "Private/Database/Internal/ZAVNextWriter.h"

#include <sqlite3.h>

#include "Private/Database/Internal/ZAVOpenFiles.h"

namespace zav {

ZAVNextWriter::ZAVNextWriter(sqlite3* connection) noexcept {
    if (connection != nullptr && sqlite3_db_readonly(connection, "main") == 0) {
        file_ = ZAVOpenFile(connection, "main");
    }
}

/// A connection with a log holds the shared lock all the time; one without has none between transactions, or
/// a greater one when it shares the file with nobody.
bool ZAVNextWriter::hasPlace() const noexcept {
    int level = SQLITE_LOCK_NONE;
    return file_ != nullptr &&
           file_->pMethods->xFileControl(file_, SQLITE_FCNTL_LOCKSTATE, &level) == SQLITE_OK &&
           level == SQLITE_LOCK_SHARED;
}

bool ZAVNextWriter::isAnother() const noexcept {
    int isReserved = 0;
    return hasPlace() && file_->pMethods->xCheckReservedLock(file_, &isReserved) == SQLITE_OK &&
           isReserved != 0;
}

ZAVNextWriter::Attempt ZAVNextWriter::take() const noexcept {
    if (!hasPlace()) {
        return Attempt::impossible;
    }
    const int status = file_->pMethods->xLock(file_, SQLITE_LOCK_RESERVED);
    return status == SQLITE_OK              ? Attempt::taken
           : (status & 0xFF) == SQLITE_BUSY ? Attempt::isAnother
                                            : Attempt::impossible;
}

void ZAVNextWriter::giveUp() const noexcept {
    file_->pMethods->xUnlock(file_, SQLITE_LOCK_SHARED);
}

}  // namespace zav
