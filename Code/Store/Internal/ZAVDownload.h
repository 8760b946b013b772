#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include <ZAVEventRepository/ZAVContentPath.h>
#include <ZAVEventRepository/ZAVError.h>
#include <ZAVEventRepository/ZAVIdentifiers.h>
#include <ZAVEventRepository/ZAVRepositories.h>

#include "Store/Internal/ZAVPartialFile.h"
#include "Store/Internal/ZAVStoreCore.h"

namespace zav {

/// Which part of which event, and the path of its file.
struct ZAVPartOfContent {
    ZAVDatabaseIdentifier event = ZAVDatabaseIdentifierNotSet;
    std::int64_t index = 0;
    std::string filePath{};
};

/// The content of a part that is being downloaded.
class ZAVDownload {
public:
    /// @throws std::system_error when the file cannot be made.
    ZAVDownload(ZAVStoreCore& core, const ZAVContentDirectory& root, ZAVPartOfContent part,
                const ZAVContentPath& path);

    bool append(std::span<const std::uint8_t> bytes, ZAVError* error);
    bool finish(ZAVError* error);

private:
    bool expectUsable(ZAVError* error) const;
    bool complete(const ZAVRepositories& repositories, ZAVError* error);

    ZAVStoreCore& core_;
    ZAVPartOfContent part_;
    std::string place_;
    std::optional<ZAVPartialFile> file_;  ///< none when it was finished, and after a failure
};

}  // namespace zav
