#pragma once

#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVMessageRepositoryCache.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// Whose store it is, for which application, and where its content is.
struct ZAVStoreOwner {
    std::optional<std::string> userID;
    std::optional<ZAVUUID> appID;
    std::optional<ZAVURL> contentDirectory;

    [[nodiscard]] ZAVURL contentDirectoryURL() const {
        return contentDirectory ? *contentDirectory : ZAVMessageRepositoryCacheBaseDirectoryURL();
    }

    /// Its path without a slash at the end.
    [[nodiscard]] std::string contentDirectoryPath() const {
        std::string path = contentDirectoryURL().filePath();
        if (path.size() > 1 && path.ends_with('/')) {
            path.pop_back();
        }
        return path;
    }
};

}  // namespace zav
