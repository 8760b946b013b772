#include "Private/Database/Internal/ZAVOpenFiles.h"

#include <sqlite3.h>

#include <algorithm>

namespace zav {
namespace {

sqlite3_file* fileOf(sqlite3* connection, const char* schema, int control) noexcept {
    sqlite3_file* file = nullptr;
    const int status = sqlite3_file_control(connection, schema, control, &file);
    return status == SQLITE_OK && file != nullptr && file->pMethods != nullptr ? file : nullptr;
}

std::optional<std::uint64_t> sizeOf(sqlite3_file* file) noexcept {
    sqlite3_int64 size = 0;
    if (file != nullptr && file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(std::max<sqlite3_int64>(size, 0));
}

}  // namespace

sqlite3_file* ZAVOpenFile(sqlite3* connection, const char* schema) noexcept {
    return fileOf(connection, schema, SQLITE_FCNTL_FILE_POINTER);
}

std::optional<std::uint64_t> ZAVSizeOfFile(sqlite3* connection) noexcept {
    return sizeOf(ZAVOpenFile(connection, "main"));
}

std::optional<std::uint64_t> ZAVSizeOfLog(sqlite3* connection) noexcept {
    return sizeOf(fileOf(connection, "main", SQLITE_FCNTL_JOURNAL_POINTER));
}

}  // namespace zav
