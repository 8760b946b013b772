#pragma once

#include <optional>
#include <string>

#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// Whose store it is, and for which application.
struct ZAVStoreOwner {
    std::optional<std::string> userID;
    std::optional<ZAVUUID> appID;
};

}  // namespace zav
