#pragma once

#include <cstdint>

namespace zav {

/// Where a content part stands between this device and the service's content store. Stored as its number.
enum ZAVContentTransferStatus : std::uint32_t {
    ZAVContentTransferAwaitingUpload = 0,
    ZAVContentTransferUploading = 1,
    ZAVContentTransferReadyForDownload = 2,
    ZAVContentTransferDownloading = 3,
    ZAVContentTransferComplete = 4,
};

}  // namespace zav
