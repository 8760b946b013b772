#pragma once

#include <cstddef>
#include <cstdint>

#include <ZAVEventRepository/FMDatabaseOptions.h>

namespace zav {

/// How a store is opened. The defaults are what a client wants.
struct ZAVEventStoreOptions {
    /// How each handle is opened. The store itself sets `access`, `writeAheadLog` and `newestUserVersion`;
    /// `pageCacheKiB` is that of the writing handle.
    FMDatabaseOptions database;

    /// How many reads may run at once; further ones wait for one of them to end. A handle for each is opened
    /// when it is needed first. At least 1.
    std::size_t readers = 4;

    /// Memory for pages of the file that each reading handle may take, in KiB. All handles together take
    /// `database.pageCacheKiB` and `readers` times this.
    std::int32_t readerPageCacheKiB = 2048;
};

}  // namespace zav
