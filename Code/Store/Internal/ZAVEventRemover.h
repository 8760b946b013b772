#pragma once

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVRepositories.h>

namespace zav {

/// Removes what belongs to an event: its parts, metadata, change records and mirrored messages.
class ZAVEventRemover {
public:
    explicit ZAVEventRemover(const ZAVRepositories& repositories) noexcept : repositories_(repositories) {}

    /// All that belongs to an event, but not its row. False on failure, with the reason in `error`.
    bool removeBelongings(ZAVDatabaseIdentifier event, ZAVError* error) const;

    /// An event with all that belongs to it.
    bool remove(ZAVDatabaseIdentifier event, ZAVError* error) const;

    /// Makes a tombstone of the event at a sequence, and removes what belongs to it.
    bool makeTombstone(ZAVDatabaseIdentifier event, ZAVSequence seq, ZAVDatabaseIdentifier stream,
                       ZAVError* error) const;

private:
    const ZAVRepositories& repositories_;
};

}  // namespace zav
