#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVURL.h>

#include "Store/Internal/ZAVContentDirectory.h"
#include "Store/Internal/ZAVDatabaseVersion.h"

namespace zav {

/// The row of a content part, as far as its file is concerned. Event and index are text: a damaged store, or
/// one that another program wrote, may hold anything there.
struct ZAVContentRow {
    std::int64_t row;
    std::string event;
    std::string index;
    std::string filePath;
    std::string type;
    std::uint64_t size;  ///< as it counts among what is here
    bool isComplete;     ///< nothing to upload or download
    bool isPurged;
    bool isToDownload;  ///< fetched again in any case
    std::optional<ZAVDate> lastAccessed;
    std::optional<std::int64_t> stream;  ///< none when its event is not there
};

/// Which rows of content parts name which files. Rows are identified by their row identifier, since event
/// and index need not be unique.
///
/// All of it throws `ZAVContentFailure`.
class ZAVContentRows {
public:
    /// @param database must outlive this.
    /// @param directory is where the paths of the rows begin, absolute and without links.
    /// @param generation how often the rows were read by others for the same purpose.
    ZAVContentRows(FMDatabase& database, const std::string& directory, std::size_t generation = 0);

    /// Reads again which rows there are, if the database has changed since the last time but for what was
    /// marked here. Within a transaction what was read then holds to its end.
    void refresh();

    /// Reads which rows there are that name one of some locations, and no others: what is asked of these
    /// holds to the end of the transaction.
    void readThoseNaming(const std::set<std::string>& places);

    /// How often the rows were read.
    [[nodiscard]] std::size_t generation() const noexcept { return generation_; }

    /// The complete parts that can be purged, the least recently accessed first.
    [[nodiscard]] const std::vector<std::int64_t>& purgeable() const noexcept { return purgeable_; }

    /// The rows of parts whose file should be there.
    [[nodiscard]] std::vector<std::int64_t> present() const;

    /// The row as it is now, if it names a file.
    [[nodiscard]] std::optional<ZAVContentRow> row(std::int64_t row) const;

    /// The rows, as they are now, whose paths lead to a location, however they put it.
    [[nodiscard]] std::vector<ZAVContentRow> naming(const std::string& place) const;

    /// Whether a part that is not complete has this file, under whichever name.
    [[nodiscard]] bool isNeeded(const ZAVFileIdentity& file) const;

    /// Where the path of a row leads, absolute and without dots; none when it is not a valid URL.
    [[nodiscard]] std::optional<std::string> location(const std::string& filePath) const;

    /// Whether a location is in the directory, or is the directory itself.
    [[nodiscard]] bool isBelow(const std::string& place) const { return place.starts_with(prefix_); }

    /// Whether a file is one of the database's own.
    [[nodiscard]] bool isOfDatabase(const ZAVFileIdentity& file) const;

    /// The bytes of files that the rows say are here.
    [[nodiscard]] std::uint64_t bytes() const;

    void markPurged(std::int64_t row);

private:
    void readNames(const std::set<std::string>* places);
    template <class... Values>
    [[nodiscard]] FMResultSet query(std::string_view sql, const Values&... values) const;
    [[nodiscard]] std::vector<std::int64_t> numbers(std::string_view sql) const;

    FMDatabase& database_;
    std::string prefix_;  ///< the directory and a slash
    ZAVURL base_;
    std::size_t generation_;
    std::optional<ZAVDatabaseVersion> version_;
    std::vector<std::pair<std::size_t, std::int64_t>> names_;  ///< hashes of locations and rows, sorted
    std::vector<ZAVFileIdentity> needed_;                      ///< sorted
    std::vector<std::int64_t> purgeable_;
};

}  // namespace zav
