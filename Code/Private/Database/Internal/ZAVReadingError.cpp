#include "Private/Database/Internal/ZAVReadingError.h"

#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <string>

#include <ZAVEventRepository/ZAVDatabaseError.h>

namespace zav {
namespace {

/// What keeps this process from reading a file; empty when nothing does.
std::string obstacleTo(const std::string& path) {
    if (::faccessat(AT_FDCWD, path.c_str(), R_OK, AT_EACCESS) == 0) {
        return "";
    }
    return path + (::faccessat(AT_FDCWD, path.c_str(), F_OK, AT_EACCESS) == 0 ? " may not be read"
                                                                              : " is not there");
}

}  // namespace

ZAVError ZAVErrorOfReading(const ZAVError& error, sqlite3* engine) {
    const int code = error.code() & 0xFF;
    const char* const file = sqlite3_db_filename(engine, "main");
    if (error.domain() != ZAVErrorDomainSQLite || (code != SQLITE_READONLY && code != SQLITE_CANTOPEN) ||
        file == nullptr || *file == '\0') {
        return error;
    }
    const std::string path = file;
    std::string obstacles;
    for (const char* const suffix : {"-wal", "-shm"}) {
        const std::string obstacle = obstacleTo(path + suffix);
        obstacles += (obstacles.empty() || obstacle.empty() ? "" : ", ") + obstacle;
    }
    if (obstacles.empty()) {
        return error;
    }
    return {error.domain(), error.code(),
            error.message() +
                ": who may not write beside a database with a write-ahead log reads it only while another "
                "handle has it open, and may read what stands beside it (FMDatabaseOptions::newFileMode): " +
                obstacles};
}

}  // namespace zav
