#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <ZAVEventRepository/ZAVError.h>

namespace zav {

/// The space that a compaction takes for a while.
struct ZAVCompactionSpace {
    std::string directory;   ///< empty when it is unknown, or not on disk
    std::int64_t bytes = 0;  ///< that are written there

    /// Whether the file systems have room for all that is to be written to them; where two directories are on
    /// one, for both.
    /// @return which directories lack how much; empty when they do not, and for those that cannot be asked.
    [[nodiscard]] static ZAVError objection(const std::vector<ZAVCompactionSpace>& needed);
};

}  // namespace zav
