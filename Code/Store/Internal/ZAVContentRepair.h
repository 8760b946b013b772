#pragma once

#include <ctime>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVContent.h>

#include "Store/Internal/ZAVContentRows.h"
#include "Store/Internal/ZAVContentSession.h"

namespace zav {

/// Finds where the rows and the files of a store do not agree, and makes them.
///
/// All of it throws `ZAVContentFailure` and `std::system_error`.
class ZAVContentRepair {
public:
    /// @param folders where the library places the files of this store's events: each has one of its own
    /// there.
    /// @param unchangedSince what was changed later is left alone.
    ZAVContentRepair(ZAVContentSession& session, std::vector<std::string> folders,
                     std::time_t unchangedSince);

    [[nodiscard]] ZAVContentOrphans find();
    [[nodiscard]] ZAVContentOrphans repair();

private:
    struct File;

    [[nodiscard]] std::vector<File> filesOfLibrary() const;
    void settleTrash();
    void removeFiles(ZAVContentOrphans& settled);
    void markParts(ZAVContentOrphans& settled);
    [[nodiscard]] bool hasFile(const ZAVContentRow& row) const;

    ZAVContentSession& session_;
    std::vector<std::string> folders_;
    std::time_t unchangedSince_;
};

}  // namespace zav
