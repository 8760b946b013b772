#pragma once

#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// What became of an event that was given to `ZAVEventStore::send`.
struct ZAVSentEvent {
    ZAVDatabaseIdentifier row = ZAVDatabaseIdentifierNotSet;  ///< of the event
    bool isNew =
        false;  ///< false when an event of its author and `client_id` was stored in the stream before
};

/// Which events `ZAVEventStore::outbox` answers.
struct ZAVOutboxOptions {
    /// Whether what was sent after a message of the same stream whose content is still being uploaded waits
    /// for it, so that the service gets them in their order.
    bool holdsBackBehindUploads = false;
};

}  // namespace zav
