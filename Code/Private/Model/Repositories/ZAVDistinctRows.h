#pragma once

#include <unordered_set>
#include <vector>

#include "Private/Foundation/ZAVIdentifiers.h"

namespace zav {

/// Tells which rows were not seen before: a join may yield a row more than once, which counts once.
class ZAVDistinctRows {
public:
    /// Whether this is the first time.
    [[nodiscard]] bool insert(ZAVDatabaseIdentifier row) {
        // While rows come in ascending order, which is usual, the last one tells.
        if (others_.empty() && (ascending_.empty() || row > ascending_.back())) {
            ascending_.push_back(row);
            return true;
        }
        if (others_.empty()) {
            others_.insert(ascending_.begin(), ascending_.end());
        }
        return others_.insert(row).second;
    }

private:
    std::vector<ZAVDatabaseIdentifier> ascending_;
    std::unordered_set<ZAVDatabaseIdentifier> others_;  ///< all of them, from where the order ends
};

}  // namespace zav
