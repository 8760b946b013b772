#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVContentTransferStatus.h>
#include <ZAVEventRepository/ZAVDate.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// How much content is here, in bytes, as the rows of the parts say: of those that have a file and are
/// neither purged nor still to be downloaded.
struct ZAVContentUsage {
    std::uint64_t total = 0;                                     ///< of all
    std::map<ZAVContentTransferStatus, std::uint64_t> byStatus;  ///< of the parts in each status
    std::map<ZAVDatabaseIdentifier, std::uint64_t>
        byStream;  ///< by the row of the stream; what belongs to no event is under
                   ///< `ZAVDatabaseIdentifierNotSet`
};

/// Which files `ZAVContentCache::purge` removes: those of complete parts that were accessed once, the least
/// recently accessed first. By default all of them.
struct ZAVPurgePolicy {
    /// Stop when so many bytes are freed.
    std::optional<std::uint64_t> bytesToFree;

    /// Stop when what is here, by `ZAVContentCache::bytesOnDisk`, is at most so much. With `bytesToFree` as
    /// well it stops when both are so.
    std::optional<std::uint64_t> bytesToKeep;

    /// Only what was not accessed since.
    std::optional<ZAVDate> accessedBefore;

    /// Only parts of these MIME types, compared as they are stored; empty for any.
    std::set<std::string> types;

    /// The rows of streams whose content stays.
    std::set<ZAVDatabaseIdentifier> streamsToKeep;

    /// Only tell what would be done.
    bool changesNothing = false;
};

/// What became of one part that was chosen to be purged.
struct ZAVPurgedContent {
    /// In which way.
    enum class Outcome : std::uint8_t {
        removed,  ///< its file is gone, and it is marked purged
        gone,     ///< its file was gone already; it is marked purged
        kept,     ///< another part, which is not complete or which the policy keeps, has the same file
        refused,  ///< its path leads to nothing that may be removed, or the file system refused
    };

    std::string path;         ///< as the part has it
    Outcome outcome;          ///< what became of it
    std::uint64_t bytes = 0;  ///< what the file system got back
    std::size_t parts = 0;    ///< how many parts were marked: all that name the file
    std::string reason{};     ///< of a refusal: which file, and why
};

/// Called for each part, after all that was done about it.
using ZAVPurgeObserver = std::function<void(const ZAVPurgedContent& content)>;

/// What all of a purge came to.
struct ZAVPurgeResult {
    std::size_t parts = 0;    ///< marked purged
    std::uint64_t bytes = 0;  ///< freed
    std::size_t refused = 0;  ///< parts whose files could not be removed
};

/// Where rows and files of a store do not agree.
struct ZAVContentOrphans {
    std::vector<std::string> files;  ///< that no part names, by their paths below the directory
    std::uint64_t bytes = 0;         ///< of these files

    std::vector<ZAVDatabaseIdentifier>
        partsWithoutFile;  ///< rows of complete parts, which can be fetched again

    /// Rows of parts that are still to be uploaded: nothing brings their content back.
    std::vector<ZAVDatabaseIdentifier> uploadsWithoutFile;
};

}  // namespace zav
