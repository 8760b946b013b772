#pragma once

#include <memory>

#include <ZAVEventRepository/FMDatabase.h>
#include <ZAVEventRepository/ZAVConversationRepository.h>
#include <ZAVEventRepository/ZAVEventRepository.h>
#include <ZAVEventRepository/ZAVEventRowRepository.h>
#include <ZAVEventRepository/ZAVExport.h>
#include <ZAVEventRepository/ZAVKeyedValueRepository.h>
#include <ZAVEventRepository/ZAVMessageRepository.h>
#include <ZAVEventRepository/ZAVStreamRepository.h>
#include <ZAVEventRepository/ZAVSyncedChangeRepository.h>

namespace zav {

/// The event repository and its neighbours on one handle: what a work on a store is given. It stands for the
/// event repository where one is asked for.
///
/// None of them may be kept beyond the work: the handle serves another thread then.
class ZAV_EXPORT ZAVRepositories {
public:
    /// @param database an open handle.
    /// @throws NSInternalInconsistencyException when there is none.
    explicit ZAVRepositories(const std::shared_ptr<FMDatabase>& database);

    /// The event repository.
    operator const ZAVEventRepository&() const noexcept { return events; }

    ZAVEventRepository events;                ///< the 28 operations
    ZAVEventRowRepository rows;               ///< rows of events, and what is asked of many at once
    ZAVStreamRepository streams;              ///< the registry of streams
    ZAVConversationRepository conversations;  ///< conversations and their participants
    ZAVMessageRepository messages;            ///< messages that mirror events
    ZAVKeyedValueRepository keyedValues;      ///< values by key
    ZAVSyncedChangeRepository changes;        ///< recorded changes
};

}  // namespace zav
