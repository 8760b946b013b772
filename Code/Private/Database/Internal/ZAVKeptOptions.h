#pragma once

#include <ZAVEventRepository/FMDatabaseOptions.h>

#include "Private/Database/Internal/ZAVWipedKey.h"

namespace zav {

/// What a connection was opened with, for another one to the same file. The key is wiped at the end.
struct ZAVKeptOptions {
    /// Copies them: moving a short key would leave it where it was.
    // NOLINTNEXTLINE(modernize-pass-by-value)
    explicit ZAVKeptOptions(const FMDatabaseOptions& kept) : options(kept) {}
    ZAVKeptOptions(const ZAVKeptOptions& other) = default;
    ZAVKeptOptions& operator=(const ZAVKeptOptions&) = delete;
    ~ZAVKeptOptions() { ZAVWipeKey(options.key); }

    FMDatabaseOptions options;
};

}  // namespace zav
