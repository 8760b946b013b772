#pragma once

#include <set>
#include <vector>

#include <ZAVEventRepository/ZAVIdentifiers.h>

namespace zav {

/// Tells which rows were not seen before: a join may yield a row more than once, which counts once.
class ZAVDistinctRows {
public:
    /// Whether this is the first time.
    [[nodiscard]] bool insert(ZAVDatabaseIdentifier row) {
        // While rows come in ascending order, with or without repetitions, the last one tells.
        if (others_.empty()) {
            if (ascending_.empty() || row > ascending_.back()) {
                ascending_.push_back(row);
                return true;
            }
            if (row == ascending_.back()) {
                return false;
            }
            others_.insert(ascending_.begin(), ascending_.end());
        }
        return others_.insert(row).second;
    }

private:
    std::vector<ZAVDatabaseIdentifier> ascending_;

    /// All of them, from where the order ends. Compared, and not hashed: which rows there are is for whoever
    /// makes the file to choose, and they could choose those that share one bucket.
    std::set<ZAVDatabaseIdentifier> others_;
};

}  // namespace zav
