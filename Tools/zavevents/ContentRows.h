#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVURL.h>

#include "CacheDirectory.h"

namespace zavevents {

/// The database failed while rows were read or marked.
class DatabaseFailure : public std::runtime_error {
public:
    explicit DatabaseFailure(zav::ZAVError error)
        : std::runtime_error(error.message()), error_(std::move(error)) {}

    [[nodiscard]] const zav::ZAVError& error() const { return error_; }

private:
    zav::ZAVError error_;
};

/// The row of a content part, as far as its file is concerned. Event and index are text: a damaged store, or
/// one that another program wrote, may hold anything there.
struct ContentRow {
    std::int64_t row;
    std::string event;
    std::string index;
    std::string filePath;
    bool isComplete;  ///< nothing to upload or download
    bool isPurged;
    bool isToDownload;  ///< fetched again in any case
};

/// Which rows of content parts name which files. Rows are identified by their row identifier, since event
/// and index need not be unique.
///
/// All of it throws `DatabaseFailure`.
class ContentRows {
public:
    /// @param directory is where the paths of the rows begin, absolute and without links.
    ContentRows(zav::FMDatabase& database, const std::string& directory);

    /// Reads again which rows there are, if another connection has changed the database since the last time.
    /// Within a transaction what was read then holds to its end.
    /// @return whether it did.
    bool refresh();

    /// The complete parts that can be purged, the least recently accessed first.
    [[nodiscard]] const std::vector<std::int64_t>& purgeable() const { return purgeable_; }

    /// The row as it is now, if it names a file.
    [[nodiscard]] std::optional<ContentRow> row(std::int64_t row) const;

    /// The rows, as they are now, whose paths lead to a location, however they put it.
    [[nodiscard]] std::vector<ContentRow> naming(const std::string& place) const;

    /// Whether a part that is not complete has this file, under whichever name.
    [[nodiscard]] bool isNeeded(const FileIdentity& file) const;

    /// Where the path of a row leads, absolute and without dots; none when it is not a valid URL.
    [[nodiscard]] std::optional<std::string> location(const std::string& filePath) const;

    /// Whether a location is in the directory, or is the directory itself.
    [[nodiscard]] bool isBelow(const std::string& place) const { return place.starts_with(prefix_); }

    void markPurged(std::int64_t row);

private:
    void readNames();
    void readPurgeable();
    [[nodiscard]] zav::FMResultSet query(std::string_view sql) const;

    zav::FMDatabase& database_;
    std::string prefix_;  ///< the directory and a slash
    zav::ZAVURL base_;
    std::optional<std::int64_t> version_;
    std::vector<std::pair<std::size_t, std::int64_t>> names_;  ///< hashes of locations and rows, sorted
    std::vector<FileIdentity> needed_;                         ///< sorted
    std::vector<std::int64_t> purgeable_;
};

}  // namespace zavevents
