#pragma once

#include <string>

#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVEventStoreError.h>

namespace zav {

/// An error that the store finds by itself.
[[nodiscard]] inline ZAVError ZAVErrorOfStore(ZAVEventStoreErrorCode code, const std::string& message) {
    return {ZAVErrorDomainEventStore, code, message};
}

/// Why a closed store refuses a call.
[[nodiscard]] inline ZAVError ZAVErrorOfClosedStore() {
    return ZAVErrorOfStore(ZAVEventStoreErrorClosed, "the store is closed");
}

/// Why a suspended store refuses a call, and ends a work that runs.
[[nodiscard]] inline ZAVError ZAVErrorOfSuspendedStore() {
    return ZAVErrorOfStore(ZAVEventStoreErrorSuspended, "the store is suspended");
}

}  // namespace zav
