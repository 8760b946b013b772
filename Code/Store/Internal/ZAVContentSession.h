#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "Store/Internal/ZAVContentDirectory.h"
#include "Store/Internal/ZAVContentRows.h"
#include "Store/Internal/ZAVStoreCore.h"

namespace zav {

/// The directory of a store's content, and the rows that tell of it, for one operation on many files.
///
/// All of it throws `ZAVContentFailure` and `std::system_error`.
class ZAVContentSession {
public:
    using Work = std::function<void(ZAVContentRows& rows)>;

    /// The directory has to be there.
    explicit ZAVContentSession(ZAVStoreCore& core);

    [[nodiscard]] const ZAVContentDirectory& directory() const noexcept { return directory_; }

    /// Does something under the write lock, with the rows as they are then, and commits what it changed. It
    /// is not stopped when the store is suspended: files may have gone by then.
    void underLock(const Work& work);

    /// Does something with the rows as they are now, which it does not change.
    void inSnapshot(const Work& work);

    /// What marks the trash of this store among that of others in the directory; none when it has had none
    /// yet.
    [[nodiscard]] std::optional<std::string> trashMark();

    /// The same, which is made and committed when there is none: before a file is given a name with it.
    [[nodiscard]] std::string makeTrashMark();

private:
    ZAVStoreCore& core_;
    ZAVContentDirectory directory_;
    std::optional<ZAVContentRows> rows_;  ///< on the handle that writes
    std::uint64_t opening_ = 0;           ///< which one that is
};

}  // namespace zav
