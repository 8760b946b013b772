#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVError.h>

namespace zavevents {

/// What became of one part that was chosen to be reclaimed.
struct ReclaimedContent {
    enum class Outcome : std::uint8_t {
        removed,  ///< its file is gone, and it is marked purged
        gone,     ///< its file was gone already; it is marked purged
        kept,     ///< another part, one that is not complete, needs the same file
        refused,  ///< its path leads to nothing that may be removed, or the file system refused
    };

    std::string path;         ///< as the part has it
    Outcome outcome;          ///< what became of it
    std::uint64_t bytes = 0;  ///< what the file system got back
    std::size_t parts = 0;    ///< how many parts were marked: all that name the file
    std::string reason{};     ///< of a refusal: which file, and why
};

/// Frees space: removes the files of content parts, the least recently accessed first, and marks the parts
/// purged, so that no part that counts on its file is without it, whenever the process ends.
///
/// Each file goes in this order. Under the write lock it is decided on the rows as they are then; the file
/// gets a trash name in its directory; all rows that name it are marked; the transaction is committed; the
/// file is removed. The next `reclaim` begins by ending what a killed process began: files whose marks were
/// not committed get their names back, the others are removed. One that no row names gets its name back.
///
/// A file goes only if every part that names it is complete: what is still to be uploaded is the only copy,
/// and a download that was begun is gone on with. The files of the database are never removed, whatever a
/// path says, and nothing that is not below the directory.
///
/// Like the handle it serves one thread; nobody else uses the handle during a call.
class ContentReclaimer {
public:
    /// Called for each part, after all that was done about it.
    using Observer = std::function<void(const ReclaimedContent& content)>;

    /// @param database holds the parts; it must outlive this object and have no transaction open.
    /// @param directory is where their paths begin. It has to be the right one: parts whose files are not
    /// there are marked purged.
    /// @throws std::system_error when it is not a directory or cannot be opened.
    ContentReclaimer(zav::FMDatabase& database, const std::string& directory);
    ~ContentReclaimer();
    ContentReclaimer(const ContentReclaimer&) = delete;
    ContentReclaimer& operator=(const ContentReclaimer&) = delete;

    /// Repairs, then reclaims until so many bytes are freed or no part is left to choose. Parts that are kept
    /// or refused, and files that were gone already, free nothing.
    /// @return false when the database failed, with the reason in `error`; what the observer was called for
    /// is done.
    bool reclaim(std::uint64_t bytes, const Observer& observer, zav::ZAVError* error = nullptr);

    /// Calls the observer with what `reclaim` would do, and changes nothing.
    bool foretell(std::uint64_t bytes, const Observer& observer, zav::ZAVError* error = nullptr);

private:
    class Run;

    std::unique_ptr<Run> run_;
};

}  // namespace zavevents
