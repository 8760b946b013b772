#include "Private/Database/Internal/ZAVFileSizes.h"

#include <sqlite3.h>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <string>
#include <system_error>

namespace zav {
namespace {

/// 0 for a file that is not open, as those of a database in memory are not; none when it cannot be had.
std::optional<std::uint64_t> sizeOfOpenFile(sqlite3* connection, int control) noexcept {
    sqlite3_file* file = nullptr;
    if (sqlite3_file_control(connection, "main", control, &file) != SQLITE_OK || file == nullptr ||
        file->pMethods == nullptr) {
        return 0;
    }
    sqlite3_int64 size = 0;
    if (file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(std::max<sqlite3_int64>(size, 0));
}

}  // namespace

std::optional<std::uint64_t> ZAVSizeOfFile(sqlite3* connection) noexcept {
    return sizeOfOpenFile(connection, SQLITE_FCNTL_FILE_POINTER);
}

std::optional<std::uint64_t> ZAVSizeOfLog(sqlite3* connection) noexcept {
#ifdef SQLITE_FCNTL_JOURNAL_POINTER
    return sizeOfOpenFile(connection, SQLITE_FCNTL_JOURNAL_POINTER);
#else
    try {
        const char* const path = sqlite3_db_filename(connection, "main");
        std::error_code failure;
        const auto size =
            std::filesystem::file_size(std::string(path == nullptr ? "" : path) + "-wal", failure);
        return failure ? 0 : size;
    } catch (const std::exception&) {
        return std::nullopt;
    }
#endif
}

}  // namespace zav
