#pragma once

#include "Private/Model/Repositories/Internal/ZAVCacheDirectoryOfThread.h"

namespace zav {

class ZAVStoreHandle;
class ZAVWorkControl;

/// A work that runs on this thread, for as long as this lives. Works of several stores may stand in one
/// another.
class ZAVWorkOnThread {
public:
    enum class Kind { reading, writing };

    /// @param store what tells stores apart.
    /// @param directory of the store's content; null for that of the process.
    ZAVWorkOnThread(const void* store, Kind kind, ZAVStoreHandle& handle, ZAVWorkControl& control,
                    const ZAVURL* directory) noexcept;
    ~ZAVWorkOnThread();
    ZAVWorkOnThread(const ZAVWorkOnThread&) = delete;
    ZAVWorkOnThread& operator=(const ZAVWorkOnThread&) = delete;

    /// The innermost work of a store on this thread; null when none runs.
    [[nodiscard]] static const ZAVWorkOnThread* innermostOf(const void* store) noexcept;

    [[nodiscard]] Kind kind() const noexcept { return kind_; }
    [[nodiscard]] ZAVStoreHandle& handle() const noexcept { return handle_; }
    [[nodiscard]] ZAVWorkControl& control() const noexcept { return control_; }

private:
    const void* store_;
    Kind kind_;
    ZAVStoreHandle& handle_;
    ZAVWorkControl& control_;
    const ZAVWorkOnThread* outer_;
    ZAVCacheDirectoryOfThread directory_;
};

}  // namespace zav
