#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace zav {

/// How much is asked of what a database takes.
enum class ZAVDiskUsageDetail {
    whole,   ///< of the file and its log, which costs next to nothing
    tables,  ///< of each table and index too, for which the whole file is read
};

/// What one table or index takes of a database.
struct ZAVTableDiskUsage {
    std::string name;              ///< as the file has it, whoever wrote it
    std::string table;             ///< that an index is on; the name itself for a table
    bool isIndex = false;          ///< and not a table
    std::int64_t pages = 0;        ///< that it stands in
    std::int64_t bytes = 0;        ///< of those pages
    std::int64_t unusedBytes = 0;  ///< of them those that nothing stands in
};

/// What a database takes of the disk.
struct ZAVDiskUsage {
    std::int64_t pageSize = 0;  ///< in bytes

    /// Pages of the database, the free ones among them. Some may be in the log alone, so that the file is
    /// shorter than its pages.
    std::int64_t pages = 0;
    std::int64_t freePages = 0;  ///< that nothing stands in; what is stored next takes them
    std::int64_t freeBytes = 0;  ///< of those pages
    std::int64_t fileBytes = 0;  ///< 0 in memory
    std::int64_t logBytes = 0;   ///< of the write-ahead log; 0 without one

    /// The largest first, the engine's own table of the schema among them. None when they were not asked for,
    /// and where the engine cannot tell: it must have been compiled with `ENABLE_DBSTAT_VTAB`, and the
    /// database may have no table named `dbstat`. Their pages and the free ones are all pages, but for those
    /// that the engine keeps for itself in a file that is vacuumed automatically or exceeds 1 GiB.
    std::optional<std::vector<ZAVTableDiskUsage>> tables;
};

}  // namespace zav
