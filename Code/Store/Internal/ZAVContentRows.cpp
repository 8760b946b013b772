#include "Store/Internal/ZAVContentRows.h"

#include <sqlite3.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>

#include "Private/Database/Internal/ZAVConnection.h"
#include "Store/Internal/ZAVContentFailure.h"

namespace zav {
namespace {

/// Whether resolving a path would only put the directory in front of it, as with all those that the library
/// makes.
bool isPlain(std::string_view path) {
    // Asked of every row there is: one look at each character.
    static constexpr auto isPlainCharacter = [] {
        std::array<bool, 256> table{};
        for (const char character :
             std::string_view("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_=~./")) {
            table[static_cast<unsigned char>(character)] = true;
        }
        return table;
    }();
    char before = '/';
    for (const char character : path) {
        if (!isPlainCharacter[static_cast<unsigned char>(character)] ||
            (before == '/' && (character == '/' || character == '.'))) {
            return false;
        }
        before = character;
    }
    return before != '/';
}

/// Steps to the next row.
bool next(FMResultSet& rows) {
    ZAVError error;
    const bool stands = rows.nextWithError(&error);
    if (error) {
        throw ZAVContentFailure(error);
    }
    return stands;
}

}  // namespace

ZAVContentRows::ZAVContentRows(FMDatabase& database, const std::string& directory, std::size_t generation)
    : database_(database),
      prefix_(directory.ends_with('/') ? directory : directory + "/"),
      base_(ZAVURL::fileURLWithDirectoryPath(directory)),
      generation_(generation) {}

template <class... Values>
FMResultSet ZAVContentRows::query(std::string_view sql, const Values&... values) const {
    auto rows = database_.executeBoundedQuery(sql, values...);
    if (!rows) {
        throw ZAVContentFailure(database_.lastError());
    }
    return *std::move(rows);
}

/// The first column of a query.
std::vector<std::int64_t> ZAVContentRows::numbers(std::string_view sql) const {
    std::vector<std::int64_t> result;
    auto rows = query(sql);
    while (next(rows)) {
        result.push_back(rows.longLongIntForColumnIndex(0));
    }
    return result;
}

bool ZAVContentRows::isOfDatabase(const ZAVFileIdentity& file) const {
    return ZAVIsFileOfDatabase(file, sqlite3_db_filename(database_.connection().engine(), "main"));
}

void ZAVContentRows::refresh() {
    // Asked before the rows are read: what changes meanwhile is found out the next time.
    ZAVError failure;
    const auto present = ZAVVersionOfDatabase(database_, &failure);
    if (!present) {
        throw ZAVContentFailure(failure);
    }
    if (version_ == present) {
        return;
    }
    version_.reset();
    readNames(nullptr);
    purgeable_ = numbers(
        "SELECT database_identifier FROM event_content_parts WHERE file_path IS NOT NULL AND transfer_status = 4"
        " AND last_accessed IS NOT NULL AND (purged = 0 OR purged IS NULL)"
        " ORDER BY last_accessed ASC, database_identifier ASC");
    version_ = present;
    ++generation_;
}

void ZAVContentRows::readThoseNaming(const std::set<std::string>& places) {
    version_.reset();
    purgeable_.clear();
    readNames(&places);
}

void ZAVContentRows::readNames(const std::set<std::string>* places) {
    names_.clear();
    needed_.clear();
    std::set<std::string> plainPaths;
    if (places != nullptr) {
        for (const std::string& place : *places) {
            plainPaths.insert(isBelow(place) ? place.substr(prefix_.size()) : place);
        }
    }
    auto rows = query(
        "SELECT database_identifier, file_path, transfer_status = 4 FROM event_content_parts"
        " WHERE file_path IS NOT NULL");
    while (next(rows)) {
        const std::string filePath = rows.stringForColumnIndex(1).value_or("");
        const bool isComplete = rows.boolForColumnIndex(2);
        if (places != nullptr && isComplete && isPlain(filePath) && !plainPaths.contains(filePath)) {
            continue;  // as nearly all of them: nothing is made of these
        }
        const auto place = location(filePath);
        if (!place) {
            continue;
        }
        if (places == nullptr || places->contains(*place)) {
            names_.emplace_back(std::hash<std::string>()(*place), rows.longLongIntForColumnIndex(0));
        }
        if (isComplete) {
            continue;
        }
        for (const bool followLink : {false, true}) {
            if (const auto status = ZAVStatusOfFile(*place, followLink)) {
                needed_.push_back(status->identity);
            }
        }
    }
    std::sort(names_.begin(), names_.end());
    std::sort(needed_.begin(), needed_.end());
}

std::vector<std::int64_t> ZAVContentRows::present() const {
    return numbers(
        "SELECT database_identifier FROM event_content_parts WHERE file_path IS NOT NULL"
        " AND transfer_status IN (0, 1, 4) AND (purged = 0 OR purged IS NULL)");
}

std::uint64_t ZAVContentRows::bytes() const {
    auto rows = query(
        "SELECT CAST(TOTAL(size) AS INTEGER) FROM event_content_parts WHERE transfer_status IN (0, 1, 4)"
        " AND file_path IS NOT NULL AND size > 0 AND (purged = 0 OR purged IS NULL)");
    next(rows);
    return static_cast<std::uint64_t>(rows.longLongIntForColumnIndex(0));
}

std::optional<ZAVContentRow> ZAVContentRows::row(std::int64_t row) const {
    auto rows = query(
        "SELECT event_database_identifier, event_content_part_id, file_path, type,"
        " CASE WHEN typeof(size) = 'integer' AND size > 0 THEN size ELSE 0 END, transfer_status = 4,"
        " NOT (purged = 0 OR purged IS NULL), transfer_status IN (2, 3), last_accessed,"
        " (SELECT stream_database_identifier FROM events"
        " WHERE events.database_identifier = event_content_parts.event_database_identifier)"
        " FROM event_content_parts WHERE database_identifier = ? AND file_path IS NOT NULL",
        row);
    if (!next(rows)) {
        return std::nullopt;
    }
    return ZAVContentRow{
        row,
        rows.stringForColumnIndex(0).value_or(""),
        rows.stringForColumnIndex(1).value_or(""),
        rows.stringForColumnIndex(2).value_or(""),
        rows.stringForColumnIndex(3).value_or(""),
        static_cast<std::uint64_t>(rows.longLongIntForColumnIndex(4)),
        rows.boolForColumnIndex(5),
        rows.boolForColumnIndex(6),
        rows.boolForColumnIndex(7),
        rows.dateForColumnIndex(8),
        rows.columnIndexIsNull(9) ? std::nullopt : std::optional(rows.longLongIntForColumnIndex(9))};
}

std::vector<ZAVContentRow> ZAVContentRows::naming(const std::string& place) const {
    const std::size_t hash = std::hash<std::string>()(place);
    std::vector<ZAVContentRow> result;
    for (auto entry = std::lower_bound(names_.begin(), names_.end(), std::pair(hash, INT64_MIN));
         entry != names_.end() && entry->first == hash; ++entry) {
        if (auto found = row(entry->second); found && location(found->filePath) == place) {
            result.push_back(*std::move(found));
        }
    }
    return result;
}

bool ZAVContentRows::isNeeded(const ZAVFileIdentity& file) const {
    return std::binary_search(needed_.begin(), needed_.end(), file);
}

std::optional<std::string> ZAVContentRows::location(const std::string& filePath) const {
    if (isPlain(filePath)) {
        return prefix_ + filePath;
    }
    const auto url = ZAVURL::URLWithString(filePath, base_);
    if (!url) {
        return std::nullopt;
    }
    return std::filesystem::path(url->filePath()).lexically_normal().string();
}

void ZAVContentRows::markPurged(std::int64_t row) {
    if (!database_.executeBoundedUpdate(
            "UPDATE event_content_parts SET purged = 1 WHERE database_identifier = ?", row)) {
        throw ZAVContentFailure(database_.lastError());
    }
    if (version_) {
        ++version_->byThis;
    }
}

}  // namespace zav
