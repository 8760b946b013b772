#pragma once

#include <string>
#include <vector>

#include "Store/Internal/ZAVContentDirectory.h"
#include "Store/Internal/ZAVContentRows.h"

namespace zav {

/// A file that has its trash name.
struct ZAVContentTrash {
    ZAVOpenDirectory directory;
    std::string location;   ///< of the file before
    std::string name;       ///< of the file before
    std::string trashName;  ///< what it is called now

    /// Ends, under the write lock, what somebody began who did not come to an end: gives the file its name
    /// back when a part counts on it, or when no part says that it may go, and removes it otherwise.
    void settle(const ZAVContentRows& rows) const;
};

/// The files below a directory that have trash names of the store with a mark. What cannot be reached is left
/// out.
[[nodiscard]] std::vector<ZAVContentTrash> ZAVFindTrash(const ZAVContentDirectory& root,
                                                        const std::string& mark);

}  // namespace zav
