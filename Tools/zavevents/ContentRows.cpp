#include "ContentRows.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string_view>

namespace zavevents {

using namespace zav;

namespace {

/// Whether resolving a path would only put the directory in front of it, as with all those that the library
/// makes.
bool isPlain(std::string_view path) {
    static constexpr std::string_view plain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_=~./";
    return !path.empty() && path.find_first_not_of(plain) == std::string_view::npos && path.front() != '.' &&
           path.front() != '/' && path.back() != '/' && path.find("//") == std::string_view::npos &&
           path.find("/.") == std::string_view::npos;
}

/// Steps to the next row.
bool next(FMResultSet& rows) {
    ZAVError error;
    const bool stands = rows.nextWithError(&error);
    if (error) {
        throw DatabaseFailure(error);
    }
    return stands;
}

}  // namespace

ContentRows::ContentRows(FMDatabase& database, const std::string& directory)
    : database_(database),
      prefix_(directory.ends_with('/') ? directory : directory + "/"),
      base_(ZAVURL::fileURLWithDirectoryPath(directory)) {}

FMResultSet ContentRows::query(std::string_view sql) const {
    auto rows = database_.executeBoundedQuery(sql);
    if (!rows) {
        throw DatabaseFailure(database_.lastError());
    }
    return *std::move(rows);
}

bool ContentRows::refresh() {
    // Asked before the rows are read: what changes meanwhile is found out the next time.
    auto versions = query("PRAGMA data_version");
    next(versions);
    const std::int64_t version = versions.longLongIntForColumnIndex(0);
    versions.close();
    if (version_ == version) {
        return false;
    }
    version_.reset();
    readNames();
    readPurgeable();
    version_ = version;
    return true;
}

void ContentRows::readNames() {
    names_.clear();
    needed_.clear();
    auto rows = query(
        "SELECT database_identifier, file_path, transfer_status = 4 FROM event_content_parts"
        " WHERE file_path IS NOT NULL");
    while (next(rows)) {
        const auto place = location(rows.stringForColumnIndex(1).value_or(""));
        if (!place) {
            continue;
        }
        names_.emplace_back(std::hash<std::string>()(*place), rows.longLongIntForColumnIndex(0));
        if (rows.boolForColumnIndex(2)) {
            continue;
        }
        for (const bool followLink : {false, true}) {
            if (const auto status = statusOfFile(*place, followLink)) {
                needed_.push_back(status->identity);
            }
        }
    }
    std::sort(names_.begin(), names_.end());
    std::sort(needed_.begin(), needed_.end());
}

void ContentRows::readPurgeable() {
    purgeable_.clear();
    auto rows = query(
        "SELECT database_identifier FROM event_content_parts WHERE file_path IS NOT NULL AND transfer_status = 4"
        " AND last_accessed IS NOT NULL AND (purged = 0 OR purged IS NULL)"
        " ORDER BY last_accessed ASC, database_identifier ASC");
    while (next(rows)) {
        purgeable_.push_back(rows.longLongIntForColumnIndex(0));
    }
}

std::optional<ContentRow> ContentRows::row(std::int64_t row) const {
    auto rows = database_.executeBoundedQuery(
        "SELECT event_database_identifier, event_content_part_id, file_path, transfer_status = 4,"
        " NOT (purged = 0 OR purged IS NULL), transfer_status IN (2, 3) FROM event_content_parts"
        " WHERE database_identifier = ? AND file_path IS NOT NULL",
        row);
    if (!rows) {
        throw DatabaseFailure(database_.lastError());
    }
    if (!next(*rows)) {
        return std::nullopt;
    }
    return ContentRow{row,
                      rows->stringForColumnIndex(0).value_or(""),
                      rows->stringForColumnIndex(1).value_or(""),
                      rows->stringForColumnIndex(2).value_or(""),
                      rows->boolForColumnIndex(3),
                      rows->boolForColumnIndex(4),
                      rows->boolForColumnIndex(5)};
}

std::vector<ContentRow> ContentRows::naming(const std::string& place) const {
    const std::size_t hash = std::hash<std::string>()(place);
    std::vector<ContentRow> result;
    for (auto entry = std::lower_bound(names_.begin(), names_.end(), std::pair(hash, INT64_MIN));
         entry != names_.end() && entry->first == hash; ++entry) {
        if (auto found = row(entry->second); found && location(found->filePath) == place) {
            result.push_back(*std::move(found));
        }
    }
    return result;
}

bool ContentRows::isNeeded(const FileIdentity& file) const {
    return std::binary_search(needed_.begin(), needed_.end(), file);
}

std::optional<std::string> ContentRows::location(const std::string& filePath) const {
    if (isPlain(filePath)) {
        return prefix_ + filePath;
    }
    const auto url = ZAVURL::URLWithString(filePath, base_);
    if (!url) {
        return std::nullopt;
    }
    return std::filesystem::path(url->filePath()).lexically_normal().string();
}

void ContentRows::markPurged(std::int64_t row) {
    if (!database_.executeBoundedUpdate(
            "UPDATE event_content_parts SET purged = 1 WHERE database_identifier = ?", row)) {
        throw DatabaseFailure(database_.lastError());
    }
}

}  // namespace zavevents
