#pragma once

#include <optional>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVRepositories.h>

#include "Private/Database/Internal/ZAVSQL.h"
#include "Store/Internal/ZAVStoreHandle.h"

namespace zav {

/// Removes what belongs to an event: its parts, metadata, change records and mirrored messages. The files of
/// the parts go when the transaction is committed, those that no other row names.
class ZAVEventRemover {
public:
    explicit ZAVEventRemover(ZAVStoreHandle& handle) noexcept
        : handle_(handle), database_(*handle.database()), repositories_(handle.repositories()) {}

    /// All that belongs to an event, but not its row. False on failure, with the reason in `error`.
    bool removeBelongings(ZAVDatabaseIdentifier event, ZAVError* error) const;

    /// An event with all that belongs to it.
    /// @return whether it was there; none on failure, with the reason in `error`.
    std::optional<bool> remove(ZAVDatabaseIdentifier event, ZAVError* error) const;

    /// A stream with its events and all that belongs to them.
    bool removeStream(ZAVDatabaseIdentifier stream, ZAVError* error) const;

    /// Makes a tombstone of the event at a sequence, and removes what belongs to it.
    bool makeTombstone(ZAVDatabaseIdentifier event, ZAVSequence seq, ZAVDatabaseIdentifier stream,
                       ZAVError* error) const;

private:
    bool noteFiles(ZAVSQL statement, ZAVDatabaseIdentifier row, ZAVError* error) const;

    ZAVStoreHandle& handle_;
    FMDatabase& database_;
    const ZAVRepositories& repositories_;
};

}  // namespace zav
