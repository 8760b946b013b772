#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include <ZAVEventRepository/FMDatabaseOptions.h>
#include <ZAVEventRepository/ZAVStoreWork.h>
#include <ZAVEventRepository/ZAVURL.h>
#include <ZAVEventRepository/ZAVUUID.h>

namespace zav {

/// How a store is opened. The defaults are what a client wants.
struct ZAVEventStoreOptions {
    /// The user who is signed in: the author of what is sent from here. Without it one's own events are
    /// recognised only by an author that they name.
    std::optional<std::string> userID;

    /// The application that content is downloaded for.
    std::optional<ZAVUUID> appID;

    /// The directory below which the files of this store's content are: also during its works, on their
    /// threads, what `ZAVMessageRepositoryCacheBaseDirectoryURL` answers. Without it that of the process.
    std::optional<ZAVURL> contentDirectory;

    /// How each handle is opened. The store itself sets `access`, `writeAheadLog`, `newestUserVersion` and
    /// `pageCacheKiB`. A key is given by `keyProvider`, which is asked whenever a handle is opened; when it
    /// has none the call fails, and the next one asks again. `key`, whose bytes the store would have to keep,
    /// is refused.
    FMDatabaseOptions database;

    /// How many reads may run at once; further ones wait for one of them to end. A handle for each is opened
    /// when it is needed first. At least 1.
    std::size_t readers = 4;

    /// Memory for pages of the file that all handles together may take, in KiB.
    std::int32_t pageCacheKiB = 24576;

    /// How much of it each reading handle may take, in KiB; less when all readers together would take more
    /// than half. The rest is the writing handle's.
    std::int32_t readerPageCacheKiB = 2048;

    /// What runs completions and tells of commits. Without one nothing runs beside, and nobody is told.
    ZAVExecutor executor;

    /// How often the store looks, while somebody is told of commits, whether others have committed; 0 for
    /// only when it is asked to.
    std::chrono::milliseconds lookForCommitsOfOthersEvery{0};
};

}  // namespace zav
