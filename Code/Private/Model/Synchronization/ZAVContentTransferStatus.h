#pragma once

#include <cstdint>

namespace zav {

/// Where a content part stands between this device and the service's content store. Stored as its number.
enum ZAVContentTransferStatus : std::uint32_t {
    ZAVContentTransferAwaitingUpload = 0,    ///< has a file here, and nobody has begun to send it
    ZAVContentTransferUploading = 1,         ///< being sent, or to be sent on after an interruption
    ZAVContentTransferReadyForDownload = 2,  ///< kept by the service, and not asked for
    ZAVContentTransferDownloading = 3,       ///< asked for: being fetched, or to be fetched
    ZAVContentTransferComplete = 4,          ///< nothing to move
};

}  // namespace zav
