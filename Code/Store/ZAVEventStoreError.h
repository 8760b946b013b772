#pragma once

#include <string_view>

namespace zav {

/// Errors that the event store finds by itself; the code is a `ZAVEventStoreErrorCode`.
inline constexpr std::string_view ZAVErrorDomainEventStore = "ZAVEventStore";

/// The codes of `ZAVErrorDomainEventStore`.
enum ZAVEventStoreErrorCode : int {
    ZAVEventStoreErrorNoFile = 1,           ///< a database in memory is not for several handles
    ZAVEventStoreErrorNoWriteAheadLog = 2,  ///< the file system, or the engine there, has none
    ZAVEventStoreErrorWriteInRead = 3,  ///< a `write` within a `read` of the same store would wait for itself
    ZAVEventStoreErrorBadOption = 4,    ///< an option of the store has an invalid value
    ZAVEventStoreErrorClosed = 5,       ///< the store was closed before
    ZAVEventStoreErrorCloseInWork = 6,  ///< a work cannot close its own store, which would wait for the work
    ZAVEventStoreErrorNoExecutor = 7,   ///< there is none to tell anything by
    ZAVEventStoreErrorNoThread = 8,     ///< the system gives no thread to run a work on
    ZAVEventStoreErrorUnusableEvent = 9,   ///< the event cannot be stored as it is
    ZAVEventStoreErrorConflict = 10,       ///< another event stands at the event's sequence, or the stream
                                           ///< has another identifier
    ZAVEventStoreErrorContent = 11,        ///< a file of content, or the way to it, cannot be used
    ZAVEventStoreErrorNoContent = 12,      ///< the part, or its content, is not here
    ZAVEventStoreErrorInWork = 13,         ///< files are removed after a commit, and so not within a work
    ZAVEventStoreErrorInUse = 14,          ///< another writer goes on with the download
    ZAVEventStoreErrorBadCursor = 15,      ///< a text is not a cursor, or the cursor is of another stream
    ZAVEventStoreErrorSuspended = 16,      ///< the store is suspended, or was while the work ran
    ZAVEventStoreErrorSuspendInWork = 17,  ///< a work cannot suspend its own store, which would wait for it
    ZAVEventStoreErrorWorkRuns = 18,       ///< a work has not come to its end when the store was to sleep
    ZAVEventStoreErrorNoStream = 19,       ///< there is no stream in the row
};

}  // namespace zav
