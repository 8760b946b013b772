#pragma once

#include <cstdint>
#include <optional>

struct sqlite3;
struct sqlite3_file;

namespace zav {

/// The file that a connection has open for a schema; null when there is none, as in memory.
[[nodiscard]] sqlite3_file* ZAVOpenFile(sqlite3* connection, const char* schema) noexcept;

/// The bytes of a connection's main file; 0 for a database in memory. None when they cannot be had.
[[nodiscard]] std::optional<std::uint64_t> ZAVSizeOfFile(sqlite3* connection) noexcept;

/// The bytes of the write-ahead log, or the journal, beside it; 0 when there is none. None when they cannot
/// be had.
[[nodiscard]] std::optional<std::uint64_t> ZAVSizeOfLog(sqlite3* connection) noexcept;

}  // namespace zav
