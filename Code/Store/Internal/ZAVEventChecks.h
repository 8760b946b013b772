#pragma once

#include <string>

#include <ZAVEventRepository/ZAVEvent.h>
#include <ZAVEventRepository/ZAVEventRepository.h>

#include "Store/Internal/ZAVStoreErrors.h"

namespace zav {

/// Why an event cannot be stored as it is.
[[nodiscard]] inline ZAVError ZAVErrorOfUnusableEvent(const std::string& message) {
    return ZAVErrorOfStore(ZAVEventStoreErrorUnusableEvent, message);
}

/// What speaks against storing an event, sent or received; empty when nothing does. Its parts are records of
/// the library then.
[[nodiscard]] ZAVError ZAVObjectionToEvent(const ZAVEvent& event);

/// Stores one event, which somebody else owns.
bool ZAVPersistEvent(const ZAVEventRepository& repository, ZAVEvent& event, ZAVError* error);

}  // namespace zav
