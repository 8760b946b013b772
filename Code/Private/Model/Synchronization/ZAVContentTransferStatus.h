#pragma once

#include <cstdint>

namespace zav {

/// Where a content part stands between this device and the service's content store. Stored as its number; a
/// stored number without a name here is kept as it is, a negative one by its 64 bits.
enum ZAVContentTransferStatus : std::uint64_t {
    ZAVContentTransferAwaitingUpload = 0,    ///< has a file here, whose upload has not begun
    ZAVContentTransferUploading = 1,         ///< being sent, or to be sent on after an interruption
    ZAVContentTransferReadyForDownload = 2,  ///< kept by the service, and not asked for
    ZAVContentTransferDownloading = 3,       ///< asked for: being fetched, or to be fetched
    ZAVContentTransferComplete = 4,          ///< nothing to move
};

}  // namespace zav
