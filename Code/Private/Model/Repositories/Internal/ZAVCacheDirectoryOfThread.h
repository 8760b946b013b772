#pragma once

#include <ZAVEventRepository/ZAVURL.h>

namespace zav {

/// Has `ZAVMessageRepositoryCacheBaseDirectoryURL` answer a directory of its own on this thread, for as long
/// as this lives. They stand in one another.
class ZAVCacheDirectoryOfThread {
public:
    /// @param directory must outlive this; null for what was so before.
    explicit ZAVCacheDirectoryOfThread(const ZAVURL* directory) noexcept;
    ~ZAVCacheDirectoryOfThread();
    ZAVCacheDirectoryOfThread(const ZAVCacheDirectoryOfThread&) = delete;
    ZAVCacheDirectoryOfThread& operator=(const ZAVCacheDirectoryOfThread&) = delete;

private:
    const ZAVURL* before_;
};

}  // namespace zav
